/**
 * Measures how well people are found and known again, on anybody's own photographs.
 *
 *     measure_recognisers [--models FOLDER] [--picture FILE] [--only finding|identity] FOLDER
 *     measure_recognisers [--models FOLDER] --mark FOLDER
 *
 * FOLDER/people/NAME/ holds some photographs of each person, each with him as the largest face, taken on
 * different days if the numbers are to mean anything. FOLDER/room/ holds photographs of the room, and
 * FOLDER/empty/, which may be absent, pictures without anybody. --mark writes a text file beside each
 * photograph of the room with the faces that it finds; whoever knows the room takes out what is no face, adds
 * what is missing, writes names, and measures then. The tables are Markdown.
 *
 * --models names another model folder, whose aiconfig.ini names the files. With LD_LIBRARY_PATH other
 * libraries behind the same interface are measured.
 */
#include "measure.h"

#include <QLoggingCategory>
#include <QSettings>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace {

constexpr const char *usage = "Usage: measure_recognisers [--models FOLDER] [--picture FILE] [--only "
                              "finding|identity] [--mark] FOLDER\n";

void mark(const Recognisers &recognisers, std::vector<Photograph> &room)
{
    for (auto &photograph : room) {
        if (!photograph.marks.empty()) {
            std::printf("%s has its marks already\n", photograph.file.c_str());
            continue;
        }
        for (const auto &points : detect(*recognisers.faces, photograph.picture).landmarks)
            photograph.marks.push_back({points[0], points[1], "-", "front"});
        writeMarks(photograph);
        std::printf("%s.txt: %zu faces; correct it by hand\n", photograph.file.c_str(),
                    photograph.marks.size());
    }
}

/// Whoever is named in the photographs of the room is a further person, or has a further photograph: the
/// surroundings of his face.
void addNamed(std::vector<Person> &people, const std::vector<Photograph> &room)
{
    for (const auto &photograph : room) {
        for (const auto &mark : photograph.marks) {
            if (mark.name == "-")
                continue;
            const auto isHe = [&mark](const Person &person) { return person.name == mark.name; };
            auto person = std::find_if(people.begin(), people.end(), isHe);
            if (person == people.end())
                person = people.insert(people.end(), {mark.name, {}});
            const double side = 2 * faceWidth * mark.eyeDistance();
            const auto eyes = (mark.leftEye + mark.rightEye) / 2;
            const cv::Rect around = cv::Rect(cvRound(eyes.x - side / 2), cvRound(eyes.y - 0.4 * side),
                                             cvRound(side), cvRound(side)) &
                                    cv::Rect({}, photograph.picture.size());
            auto moved = mark;
            moved.leftEye -= cv::Point2d(around.tl());
            moved.rightEye -= cv::Point2d(around.tl());
            person->photographs.push_back({photograph.file, photograph.picture(around).clone(), {moved}});
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    QLoggingCategory::setFilterRules("*.debug=false\n*.info=false"); // the service's own lines
    std::string models = MODEL_FOLDER;
    std::string drawing;
    std::string only;
    std::string folder;
    bool marks = false;
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (std::strcmp(argv[i], "--models") == 0 && hasValue)
            models = argv[++i];
        else if (std::strcmp(argv[i], "--picture") == 0 && hasValue)
            drawing = argv[++i];
        else if (std::strcmp(argv[i], "--only") == 0 && hasValue)
            only = argv[++i];
        else if (std::strcmp(argv[i], "--mark") == 0)
            marks = true;
        else if (argv[i][0] != '-' && folder.empty())
            folder = argv[i];
        else
            folder = "-";
    }
    if (folder.empty() || folder == "-" || (!only.empty() && only != "finding" && only != "identity")) {
        std::fputs(usage, stderr);
        return 2;
    }
    const QSettings settings(QString::fromStdString(models) + "/aiconfig.ini", QSettings::IniFormat);
    const auto path = [&](const char *key) {
        return models + "/" + settings.value(QString("AIService/%1").arg(key)).toString().toStdString();
    };
    const auto config = path("model_config");
    const Recognisers recognisers{
        std::shared_ptr<mirovane::FaceDetectionMTCNN>(mirovane::FaceDetectionMTCNN::create(
            path("mtcnn_model1"), path("mtcnn_model2"), path("mtcnn_model3"), config)),
        std::shared_ptr<mirovane::FaceIDDetection>(
            mirovane::FaceIDDetection::create(path("faceID_model"), config))};
    if (!recognisers.faces || !recognisers.ids) {
        std::fprintf(stderr, "%s doesn't hold the models\n", models.c_str());
        return 1;
    }
    auto photographs = readPhotographs(folder);
    if (photographs.people.empty() && photographs.room.empty() && photographs.empty.empty()) {
        std::fprintf(stderr, "%s has no photographs in people, room or empty\n%s", folder.c_str(), usage);
        return 1;
    }
    if (marks) {
        mark(recognisers, photographs.room);
        return 0;
    }
    addNamed(photographs.people, photographs.room);
    if (only != "identity") {
        measureSizes(recognisers, photographs.room);
        measureRoom(recognisers, photographs.room, drawing);
        measureEmpty(recognisers, photographs.empty);
    }
    if (only != "finding")
        measureIdentity(recognisers, photographs.people);
    return 0;
}

/**
 * Times a pass of the analyses with the real recognisers and prints the share of each.
 *
 *     measure_passes FOLDER [STUDENTS]
 *
 * FOLDER is one of measure_recognisers; its marked faces fill a full frame with STUDENTS people (40) of 64
 * pixel faces, who are all enrolled. Each pass has a frame of its own. Wall time counts on an idle machine;
 * processor time is that of all threads.
 */
#include "aiconfig.h"
#include "modelmanager.h"
#include "photographs.h"

#include <opencv2/imgproc.hpp>

#include <QCoreApplication>
#include <QLoggingCategory>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>

namespace {

constexpr int passes = 3;

struct Share
{
    std::string name;
    double wall = 0; ///< milliseconds, as processor
    double processor = 0;
};

/// The recognisers of one pass in their order.
class Pass
{
public:
    void step(const char *name, const std::function<void()> &work)
    {
        const auto wall = std::chrono::steady_clock::now();
        const auto processor = std::clock();
        work();
        Share share{
            name, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - wall).count(),
            1000.0 * double(std::clock() - processor) / CLOCKS_PER_SEC};
        const auto same = [name](const Share &other) { return other.name == name; };
        const auto found = std::find_if(m_shares.begin(), m_shares.end(), same);
        if (found == m_shares.end()) {
            m_shares.push_back(share);
        } else {
            found->wall += share.wall;
            found->processor += share.processor;
        }
    }

    void print(const char *title) const
    {
        Share all{"together", 0, 0};
        for (const auto &share : m_shares) {
            all.wall += share.wall;
            all.processor += share.processor;
        }
        std::printf("\n%s, ms a pass\n\n| recogniser | wall | processor | share |\n|--|--:|--:|--:|\n",
                    title);
        const auto row = [&all](const Share &share) {
            std::printf("| %s | %.0f | %.0f | %.0f %% |\n", share.name.c_str(), share.wall / passes,
                        share.processor / passes, 100 * share.wall / all.wall);
        };
        for (const auto &share : m_shares)
            row(share);
        row(all);
    }

private:
    std::vector<Share> m_shares;
};

cv::Mat classroom(const std::vector<Photograph> &room, int students, std::mt19937 &random)
{
    auto frame = emptyRoom(random);
    const int across = 8;
    const int down = (students + across - 1) / across;
    const cv::Size cell(frame.cols / across, frame.rows / down);
    for (int i = 0; i < students; ++i) {
        const auto &photograph = room[size_t(i) % room.size()];
        const auto &mark = photograph.marks.front();
        const double scale = 64 / (faceWidth * mark.eyeDistance());
        const auto eyes = (mark.leftEye + mark.rightEye) / 2;
        const cv::Rect shown =
            cv::Rect(cvRound(eyes.x - cell.width / scale / 2), cvRound(eyes.y - cell.height / scale / 3),
                     cvFloor(cell.width / scale), cvFloor(cell.height / scale)) &
            cv::Rect({}, photograph.picture.size());
        auto part = resized(photograph.picture(shown), scale);
        part = part(cv::Rect({}, part.size()) & cv::Rect({}, cell));
        part.copyTo(frame({{i % across * cell.width, i / across * cell.height}, part.size()}));
    }
    return frame;
}

/// Bodies, faces and identity, as every analysis of the whole frame begins. The bodies.
std::vector<cv::Rect> people(const cv::Mat &frame, Pass &pass, std::vector<cv::Rect> &faces, bool enrol)
{
    auto &manager = ModelManager::instance();
    std::vector<cv::Rect> bodies;
    pass.step("bodies", [&] {
        const auto model = manager.createSSDModel(frame);
        model->detect();
        bodies = model->m_rects;
    });
    std::vector<cv::Mat> crops;
    pass.step("faces", [&] {
        const auto model = manager.createMTCNNModel(frame, true);
        model->detect();
        model->expandFaces();
        crops = model->cropHeads(AIConfig::instance().identifyEyeDistance);
        faces = model->m_rects;
    });
    pass.step(enrol ? "enrolling" : "identity", [&] {
        for (const auto &crop : crops)
            manager
                .createFaceIDModel(crop, enrol ? FaceIDModel::RegisterAndExtract : FaceIDModel::IdentifyAll,
                                   -1)
                ->detect();
    });
    return bodies;
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);                  // tells where the model folder is
    QLoggingCategory::setFilterRules("*.debug=false\n*.info=false"); // the service's own lines
    if (argc < 2) {
        std::fputs("Usage: measure_passes FOLDER [STUDENTS]\n", stderr);
        return 2;
    }
    const int students = argc > 2 ? std::max(1, std::atoi(argv[2])) : 40;
    auto room = readPhotographs(argv[1]).room;
    const auto unmarked = [](const Photograph &photograph) { return photograph.marks.empty(); };
    room.erase(std::remove_if(room.begin(), room.end(), unmarked), room.end());
    auto &config = AIConfig::instance();
    config.load();
    config.setModelLoadFlag(~0U);
    if (room.empty() || !ModelManager::instance().init()) {
        std::fprintf(stderr, "%s\n", room.empty() ? "the room has no marked faces" : "the models don't load");
        return 1;
    }

    std::mt19937 random(7);
    std::vector<cv::Rect> faces;
    Pass enrolling;
    people(classroom(room, students, random), enrolling, faces, true); // also plans the nets

    Pass facesAlone, hands, attention;
    size_t found = 0;
    for (int i = 0; i < passes; ++i) {
        const auto frame = classroom(room, students, random);
        facesAlone.step("faces", [&] { ModelManager::instance().createMTCNNModel(frame, true)->detect(); });
    }
    for (int i = 0; i < passes; ++i) {
        const auto frame = classroom(room, students, random);
        const auto bodies = people(frame, hands, faces, false);
        hands.step("hands", [&] { ModelManager::instance().createHandupModel(frame, bodies)->detect(); });
        found += faces.size();
    }
    for (int i = 0; i < passes; ++i) {
        const auto frame = classroom(room, students, random);
        const auto bodies = people(frame, attention, faces, false);
        attention.step("poses",
                       [&] { ModelManager::instance().createBodyPoseModel(frame, bodies)->detect(); });
        attention.step("smiles", [&] {
            for (const auto &face : faces) {
                const cv::Mat view = frame(face & cv::Rect({}, frame.size()));
                ModelManager::instance().createFaceEmotionModel(view)->detect();
            }
        });
    }
    std::printf("%d students, %.1f found a frame\n", students, double(found) / passes);
    facesAlone.print("Faces");
    hands.print("Raised hands");
    attention.print("Attention");
    return 0;
}

// Measures the face recognisers on photographs whose eyes were marked by hand and prints the tables of
// mirovane/opencv/README.md as Markdown.
//
//   measure_recognisers FOLDER_OF_PHOTOGRAPHS FOLDER_OF_MODELS FOLDER_OF_LISTS [MODEL_TO_WRITE]
//
// With a fourth argument it measures nothing and writes face_id.yml anew, with the means of all people in
// the list.
#include "democlass.h"
#include "facedescriptor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mirovane/facedetectionmtcnn.h>
#include <mirovane/faceiddetection.h>
#include <numeric>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

const cv::Size frameSize(1920, 1080);

/// The width of a face, measured in eye distances, as the tables count it.
constexpr double faceWidth = 2.5;

struct Sample
{
    std::string person;
    std::string kind;
    cv::Mat picture;
    cv::Point2d leftEye;
    cv::Point2d rightEye;

    double eyeDistance() const { return cv::norm(rightEye - leftEye); }
};

/// What a detector should find in a frame.
struct Expected
{
    const Sample *sample = nullptr;
    cv::Point2d leftEye;
    cv::Point2d rightEye;
};

struct Found
{
    std::vector<cv::Rect> boxes;
    std::vector<float> scores;
    std::vector<std::vector<cv::Point>> landmarks;
};

std::vector<Sample> readSamples(const std::string &list, const std::string &folder)
{
    std::vector<Sample> samples;
    std::ifstream input(list);
    for (std::string line; std::getline(input, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        std::istringstream words(line);
        Sample sample;
        std::string file;
        cv::Rect panel;
        words >> sample.person >> sample.kind >> file >> panel.x >> panel.y >> panel.width >> panel.height >>
            sample.leftEye.x >> sample.leftEye.y >> sample.rightEye.x >> sample.rightEye.y;
        const auto photograph = cv::imread(folder + "/" + file);
        if (!words || photograph.empty()) {
            std::fprintf(stderr, "skipped: %s\n", line.c_str());
            continue;
        }
        sample.picture = photograph(panel & cv::Rect({}, photograph.size())).clone();
        sample.leftEye -= cv::Point2d(panel.tl());
        sample.rightEye -= cv::Point2d(panel.tl());
        samples.push_back(sample);
    }
    return samples;
}

double percentile(std::vector<double> values, double part)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[size_t(std::lround(part * double(values.size() - 1)))];
}

/// Processor time, so that other programs on the machine don't count. Everything runs on one thread.
double millisecondsOf(const std::function<void()> &work)
{
    const auto start = std::clock();
    work();
    return 1000.0 * double(std::clock() - start) / CLOCKS_PER_SEC;
}

/// A dim, softly lit wall with some noise, as the back of a room.
cv::Mat emptyRoom(std::mt19937 &random)
{
    cv::Mat small(9, 16, CV_8UC3);
    cv::theRNG().state = random();
    cv::randu(small, cv::Scalar::all(70), cv::Scalar::all(150));
    cv::Mat room;
    cv::resize(small, room, frameSize, 0, 0, cv::INTER_CUBIC);
    cv::Mat noise(frameSize, CV_8UC3);
    cv::randn(noise, cv::Scalar::all(8), cv::Scalar::all(4));
    cv::add(room, noise, room);
    return room;
}

cv::Mat resized(const cv::Mat &picture, double scale)
{
    cv::Mat result;
    cv::resize(picture, result, {}, scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
    return result;
}

/// Pastes the sample with its face at the given width into a cell of the frame. False when it is larger.
bool paste(cv::Mat &frame, const Sample &sample, const cv::Rect &cell, double size, std::mt19937 &random,
           std::vector<Expected> &expected)
{
    const double scale = size / (faceWidth * sample.eyeDistance());
    auto picture = resized(sample.picture, scale);
    // Of a large picture only the surroundings of the face fit into the cell.
    const cv::Point middle((sample.leftEye + sample.rightEye) * (scale / 2));
    const cv::Rect shown =
        cv::Rect(middle.x - cell.width / 2, middle.y - cell.height * 2 / 5, cell.width, cell.height) &
        cv::Rect({}, picture.size());
    picture = picture(shown);
    const cv::Point place(cell.x + int(random() % unsigned(cell.width - picture.cols + 1)),
                          cell.y + int(random() % unsigned(cell.height - picture.rows + 1)));
    picture.copyTo(frame({place, picture.size()}));
    const auto offset = cv::Point2d(place - shown.tl());
    expected.push_back({&sample, sample.leftEye * scale + offset, sample.rightEye * scale + offset});
    return true;
}

Found detect(mirovane::FaceDetectionMTCNN &detector, const cv::Mat &frame)
{
    Found found;
    detector.detectWithLandmarks(frame, found.boxes, found.scores, found.landmarks, false);
    return found;
}

/// The box that holds both eyes and has about the size of the face; -1 if there is none.
int findFor(const Expected &expected, const Found &found)
{
    const double size = faceWidth * cv::norm(expected.rightEye - expected.leftEye);
    for (size_t i = 0; i < found.boxes.size(); ++i) {
        const cv::Rect2d box = found.boxes[i];
        if (box.contains(expected.leftEye) && box.contains(expected.rightEye) && box.width > 0.5 * size &&
            box.width < 2 * size)
            return int(i);
    }
    return -1;
}

void measureDetection(mirovane::FaceDetectionMTCNN &detector, const std::vector<Sample> &samples)
{
    std::printf("| face width | clean found | drawn found | turned found | false faces per frame | eye error "
                "median / 95 %% | ms per frame |\n|--:|--:|--:|--:|--:|--:|--:|\n");
    for (const double size : {24, 28, 32, 36, 40, 48, 64, 96, 128, 200}) {
        const int columns = size > 100 ? 4 : 6;
        const int rows = size > 100 ? 2 : 4;
        std::map<std::string, std::pair<int, int>> hits;
        std::vector<double> errors;
        std::vector<double> times;
        int falseFaces = 0;
        int frames = 0;
        std::mt19937 random(7);
        for (int round = 0; round < 2; ++round) {
            std::vector<const Sample *> order;
            for (const auto &sample : samples)
                order.push_back(&sample);
            std::shuffle(order.begin(), order.end(), random);
            for (size_t next = 0; next < order.size();) {
                auto frame = emptyRoom(random);
                std::vector<Expected> expected;
                for (int cell = 0; cell < columns * rows && next < order.size(); ++cell, ++next)
                    paste(frame, *order[next],
                          {cell % columns * frame.cols / columns, cell / columns * frame.rows / rows,
                           frame.cols / columns, frame.rows / rows},
                          size, random, expected);
                Found found;
                times.push_back(millisecondsOf([&] { found = detect(detector, frame); }));
                ++frames;
                size_t matched = 0;
                for (const auto &face : expected) {
                    auto &[hit, all] = hits[face.sample->kind];
                    ++all;
                    const int index = findFor(face, found);
                    if (index < 0)
                        continue;
                    ++hit;
                    ++matched;
                    const auto &points = found.landmarks[size_t(index)];
                    errors.push_back(std::max(cv::norm(cv::Point2d(points[0]) - face.leftEye),
                                              cv::norm(cv::Point2d(points[1]) - face.rightEye)) /
                                     cv::norm(face.rightEye - face.leftEye));
                }
                falseFaces += int(found.boxes.size() - matched);
            }
        }
        const auto share = [&hits](const char *kind) {
            const auto &[hit, all] = hits[kind];
            return all ? double(hit) / all : 0.0;
        };
        std::printf("| %.0f | %.2f | %.2f | %.2f | %.2f | %.2f / %.2f | %.0f |\n", size, share("clean"),
                    share("drawn"), share("turned"), double(falseFaces) / frames, percentile(errors, 0.5),
                    percentile(errors, 0.95), percentile(times, 0.5));
        std::fflush(stdout);
    }
}

/// Frames with no face in them, each a photograph enlarged to fill the frame.
void measureFalseFaces(mirovane::FaceDetectionMTCNN &detector, const std::string &list,
                       const std::string &folder)
{
    std::vector<double> times;
    size_t frames = 0;
    size_t faces = 0;
    std::ifstream input(list);
    for (std::string file; std::getline(input, file);) {
        const auto photograph = file.empty() || file[0] == '#' ? cv::Mat() : cv::imread(folder + "/" + file);
        if (photograph.empty())
            continue;
        const auto picture = resized(photograph, std::min(double(frameSize.width) / photograph.cols,
                                                          double(frameSize.height) / photograph.rows));
        cv::Mat frame(frameSize, CV_8UC3, cv::Scalar::all(0));
        const auto shown = cv::Rect({}, picture.size()) & cv::Rect({}, frameSize);
        picture(shown).copyTo(frame(shown));
        Found found;
        times.push_back(millisecondsOf([&] { found = detect(detector, frame); }));
        ++frames;
        faces += found.boxes.size();
    }
    std::printf("\n| photographs without a face | false faces | per frame | ms per frame |\n"
                "|--:|--:|--:|--:|\n| %zu | %zu | %.2f | %.0f |\n",
                frames, faces, double(faces) / double(std::max<size_t>(frames, 1)), percentile(times, 0.5));
}

/// The head crop that the service makes: 128 by 128, the eyes 40 pixels apart.
cv::Mat headCrop(const cv::Mat &picture, const cv::Point2d &leftEye, const cv::Point2d &rightEye)
{
    const cv::Point2d middle((int(leftEye.x) + int(rightEye.x)) / 2, (int(leftEye.y) + int(rightEye.y)) / 2);
    const auto across = rightEye - leftEye;
    cv::Mat turn = cv::getRotationMatrix2D(middle, cv::fastAtan2(float(across.y), float(across.x)),
                                           40 / cv::norm(across));
    turn.at<double>(0, 2) += 64 - middle.x;
    turn.at<double>(1, 2) += 57.6 - middle.y;
    cv::Mat crop;
    cv::warpAffine(picture, crop, turn, {128, 128}, cv::INTER_LINEAR | cv::WARP_FILL_OUTLIERS);
    return crop;
}

/// The n-th change of a picture: another size, other light, stored as JPEG of quality 60.
struct Change
{
    double size;
    double light;
};

const std::vector<Change> changes = {{0.8, 1}, {0.8, 1.3}, {0.8, 0.7},  {1, 1.3},   {1, 0.7},
                                     {1, 1},   {1.25, 1},  {1.25, 1.3}, {1.25, 0.7}};

cv::Mat changed(const cv::Mat &picture, const Change &change)
{
    cv::Mat result;
    resized(picture, change.size).convertTo(result, -1, change.light);
    std::vector<unsigned char> stored;
    cv::imencode(".jpg", result, stored, {cv::IMWRITE_JPEG_QUALITY, 60});
    return cv::imdecode(stored, cv::IMREAD_COLOR);
}

/// One person's crops: the first is enrolled, the others are to be recognised.
using Crops = std::vector<cv::Mat>;

/// Crops around the marked eyes, each eye moved by two pixels of the crop in the changed ones.
Crops cropsAtMarks(const Sample &sample, double eyeDistance, std::mt19937 &random)
{
    const double scale = std::min(1.0, eyeDistance / sample.eyeDistance());
    const auto picture = resized(sample.picture, scale);
    Crops crops{headCrop(picture, sample.leftEye * scale, sample.rightEye * scale)};
    std::uniform_real_distribution<> anywhere(0, 2 * CV_PI);
    for (const auto &change : changes) {
        const double all = scale * change.size;
        const double step = 2 * sample.eyeDistance() * all / 40;
        const auto moved = [&](const cv::Point2d &eye) {
            const double angle = anywhere(random);
            return eye * all + step * cv::Point2d(std::cos(angle), std::sin(angle));
        };
        crops.push_back(headCrop(changed(picture, change), moved(sample.leftEye), moved(sample.rightEye)));
    }
    return crops;
}

/// Crops as the service gets them: the person stands in a room, the detector finds face and eyes.
Crops cropsByDetector(mirovane::FaceDetectionMTCNN &detector, const Sample &sample, double size,
                      std::mt19937 &random)
{
    Crops crops;
    auto all = changes;
    all.insert(all.begin(), {1, 1});
    for (size_t i = 0; i < all.size(); ++i) {
        cv::Mat frame = emptyRoom(random)({0, 0, 640, 540}).clone();
        std::vector<Expected> expected;
        paste(frame, sample, {0, 0, 640, 540}, size, random, expected);
        if (i > 0) {
            frame = changed(frame, all[i]);
            expected[0].leftEye *= all[i].size;
            expected[0].rightEye *= all[i].size;
        }
        const auto found = detect(detector, frame);
        const int index = findFor(expected[0], found);
        if (index >= 0)
            crops.push_back(
                headCrop(frame, found.landmarks[size_t(index)][0], found.landmarks[size_t(index)][1]));
        else if (i == 0)
            return {};
    }
    return crops;
}

cv::Mat featureOf(mirovane::FaceIDDetection &faces, const cv::Mat &crop)
{
    cv::Mat feature;
    faces.extractFeature(crop, &feature, false);
    return feature;
}

/// Writes a copy of the model with the means of some people, so that nobody is measured with means that he
/// is part of.
void writeModel(const std::string &path, const std::string &model, const std::vector<Crops> &people)
{
    std::vector<cv::Mat> crops;
    for (const auto &person : people)
        crops.push_back(person[0]);
    mirovane::open::FaceDescriptor descriptor;
    descriptor.load(model);
    descriptor.learn(crops);
    descriptor.save(path);
}

struct Matches
{
    std::vector<double> sameCosines;
    std::vector<double> strangeCosines;
    std::vector<double> sameScores;
    std::vector<double> strangeScores;
    size_t wrongBest = 0;
};

void match(mirovane::FaceIDDetection &faces, const std::vector<Crops> &people, Matches &matches)
{
    faces.clearFaces();
    std::vector<cv::Mat> enrolled;
    std::vector<size_t> ids;
    for (const auto &crops : people) {
        ids.push_back(size_t(faces.registerFace(crops[0], -1)));
        enrolled.push_back(featureOf(faces, crops[0]));
    }
    for (size_t person = 0; person < people.size(); ++person) {
        for (size_t i = 1; i < people[person].size(); ++i) {
            int best = -1;
            cv::Mat feature;
            std::vector<int> candidates;
            std::vector<double> scores;
            faces.identifyAll(people[person][i], &best, &feature, &candidates, &scores, false);
            if (best >= 0 && size_t(best) != ids[person])
                ++matches.wrongBest;
            for (size_t other = 0; other < people.size(); ++other) {
                const bool same = other == person;
                (same ? matches.sameCosines : matches.strangeCosines).push_back(feature.dot(enrolled[other]));
                (same ? matches.sameScores : matches.strangeScores).push_back(scores[ids[other]]);
            }
        }
    }
}

double shareFrom(const std::vector<double> &values, double threshold)
{
    const auto count =
        std::count_if(values.begin(), values.end(), [threshold](double value) { return value >= threshold; });
    return 100.0 * double(count) / double(std::max<size_t>(values.size(), 1));
}

/// Each half of the people is measured with the means of the other half.
void measureIdentity(const char *name, const std::vector<Crops> &people, const std::string &model)
{
    const std::string path = cv::tempfile(".yml");
    Matches matches;
    for (size_t half = 0; half < 2; ++half) {
        std::vector<Crops> measured;
        std::vector<Crops> others;
        for (size_t i = 0; i < people.size(); ++i)
            (i % 2 == half ? measured : others).push_back(people[i]);
        writeModel(path, model, others);
        const std::unique_ptr<mirovane::FaceIDDetection> faces(mirovane::FaceIDDetection::create(path, ""));
        match(*faces, measured, matches);
    }
    std::remove(path.c_str());
    const auto &same = matches.sameCosines;
    const auto &strange = matches.strangeCosines;
    std::printf("| %s | %zu | %.2f / %.2f / %.2f | %.2f / %.2f / %.2f | %.1f / %.2f | %.1f / %.2f | %.1f / "
                "%.2f | %.1f |\n",
                name, people.size(), percentile(same, 0.01), percentile(same, 0.05), percentile(same, 0.5),
                percentile(strange, 0.5), percentile(strange, 0.99), percentile(strange, 1),
                shareFrom(same, 0.35), shareFrom(strange, 0.35), shareFrom(matches.sameScores, 0.43),
                shareFrom(matches.strangeScores, 0.43), shareFrom(matches.sameScores, 0.8),
                shareFrom(matches.strangeScores, 0.8),
                100.0 * double(matches.wrongBest) / double(same.size()));
    std::fflush(stdout);
}

void writeMeanOfAll(const std::string &path, const std::string &model, const std::vector<Sample> &samples)
{
    std::mt19937 random(1);
    std::vector<Crops> people;
    for (const auto &sample : samples) {
        if (sample.kind != "turned")
            people.push_back(cropsAtMarks(sample, 40, random));
    }
    writeModel(path, model, people);
}

void measureIdentities(mirovane::FaceDetectionMTCNN &detector, mirovane::FaceIDDetection &faces,
                       const std::vector<Sample> &samples, const std::string &model)
{
    std::printf("\n| crops | people | same person 1 / 5 / 50 %% | strangers 50 / 99 / 100 %% | cosine 0.35: "
                "hits / false "
                "%% | score 0.43: hits / false %% | score 0.8: hits / false %% | wrong best %% |\n"
                "|--|--:|--:|--:|--:|--:|--:|--:|\n");
    std::mt19937 random(11);
    std::vector<Crops> atMarks;
    std::vector<Crops> atMarksSmall;
    for (const auto &sample : samples) {
        if (sample.kind == "turned")
            continue;
        atMarks.push_back(cropsAtMarks(sample, 40, random));
        atMarksSmall.push_back(cropsAtMarks(sample, 20, random));
    }
    measureIdentity("marked eyes moved by 2 pixels, 100 pixel faces", atMarks, model);
    measureIdentity("marked eyes moved by 2 pixels, 50 pixel faces", atMarksSmall, model);
    for (const double size : {50, 80, 120}) {
        std::vector<Crops> byDetector;
        for (const auto &sample : samples) {
            auto crops = cropsByDetector(detector, sample, size, random);
            if (crops.size() > 1)
                byDetector.push_back(std::move(crops));
        }
        measureIdentity(cv::format("detected eyes, %.0f pixel faces", size).c_str(), byDetector, model);
    }

    std::vector<double> times;
    for (const auto &crops : atMarks)
        times.push_back(millisecondsOf([&] { featureOf(faces, crops[0]); }));
    std::printf("\nOne feature takes %.1f ms.\n", percentile(times, 0.5));
}

/// Each person of the demo class is enrolled the first time it is found.
void measureDemoClass(mirovane::FaceDetectionMTCNN &detector, mirovane::FaceIDDetection &faces,
                      const std::string &folder)
{
    constexpr int frames = 60;
    constexpr int interval = 50;
    const DemoClass demo(QString::fromLocal8Bit((folder + "/opencv4/html").c_str()));
    if (!demo.isValid())
        return;
    struct Record
    {
        double width = 0;
        int found = 0;
        int id = -1;
        std::vector<double> scores;
    };
    std::vector<Record> records(size_t(demo.names().size()));
    std::vector<double> strange;
    std::vector<double> times;
    size_t falseFaces = 0;
    faces.clearFaces();
    for (int number = 0; number < frames; ++number) {
        const auto frame = demo.frame(number * interval);
        Found found;
        times.push_back(millisecondsOf([&] { found = detect(detector, frame); }));
        falseFaces += found.boxes.size();
        const auto truth = demo.truth(number * interval);
        for (int person = 0; person < truth.size(); ++person) {
            auto &record = records[size_t(person)];
            record.width += truth[person].face.width / double(frames);
            const auto isFace = [&](const cv::Rect &box) {
                return truth[person].face.contains((box.tl() + box.br()) / 2);
            };
            const auto box = std::find_if(found.boxes.begin(), found.boxes.end(), isFace);
            if (box == found.boxes.end())
                continue;
            ++record.found;
            --falseFaces;
            const auto &points = found.landmarks[size_t(box - found.boxes.begin())];
            const auto crop = headCrop(frame, points[0], points[1]);
            if (record.id < 0) {
                record.id = faces.registerFace(crop, -1);
                continue;
            }
            int best = -1;
            cv::Mat feature;
            std::vector<int> candidates;
            std::vector<double> scores;
            faces.identifyAll(crop, &best, &feature, &candidates, &scores, false);
            for (size_t id = 0; id < scores.size(); ++id)
                (int(id) == record.id ? record.scores : strange).push_back(scores[id]);
        }
    }
    std::printf("\n| demo person | mean face width | found %% | score 1 / 50 %% | from 0.43 %% | from 0.8 %% "
                "|\n|--|--:|--:|--:|--:|--:|\n");
    for (size_t i = 0; i < records.size(); ++i) {
        const auto &record = records[i];
        std::printf("| %s | %.0f | %.0f | %.2f / %.2f | %.0f | %.0f |\n", qPrintable(demo.names()[int(i)]),
                    record.width, 100.0 * record.found / frames, percentile(record.scores, 0.01),
                    percentile(record.scores, 0.5), shareFrom(record.scores, 0.43),
                    shareFrom(record.scores, 0.8));
    }
    std::printf("\n%d frames: %zu false faces, highest score of a stranger %.2f, %.0f ms per frame.\n",
                frames, falseFaces, percentile(strange, 1), percentile(times, 0.5));
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4 && argc != 5) {
        std::fprintf(stderr,
                     "usage: %s FOLDER_OF_PHOTOGRAPHS FOLDER_OF_MODELS FOLDER_OF_LISTS [MODEL_TO_WRITE]\n",
                     argv[0]);
        return 2;
    }
    cv::setNumThreads(1);
    const std::string models = std::string(argv[2]) + "/";
    const std::string lists = std::string(argv[3]) + "/";
    const auto samples = readSamples(lists + "faces.txt", argv[1]);
    if (argc == 5) {
        writeMeanOfAll(argv[4], models + "face_id.yml", samples);
        return 0;
    }
    const std::unique_ptr<mirovane::FaceDetectionMTCNN> detector(
        mirovane::FaceDetectionMTCNN::create(models + "face_propose.xml", models + "face_confirm.xml",
                                             models + "face_eyes.xml", models + "model-config.yml"));
    const std::unique_ptr<mirovane::FaceIDDetection> faces(
        mirovane::FaceIDDetection::create(models + "face_id.yml", models + "model-config.yml"));
    if (!detector || !faces || samples.empty()) {
        std::fprintf(stderr, "no models or no photographs\n");
        return 1;
    }
    measureDetection(*detector, samples);
    measureFalseFaces(*detector, lists + "nofaces.txt", argv[1]);
    measureIdentities(*detector, *faces, samples, models + "face_id.yml");
    measureDemoClass(*detector, *faces, argv[1]);
    return 0;
}

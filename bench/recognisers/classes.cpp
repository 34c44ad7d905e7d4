/**
 * Measures the recognisers of bodies, hands, poses, smiles and glasses on the demo class.
 *
 *     measure_classes <folder with the photographs> <model folder> [handled frames] [first frame]
 *     measure_classes --photographs <folder> <model folder>
 *
 * Handles every 30th frame as the service does: faces and bodies are found, a body belongs to the face that
 * it wholly covers, and hand, pose, smile and glasses are judged from these rectangles. Prints for each
 * person how often a thing was reported among the frames in which it was there and in which it was not, and
 * the mean processor time of each recogniser. People whose hand is on its way up or down count for neither.
 * Bodies and faces are one look, which counts for the faces.
 *
 * The second form runs on photographs of anybody (all pictures of the folder, below it too): it prints what
 * is told of each face, numbers them from the left, and ends with the sums, which whoever knows the
 * photographs holds against them.
 */
#include "democlass.h"

#include <mirovane/recognisers.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

namespace {

constexpr int interval = 30;
constexpr int padding = 5;
constexpr float smileThreshold = 0.75F;
constexpr float handThreshold = 0.8F;
constexpr int poseClasses = 5;
const char *const gestureNames[] = {"none",        "high",        "bent",           "aside",
                                    "at the chin", "in the hair", "behind the head"};

struct Share
{
    int reported = 0;
    int frames = 0;

    void count(bool report)
    {
        ++frames;
        reported += report ? 1 : 0;
    }
};

/// What was reported when it was there and when it was not.
struct Tally
{
    Share there;
    Share absent;

    void count(bool truth, bool report) { (truth ? there : absent).count(report); }
};

struct PersonTally
{
    Share face;
    Share body;
    Tally hand;
    Tally smile;
    Tally glasses;
    std::array<int, poseClasses> poses{};
};

using GestureShares = std::array<Share, std::size(gestureNames)>;

struct Stopwatch
{
    const char *name;
    double milliseconds = 0;
    int calls = 0;

    template <typename Work>
    void measure(Work work)
    {
        // Processor time of all threads, so that other load on the machine doesn't count.
        const std::clock_t start = std::clock();
        work();
        milliseconds += 1000.0 * double(std::clock() - start) / CLOCKS_PER_SEC;
        ++calls;
    }
};

struct Recognisers
{
    std::unique_ptr<mirovane::FaceDetectionMTCNN> faces;
    std::unique_ptr<mirovane::BodyDetectionSSD> bodies;
    std::unique_ptr<mirovane::HandupClassify> hands;
    std::unique_ptr<mirovane::BodyPoseClassify> poses;
    std::unique_ptr<mirovane::FaceEmotionClassify> emotions;
    std::unique_ptr<mirovane::FaceAttrDetection> attributes;

    explicit Recognisers(const std::string &folder)
    {
        const std::string config = folder + "/model-config.yml";
        const auto net = [&](const char *name) { return folder + "/" + name + ".onnx"; };
        faces.reset(mirovane::FaceDetectionMTCNN::create(net("blazeface"), net("blazeface"),
                                                         net("landmark68"), config));
        bodies.reset(mirovane::BodyDetectionSSD::create(net("blazeface"), config));
        hands.reset(mirovane::HandupClassify::create(net("movenet"), config));
        poses.reset(mirovane::BodyPoseClassify::create(net("movenet"), config));
        emotions.reset(mirovane::FaceEmotionClassify::create(net("emotion"), config));
        attributes.reset(mirovane::FaceAttrDetection::create(net("landmark68"), config));
    }

    bool complete() const { return faces && bodies && hands && poses && emotions && attributes; }
};

cv::Rect padded(const cv::Rect &face, const cv::Size &size)
{
    return cv::Rect(face.x - padding, face.y - padding, face.width + 2 * padding, face.height + 2 * padding) &
           cv::Rect(cv::Point(), size);
}

/// The three crops of a body that the service has judged: each reaches up some pixels further.
std::vector<cv::Rect> crops(const cv::Rect &body, const cv::Size &size)
{
    std::vector<cv::Rect> result;
    result.reserve(3);
    const int x = std::max(body.x - 3, 0);
    for (int step = 0; step < 3; ++step)
        result.emplace_back(x, std::max(body.y - 6 * (step + 1), 0), std::min(size.width - x, body.width + 6),
                            body.height + 1 + 6 * step);
    return result;
}

bool handUp(const std::vector<int> &labels, const std::vector<float> &scores)
{
    const bool none = std::all_of(labels.begin(), labels.end(), [](int label) { return label != 0; });
    const bool sure = std::any_of(scores.begin(), scores.end(), [](float s) { return s >= handThreshold; });
    return !(none && sure);
}

class Measurement
{
public:
    Measurement(const DemoClass &demo, Recognisers &recognisers)
        : m_demo(demo), m_recognisers(recognisers), m_people(std::size_t(demo.names().size()))
    {
    }

    void handle(int number)
    {
        const cv::Mat frame = m_demo.frame(number);
        const auto truth = m_demo.truth(number);
        const auto before = m_demo.truth(std::max(0, number - interval / 2));
        const auto after = m_demo.truth(number + interval / 2);

        std::vector<cv::Rect> faces;
        std::vector<cv::Rect> bodies;
        std::vector<float> scores;
        m_faceTime.measure([&] { m_recognisers.faces->detect(frame, faces, scores, false); });
        m_bodyTime.measure([&] { m_recognisers.bodies->detect(frame, bodies, scores, false); });
        m_bodies += int(bodies.size());
        ++m_frames;

        for (int i = 0; i < truth.size(); ++i) {
            PersonTally &person = m_people[std::size_t(i)];
            const cv::Rect &real = truth[i].face;
            const cv::Point middle = (real.tl() + real.br()) / 2;
            const auto face = std::find_if(faces.begin(), faces.end(),
                                           [&](const cv::Rect &rect) { return rect.contains(middle); });
            person.face.count(face != faces.end());
            if (face == faces.end())
                continue;
            const cv::Rect crop = padded(*face, frame.size());
            judgeFace(frame, crop, truth[i], person);
            const auto body = std::find_if(bodies.begin(), bodies.end(),
                                           [&](const cv::Rect &rect) { return (rect & crop) == crop; });
            person.body.count(body != bodies.end());
            if (body == bodies.end())
                continue;
            const bool still = before[i].gesture == truth[i].gesture && after[i].gesture == truth[i].gesture;
            judgeBody(frame, *body, truth[i], still, person);
        }
    }

    void print() const
    {
        std::printf("%-8s %9s %9s | %9s %9s | %9s %9s | %9s %9s | poses 0 to 4\n", "", "face", "body", "hand",
                    "no hand", "smile", "none", "glasses", "none");
        PersonTally all;
        for (int i = 0; i < int(m_people.size()); ++i) {
            printRow(m_demo.names()[i].toLocal8Bit().constData(), m_people[std::size_t(i)]);
            add(all, m_people[std::size_t(i)]);
        }
        printRow("all", all);
        std::printf("a raised hand was reported of these arms:");
        for (std::size_t i = 0; i < m_gestures.size(); ++i)
            std::printf("%s %s %d/%d", i > 0 ? "," : "", gestureNames[i], m_gestures[i].reported,
                        m_gestures[i].frames);
        std::printf("\n%d frames, %.1f bodies a frame; processor milliseconds a call:", m_frames,
                    double(m_bodies) / std::max(1, m_frames));
        for (const Stopwatch *watch :
             {&m_faceTime, &m_bodyTime, &m_handTime, &m_poseTime, &m_emotionTime, &m_attributeTime})
            std::printf(" %s %.1f", watch->name, watch->milliseconds / std::max(1, watch->calls));
        std::printf("\n");
    }

private:
    void judgeFace(const cv::Mat &frame, const cv::Rect &face, const DemoClass::Person &truth,
                   PersonTally &person)
    {
        int label = 0;
        float score = 0;
        m_emotionTime.measure([&] { m_recognisers.emotions->classify(frame(face), &label, &score, false); });
        person.smile.count(truth.smiling, label == 1 && score >= smileThreshold);

        std::vector<mirovane::FaceAttrResult> results;
        m_attributeTime.measure([&] { m_recognisers.attributes->detect(frame, {face}, results, false); });
        person.glasses.count(truth.glasses, (results.at(0).labels.at(0) & 1) != 0);
    }

    void judgeBody(const cv::Mat &frame, const cv::Rect &body, const DemoClass::Person &truth, bool still,
                   PersonTally &person)
    {
        std::vector<int> labels;
        std::vector<float> scores;
        m_handTime.measure(
            [&] { m_recognisers.hands->classify(frame, crops(body, frame.size()), labels, scores, false); });
        if (still) {
            const bool up = handUp(labels, scores);
            person.hand.count(truth.handUp, up);
            m_gestures.at(std::size_t(truth.gesture)).count(up);
        }

        labels.clear();
        scores.clear();
        m_poseTime.measure([&] { m_recognisers.poses->classify(frame, {body}, labels, scores, false); });
        ++person.poses.at(std::size_t(labels.at(0)));
    }

    static void add(Share &sum, const Share &share)
    {
        sum.reported += share.reported;
        sum.frames += share.frames;
    }

    static void add(PersonTally &sum, const PersonTally &person)
    {
        add(sum.face, person.face);
        add(sum.body, person.body);
        add(sum.hand.there, person.hand.there);
        add(sum.hand.absent, person.hand.absent);
        add(sum.smile.there, person.smile.there);
        add(sum.smile.absent, person.smile.absent);
        add(sum.glasses.there, person.glasses.there);
        add(sum.glasses.absent, person.glasses.absent);
        for (std::size_t i = 0; i < sum.poses.size(); ++i)
            sum.poses[i] += person.poses[i];
    }

    static void printRow(const char *name, const PersonTally &person)
    {
        std::printf("%-8s", name);
        const Share *shares[] = {&person.face,          &person.body,          &person.hand.there,
                                 &person.hand.absent,   &person.smile.there,   &person.smile.absent,
                                 &person.glasses.there, &person.glasses.absent};
        for (int i = 0; i < 8; ++i)
            std::printf("%s %4d/%-4d", i > 0 && i % 2 == 0 ? " |" : "", shares[i]->reported,
                        shares[i]->frames);
        std::printf(" |");
        for (const int count : person.poses)
            std::printf(" %d", count);
        std::printf("\n");
    }

    const DemoClass &m_demo;
    Recognisers &m_recognisers;
    std::vector<PersonTally> m_people;
    GestureShares m_gestures;
    int m_frames = 0;
    int m_bodies = 0;
    Stopwatch m_faceTime{"faces"};
    Stopwatch m_bodyTime{"bodies"};
    Stopwatch m_handTime{"hand"};
    Stopwatch m_poseTime{"pose"};
    Stopwatch m_emotionTime{"smile"};
    Stopwatch m_attributeTime{"glasses"};
};

/// What is told of the people of a folder's photographs.
void tellPhotographs(const std::string &folder, Recognisers &recognisers)
{
    std::vector<cv::String> files;
    cv::glob(folder, files, true);
    int people = 0, bodies = 0, hands = 0, smiles = 0, glasses = 0;
    std::array<int, poseClasses> poses{};
    for (const std::string &file : files) {
        const cv::Mat picture = cv::imread(file);
        if (picture.empty())
            continue;
        std::vector<cv::Rect> faces, found;
        std::vector<float> scores;
        recognisers.faces->detect(picture, faces, scores, false);
        recognisers.bodies->detect(picture, found, scores, false);
        std::sort(faces.begin(), faces.end(), [](const cv::Rect &a, const cv::Rect &b) { return a.x < b.x; });
        int number = 0;
        for (const cv::Rect &rect : faces) {
            const cv::Rect face = padded(rect, picture.size());
            const auto body = std::find_if(found.begin(), found.end(),
                                           [&](const cv::Rect &other) { return (other & face) == face; });
            std::vector<int> labels, classes;
            std::vector<float> sure;
            if (body != found.end()) {
                recognisers.hands->classify(picture, crops(*body, picture.size()), labels, sure, false);
                recognisers.poses->classify(picture, {*body}, classes, sure, false);
            }
            int label = 0;
            float score = 0;
            recognisers.emotions->classify(picture(face), &label, &score, false);
            std::vector<mirovane::FaceAttrResult> attributes;
            recognisers.attributes->detect(picture, {face}, attributes, false);

            const bool up = std::any_of(labels.begin(), labels.end(), [](int hand) { return hand == 0; });
            const bool smile = label == 1 && score >= smileThreshold;
            const bool wears = (attributes.at(0).labels.at(0) & 1) != 0;
            const int pose = classes.empty() ? 1 : classes.front();
            std::printf("%s face %d, %d pixels:%s%s%s%s pose %d\n", file.c_str(), ++number, rect.width,
                        body == found.end() ? " no body" : "", up ? " hand up" : "", smile ? " smiles" : "",
                        wears ? " glasses" : "", pose);
            ++people;
            bodies += body != found.end() ? 1 : 0;
            hands += up ? 1 : 0;
            smiles += smile ? 1 : 0;
            glasses += wears ? 1 : 0;
            ++poses.at(std::size_t(pose));
        }
    }
    std::printf("%d faces, %d with a body: %d raise a hand, %d smile, %d wear glasses; poses", people, bodies,
                hands, smiles, glasses);
    for (const int count : poses)
        std::printf(" %d", count);
    std::printf("\n");
}

} // namespace

int main(int argc, char **argv)
{
    const bool ownPhotographs = argc == 4 && std::string(argv[1]) == "--photographs";
    if (argc < 3 || (argv[1][0] == '-' && !ownPhotographs)) {
        std::fprintf(stderr,
                     "usage: %s <photographs> <model folder> [handled frames] [first frame]\n"
                     "       %s --photographs <folder> <model folder>\n",
                     argv[0], argv[0]);
        return 2;
    }
    Recognisers recognisers(argv[ownPhotographs ? 3 : 2]);
    if (!recognisers.complete()) {
        std::fprintf(stderr, "a recogniser could not be loaded from %s\n", argv[ownPhotographs ? 3 : 2]);
        return 1;
    }
    if (ownPhotographs) {
        tellPhotographs(argv[2], recognisers);
        return 0;
    }
    const DemoClass demo(QString::fromLocal8Bit(argv[1]));
    if (!demo.isValid()) {
        std::fprintf(stderr, "%s\n", demo.error().toLocal8Bit().constData());
        return 1;
    }

    const int frames = argc > 3 ? std::max(1, std::atoi(argv[3])) : 60;
    const int first = argc > 4 ? std::max(0, std::atoi(argv[4])) : 0;
    Measurement measurement(demo, recognisers);
    for (int i = 0; i < frames; ++i)
        measurement.handle(first + i * interval);
    measurement.print();
    return 0;
}

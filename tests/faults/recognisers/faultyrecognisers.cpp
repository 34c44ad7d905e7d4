// The recognisers that find three people, or do what FaultControl says. Each of the libraries that the
// service loads holds them all.

#include "fakes.h"
#include "faultcontrol.h"

#include <csignal>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <time.h>

namespace {

FaultControl *control()
{
    static FaultControl *const mapped = FaultControl::map(std::getenv("AI_FAULTS"));
    return mapped;
}

Behaviour behaviourOf(RecogniserClass recogniser)
{
    return control() ? static_cast<Behaviour>(control()->behaviour[recogniser].load()) : Behaviour::works;
}

void pause(int milliseconds)
{
    const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    nanosleep(&time, nullptr);
}

/// Counts the call and does what doesn't depend on its results. What is left is for the caller.
Behaviour beginCall(RecogniserClass recogniser)
{
    if (control())
        ++control()->calls[recogniser];
    if (behaviourOf(recogniser) == Behaviour::hangs) {
        ++control()->hanging[recogniser];
        while (behaviourOf(recogniser) == Behaviour::hangs)
            pause(5);
        --control()->hanging[recogniser];
    }
    const Behaviour behaviour = behaviourOf(recogniser);
    switch (behaviour) {
    case Behaviour::throws:
        throw std::runtime_error("faulty recogniser");
    case Behaviour::throwsNumber:
        throw 42;
    case Behaviour::slow:
        pause(2000);
        break;
    case Behaviour::crashes:
        std::raise(SIGSEGV);
        break;
    default:
        break;
    }
    return behaviour;
}

/// Throws where the class refuses to be loaded.
void beginLoad(RecogniserClass recogniser)
{
    if (behaviourOf(recogniser) == Behaviour::refusesToLoad)
        throw std::runtime_error("faulty model file");
}

constexpr int people = 3;
constexpr int smallest = std::numeric_limits<int>::min();
constexpr int largest = std::numeric_limits<int>::max();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float infinite = std::numeric_limits<float>::infinity();

std::vector<cv::Rect> anyRects()
{
    return {{smallest, smallest, largest, largest},
            {largest, largest, largest, largest},
            {-5, -5, 0, 0},
            {100, 100, -50, -50},
            {1919, 1079, 500, 500},
            {0, 0, smallest, smallest}};
}

cv::Rect bodyOf(int person)
{
    return {200 + 500 * person, 300, 300, 500};
}

cv::Rect faceOf(int person)
{
    return {300 + 500 * person, 400, 100, 100};
}

std::vector<cv::Point> landmarksOf(const cv::Rect &face)
{
    const auto at = [&](int x, int y) { return face.tl() + cv::Point(x, y); };
    return {at(30, 40), at(70, 40), at(50, 60), at(35, 80), at(65, 80)};
}

/// One rectangle and one score for each person.
void findPeople(Behaviour behaviour, cv::Rect (*rectOf)(int), std::vector<cv::Rect> &rects,
                std::vector<float> &scores)
{
    if (behaviour == Behaviour::garbage) {
        rects = anyRects();
        scores.assign(rects.size(), 1e30F);
        return;
    }
    for (int person = 0; person < people; ++person) {
        rects.push_back(rectOf(person));
        scores.push_back(behaviour == Behaviour::notANumber ? notANumber : 0.9F);
    }
    if (behaviour == Behaviour::wrongLengths)
        scores.resize(1);
}

/// One class and one score for each of `count` things.
void classifyAll(Behaviour behaviour, size_t count, std::vector<int> &labels, std::vector<float> &scores)
{
    labels.assign(count, 0);
    scores.assign(count, 0.9F);
    if (behaviour == Behaviour::garbage) {
        for (size_t i = 0; i < count; ++i)
            labels[i] = i % 2 ? smallest : largest;
        scores.assign(count, -1e30F);
    } else if (behaviour == Behaviour::notANumber) {
        for (size_t i = 0; i < count; ++i)
            scores[i] = i % 2 ? notANumber : infinite;
    } else if (behaviour == Behaviour::wrongLengths) {
        labels.resize(count / 2);
        scores.resize(count + 7);
    }
}

std::vector<cv::Point> anyPoints(size_t number)
{
    const cv::Point low(smallest, smallest);
    const cv::Point high(largest, largest);
    const std::vector<std::vector<cv::Point>> lists = {
        {low, high, low, high, low}, {}, {low}, {high, high, high, high, high}, {{1, 1}, {2, 1}}};
    return lists[number % lists.size()];
}

/// Takes every face for a new one when it enrols, and each in turn for the next one when it identifies.
struct FaultyFaceID : scripted::FaceID
{
    int registerFace(const cv::Mat &, int) override
    {
        const Behaviour behaviour = beginCall(faceId);
        if (behaviour == Behaviour::garbage)
            return largest;
        return m_count++;
    }

    int identify(const cv::Mat &, int *id, bool) override
    {
        const Behaviour behaviour = beginCall(faceId);
        *id = behaviour == Behaviour::garbage ? smallest : nextPerson();
        return 0;
    }

    int extractFeature(const cv::Mat &, cv::Mat *feature, bool) override
    {
        *feature = featureFor(beginCall(faceId));
        return 0;
    }

    int identifyAll(const cv::Mat &, int *id, cv::Mat *feature, std::vector<int> *,
                    std::vector<double> *scores, bool) override
    {
        const Behaviour behaviour = beginCall(faceId);
        *id = nextPerson();
        *feature = featureFor(behaviour);
        scores->assign(static_cast<size_t>(m_count), 0.1);
        if (*id >= 0)
            (*scores)[static_cast<size_t>(*id)] = 0.95;
        if (behaviour == Behaviour::garbage) {
            *id = largest;
            scores->assign(5, 1e300);
        } else if (behaviour == Behaviour::notANumber) {
            scores->assign(static_cast<size_t>(m_count), notANumber);
            scores->push_back(infinite);
        } else if (behaviour == Behaviour::wrongLengths) {
            scores->resize(m_calls % 2 ? 0 : 1000, 0.9);
        }
        return 0;
    }

    int removeFace(int) override
    {
        beginCall(faceId);
        return 0;
    }

    void clearFaces() override { beginCall(faceId); }

    int nextPerson() { return m_count == 0 ? -1 : m_calls++ % std::min(m_count, people); }

    cv::Mat featureFor(Behaviour behaviour)
    {
        ++m_calls;
        if (behaviour == Behaviour::notANumber)
            return cv::Mat(1, 64, CV_32F, cv::Scalar(notANumber));
        if (behaviour == Behaviour::wrongLengths)
            return cv::Mat(1, 1 + m_calls % 100, CV_32F, cv::Scalar(1));
        if (behaviour != Behaviour::garbage)
            return cv::Mat(1, 64, CV_32F, cv::Scalar(0.125));
        switch (m_calls % 4) {
        case 0:
            return cv::Mat();
        case 1:
            return cv::Mat(std::vector<int>{2, 3, 4, 5}, CV_32F, cv::Scalar(1));
        case 2:
            return cv::Mat(7, 3, CV_8UC4, cv::Scalar::all(200));
        default:
            return cv::Mat(64, 1, CV_64F, cv::Scalar(1e308));
        }
    }

    int m_count = 0;
    int m_calls = 0;
};

/// A fake that classifies.
template <class Fake>
Fake *classifier(RecogniserClass recogniser)
{
    beginLoad(recogniser);
    auto *fake = new Fake;
    fake->answer = [recogniser](size_t count, std::vector<int> &labels, std::vector<float> &scores) {
        classifyAll(beginCall(recogniser), count, labels, scores);
        return 0;
    };
    return fake;
}

} // namespace

using Path = const std::string &;

mirovane::FaceDetectionMTCNN *mirovane::FaceDetectionMTCNN::create(Path, Path, Path, Path)
{
    beginLoad(faceDetection);
    auto *fake = new scripted::FaceDetection;
    fake->answer = [](const cv::Mat &, auto &faces, auto &scores, auto &landmarks) {
        const Behaviour behaviour = beginCall(faceDetection);
        findPeople(behaviour, faceOf, faces, scores);
        for (const cv::Rect &face : faces)
            landmarks.push_back(behaviour == Behaviour::garbage ? anyPoints(landmarks.size())
                                                                : landmarksOf(face));
        if (behaviour == Behaviour::wrongLengths)
            landmarks.resize(1);
        return 0;
    };
    return fake;
}

mirovane::FaceIDDetection *mirovane::FaceIDDetection::create(Path, Path)
{
    beginLoad(faceId);
    return new FaultyFaceID;
}

mirovane::BodyDetectionSSD *mirovane::BodyDetectionSSD::create(Path, Path)
{
    beginLoad(bodyDetection);
    auto *fake = new scripted::Bodies;
    fake->answer = [](const cv::Mat &, auto &bodies, auto &scores) {
        findPeople(beginCall(bodyDetection), bodyOf, bodies, scores);
        return 0;
    };
    return fake;
}

mirovane::BodyPoseClassify *mirovane::BodyPoseClassify::create(Path, Path)
{
    return classifier<scripted::BodyPose>(bodyPose);
}

mirovane::HandupClassify *mirovane::HandupClassify::create(Path, Path)
{
    return classifier<scripted::Handup>(handup);
}

mirovane::FaceEmotionClassify *mirovane::FaceEmotionClassify::create(Path, Path)
{
    beginLoad(emotion);
    auto *fake = new scripted::Emotion;
    fake->answer = [](int &label, float &score) {
        std::vector<int> labels;
        std::vector<float> scores;
        classifyAll(beginCall(emotion), 2, labels, scores);
        label = labels.front();
        score = scores.front();
        return 0;
    };
    return fake;
}

mirovane::FaceAttrDetection *mirovane::FaceAttrDetection::create(Path, Path)
{
    beginLoad(attributes);
    auto *fake = new scripted::FaceAttr;
    fake->answer = [](size_t count, auto &results) {
        const Behaviour behaviour = beginCall(attributes);
        results.resize(behaviour == Behaviour::wrongLengths ? 0 : count);
        for (mirovane::FaceAttrResult &result : results) {
            if (behaviour != Behaviour::garbage)
                result.labels = {1};
        }
        return 0;
    };
    return fake;
}

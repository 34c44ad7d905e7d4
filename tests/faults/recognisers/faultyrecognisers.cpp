// The recognisers that find three people, or do what FaultControl says. Each of the libraries that the
// service loads holds them all.

#include "faultcontrol.h"
#include "garbage.h"

#include <csignal>
#include <cstdlib>
#include <random>
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

/// What garbage is made of, again and again.
const std::vector<std::uint8_t> noise = [] {
    std::vector<std::uint8_t> bytes(1 << 20);
    std::mt19937 random(1903);
    std::generate(bytes.begin(), bytes.end(), random);
    return bytes;
}();

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
    case Behaviour::garbage:
        if (garbage::bytes().isEmpty())
            garbage::bytes().reset(noise.data(), noise.size());
        break;
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

void findPeople(const cv::Rect &first, std::vector<cv::Rect> &rects, std::vector<float> &scores)
{
    for (int person = 0; person < people; ++person)
        rects.push_back(first + cv::Point(500 * person, 0));
    scores.assign(people, 0.9F);
}

/// Takes every face for a new one when it enrols, and each in turn for the next one when it identifies.
struct FaultyFaceID : garbage::Gallery
{
    int registerFace(const cv::Mat &face, int id) override
    {
        return beginCall(faceId) == Behaviour::garbage ? Gallery::registerFace(face, id) : m_count++;
    }

    int identify(const cv::Mat &face, int *id, bool fast) override
    {
        if (beginCall(faceId) == Behaviour::garbage)
            return Gallery::identify(face, id, fast);
        *id = nextPerson();
        return 0;
    }

    int extractFeature(const cv::Mat &face, cv::Mat *feature, bool fast) override
    {
        if (beginCall(faceId) == Behaviour::garbage)
            return Gallery::extractFeature(face, feature, fast);
        *feature = cv::Mat(1, 64, CV_32F, cv::Scalar(0.125));
        return 0;
    }

    int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *candidates,
                    std::vector<double> *scores, bool fast) override
    {
        if (beginCall(faceId) == Behaviour::garbage)
            return Gallery::identifyAll(face, id, feature, candidates, scores, fast);
        *id = nextPerson();
        *feature = cv::Mat(1, 64, CV_32F, cv::Scalar(0.125));
        scores->assign(static_cast<size_t>(m_count), 0.1);
        if (*id >= 0)
            (*scores)[static_cast<size_t>(*id)] = 0.95;
        return 0;
    }

    int removeFace(int id) override
    {
        return beginCall(faceId) == Behaviour::garbage ? Gallery::removeFace(id) : 0;
    }

    void clearFaces() override { beginCall(faceId); }

    int nextPerson() { return m_count == 0 ? -1 : m_calls++ % std::min(m_count, people); }

    int m_count = 0;
    int m_calls = 0;
};

/// A fake that answers so when it works, and so when it gives garbage.
template <class Fake, class Works, class Garbage>
Fake *faulty(RecogniserClass recogniser, Works works, Garbage garbage)
{
    beginLoad(recogniser);
    auto *fake = new Fake;
    fake->answer = [=](auto &&...arguments) {
        if (beginCall(recogniser) == Behaviour::garbage)
            return garbage(arguments...);
        works(arguments...);
        return 0;
    };
    return fake;
}

template <class Fake>
Fake *classifier(RecogniserClass recogniser)
{
    const auto works = [](size_t count, std::vector<int> &labels, std::vector<float> &scores) {
        labels.assign(count, 0);
        scores.assign(count, 0.9F);
    };
    return faulty<Fake>(recogniser, works, garbage::classes);
}

} // namespace

using Path = const std::string &;

mirovane::FaceDetectionMTCNN *mirovane::FaceDetectionMTCNN::create(Path, Path, Path, Path)
{
    const auto works = [](const cv::Mat &, auto &faces, auto &scores, auto &landmarks) {
        findPeople({300, 400, 100, 100}, faces, scores);
        for (const cv::Rect &face : faces) {
            const auto at = [&](int x, int y) { return face.tl() + cv::Point(x, y); };
            landmarks.push_back({at(30, 40), at(70, 40), at(50, 60), at(35, 80), at(65, 80)});
        }
    };
    return faulty<scripted::FaceDetection>(faceDetection, works, garbage::faces);
}

mirovane::FaceIDDetection *mirovane::FaceIDDetection::create(Path, Path)
{
    beginLoad(faceId);
    return new FaultyFaceID;
}

mirovane::BodyDetectionSSD *mirovane::BodyDetectionSSD::create(Path, Path)
{
    const auto works = [](const cv::Mat &, auto &bodies, auto &scores) {
        findPeople({200, 300, 300, 500}, bodies, scores);
    };
    return faulty<scripted::Bodies>(bodyDetection, works, garbage::bodies);
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
    const auto works = [](int &label, float &score) {
        label = 0;
        score = 0.9F;
    };
    return faulty<scripted::Emotion>(emotion, works, garbage::emotion);
}

mirovane::FaceAttrDetection *mirovane::FaceAttrDetection::create(Path, Path)
{
    const auto works = [](size_t count, auto &results) {
        results.assign(count, mirovane::FaceAttrResult{{1}});
    };
    return faulty<scripted::FaceAttr>(attributes, works, garbage::attributes);
}

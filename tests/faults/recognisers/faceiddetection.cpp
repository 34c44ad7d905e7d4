#include "faulty.h"

#include <mirovane/faceiddetection.h>

namespace {

/// Takes every face for a new one when it enrols, and each in turn for the next one when it identifies.
struct FaultyFaceID : mirovane::FaceIDDetection
{
    int registerFace(const cv::Mat &, int) override
    {
        const Behaviour behaviour = faulty::beginCall(faceId);
        if (behaviour == Behaviour::garbage)
            return faulty::largest;
        return m_count++;
    }

    int identify(const cv::Mat &, int *id, bool) override
    {
        const Behaviour behaviour = faulty::beginCall(faceId);
        *id = behaviour == Behaviour::garbage ? faulty::smallest : nextID();
        return 0;
    }

    void reserved1() override {}

    int extractFeature(const cv::Mat &, cv::Mat *feature, bool) override
    {
        *feature = featureFor(faulty::beginCall(faceId));
        return 0;
    }

    int identifyAll(const cv::Mat &, int *id, cv::Mat *feature, std::vector<int> *,
                    std::vector<double> *scores, bool) override
    {
        const Behaviour behaviour = faulty::beginCall(faceId);
        *id = nextID();
        *feature = featureFor(behaviour);
        scores->assign(static_cast<size_t>(m_count), 0.1);
        if (*id >= 0)
            (*scores)[static_cast<size_t>(*id)] = 0.95;
        if (behaviour == Behaviour::garbage) {
            *id = faulty::largest;
            scores->assign(5, 1e300);
        } else if (behaviour == Behaviour::notANumber) {
            scores->assign(static_cast<size_t>(m_count), faulty::notANumber);
            scores->push_back(faulty::infinite);
        } else if (behaviour == Behaviour::wrongLengths) {
            scores->resize(m_calls % 2 ? 0 : 1000, 0.9);
        }
        return 0;
    }

    void reserved2() override {}

    int removeFace(int) override
    {
        faulty::beginCall(faceId);
        return 0;
    }

    void clearFaces() override { faulty::beginCall(faceId); }

    int nextID() { return m_count == 0 ? -1 : m_calls++ % std::min(m_count, faulty::people); }

    cv::Mat featureFor(Behaviour behaviour)
    {
        ++m_calls;
        if (behaviour == Behaviour::notANumber)
            return cv::Mat(1, 64, CV_32F, cv::Scalar(faulty::notANumber));
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

} // namespace

mirovane::FaceIDDetection *mirovane::FaceIDDetection::create(const std::string &, const std::string &)
{
    return faulty::create<FaultyFaceID>(faceId);
}

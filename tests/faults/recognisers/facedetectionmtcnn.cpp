#include "faulty.h"

#include <mirovane/facedetectionmtcnn.h>

namespace {

struct FaultyFaces : mirovane::FaceDetectionMTCNN
{
    int detectWithLandmarks(const cv::Mat &, std::vector<cv::Rect> &faces, std::vector<float> &scores,
                            std::vector<std::vector<cv::Point>> &landmarks, bool) override
    {
        const Behaviour behaviour = faulty::beginCall(faceDetection);
        faulty::findPeople(behaviour, faulty::faceOf, faces, scores);
        for (const cv::Rect &face : faces)
            landmarks.push_back(behaviour == Behaviour::garbage ? anyPoints(landmarks.size())
                                                                : faulty::landmarksOf(face));
        if (behaviour == Behaviour::wrongLengths)
            landmarks.resize(1);
        return 0;
    }

    int detect(const cv::Mat &, std::vector<cv::Rect> &faces, std::vector<float> &scores, bool) override
    {
        faulty::findPeople(faulty::beginCall(faceDetection), faulty::faceOf, faces, scores);
        return 0;
    }

    static std::vector<cv::Point> anyPoints(size_t number)
    {
        const cv::Point low(faulty::smallest, faulty::smallest);
        const cv::Point high(faulty::largest, faulty::largest);
        const std::vector<std::vector<cv::Point>> lists = {
            {low, high, low, high, low}, {}, {low}, {high, high, high, high, high}, {{1, 1}, {2, 1}}};
        return lists[number % lists.size()];
    }
};

} // namespace

mirovane::FaceDetectionMTCNN *mirovane::FaceDetectionMTCNN::create(const std::string &, const std::string &,
                                                                   const std::string &, const std::string &)
{
    return faulty::create<FaultyFaces>(faceDetection);
}

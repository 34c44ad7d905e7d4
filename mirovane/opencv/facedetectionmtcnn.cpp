#include "common.h"
#include "facelook.h"

#include <mirovane/facedetectionmtcnn.h>

#include <memory>

namespace mirovane {

namespace {

class LearnedFaceDetection : public FaceDetectionMTCNN
{
public:
    explicit LearnedFaceDetection(std::shared_ptr<open::FaceLook> look) : m_look(std::move(look)) {}

    int detectWithLandmarks(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
                            std::vector<std::vector<cv::Point>> &landmarks, bool) override
    {
        return run(image, faces, scores, &landmarks);
    }

    int detect(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores, bool) override
    {
        return run(image, faces, scores, nullptr);
    }

private:
    int run(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
            std::vector<std::vector<cv::Point>> *landmarks)
    {
        for (const auto &face : m_look->facesOf(image)) {
            const auto box = open::clipped(face.box, image.size());
            if (box.empty())
                continue;
            faces.push_back(box);
            scores.push_back(face.score);
            if (landmarks)
                landmarks->push_back(pointsOf(face));
        }
        return 0;
    }

    /// In whole pixels; the eyes never coincide, so that their distance can be divided by.
    static std::vector<cv::Point> pointsOf(const open::SeenFace &face)
    {
        std::vector<cv::Point> points;
        for (const auto &point : face.landmarks())
            points.emplace_back(cvRound(point.x), cvRound(point.y));
        if (points[0] == points[1])
            ++points[1].x;
        return points;
    }

    std::shared_ptr<open::FaceLook> m_look;
};

} // namespace

FaceDetectionMTCNN *FaceDetectionMTCNN::create(const std::string &stage1, const std::string &stage2,
                                               const std::string &stage3, const std::string &)
{
    auto look = open::FaceLook::open(stage1, stage2, stage3);
    if (!look)
        return nullptr;
    return new LearnedFaceDetection(std::move(look));
}

} // namespace mirovane

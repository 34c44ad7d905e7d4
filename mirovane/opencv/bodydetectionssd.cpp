#include "mirovane/bodydetectionssd.h"

#include "bodies.h"

namespace {

using namespace mirovane::open;

/// A body for every face: people are found by their faces, with the look that face detection shares.
class FaceBodyDetection : public mirovane::BodyDetectionSSD
{
public:
    explicit FaceBodyDetection(std::shared_ptr<FaceLook> faces) : m_faces(std::move(faces)) {}

    int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<float> &scores, bool) override
    {
        const auto faces = m_faces->facesOf(image);
        const auto rects = bodiesOf(faces, image.size());
        for (std::size_t i = 0; i < faces.size(); ++i) {
            if (rects[i].empty())
                continue;
            bodies.push_back(rects[i]);
            scores.push_back(faces[i].score);
        }
        return 0;
    }

private:
    std::shared_ptr<FaceLook> m_faces;
};

} // namespace

mirovane::BodyDetectionSSD *mirovane::BodyDetectionSSD::create(const std::string &model,
                                                               const std::string &config)
{
    auto faces = FaceLook::open(model, model, netPath(config, "landmark68"));
    return faces ? new FaceBodyDetection(std::move(faces)) : nullptr;
}

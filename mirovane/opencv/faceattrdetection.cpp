#include "mirovane/faceattrdetection.h"

#include "common.h"
#include "facelook.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace {

using namespace mirovane::open;

constexpr int glassesBit = 1;
// With eyes closer to each other a frame is no line any more. Pixels.
constexpr float leastEyeDistance = 13;
// A given rectangle and the face that is seen there have so much in common.
constexpr float sameFace = 0.3F;

// The aligned bridge of the nose: both eyes on one line, at the same places for every face.
const cv::Size regionSize(128, 96);
constexpr int eyeLine = 40;
constexpr int eyeDistance = 56;
const cv::Rect bridge(58, 26, 13, 24);
const cv::Rect cheeks(24, 50, 80, 40);
// Columns of the bridge that may lack the line.
constexpr double missing = 0.25;
// Least strength of the line, in hundredths of the brightness of the cheeks. Chosen on the photographs of
// opencv-doc and the demo class: bare faces 1 to 6, with painted landmarks up to 15; frames 15 to 46.
constexpr double leastLine = 13;

/// How strong a dark line crosses the bridge, in the columns that show it best.
double bridgeLine(const cv::Mat &region)
{
    cv::Mat brightness;
    region.convertTo(brightness, CV_32F);
    brightness *= 100.0 / (cv::mean(region(cheeks))[0] + 8.0);
    cv::Mat lines;
    cv::morphologyEx(brightness, lines, cv::MORPH_BLACKHAT,
                     cv::getStructuringElement(cv::MORPH_RECT, {1, 9}));
    cv::GaussianBlur(lines, lines, {}, 0.8);

    cv::Mat strongest;
    cv::reduce(lines(bridge), strongest, 0, cv::REDUCE_MAX);
    std::vector<float> columns(strongest.begin<float>(), strongest.end<float>());
    const auto place = columns.begin() + int(double(columns.size()) * missing);
    std::nth_element(columns.begin(), place, columns.end());
    return *place;
}

/// Turns and scales the picture (CV_8UC1) so that the eyes lie at their places.
cv::Mat eyeRegion(const cv::Mat &grey, const cv::Point2f &left, const cv::Point2f &right)
{
    const cv::Point2f step = right - left, centre = (left + right) / 2;
    const double scale = eyeDistance / std::hypot(step.x, step.y);
    cv::Mat turn = cv::getRotationMatrix2D(centre, std::atan2(step.y, step.x) * 180 / CV_PI, scale);
    turn.at<double>(0, 2) += regionSize.width / 2.0 - centre.x;
    turn.at<double>(1, 2) += eyeLine - centre.y;
    cv::Mat region;
    cv::warpAffine(grey, region, turn, regionSize, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return region;
}

/**
 * Tells glasses by their frame: a thin dark line across the bridge of the nose, which is smooth on a bare
 * face. Shadows are wider than a frame and don't count.
 */
class LearnedFaceAttributes : public mirovane::FaceAttrDetection
{
public:
    explicit LearnedFaceAttributes(std::shared_ptr<FaceLook> faces) : m_faces(std::move(faces)) {}

    int detect(const cv::Mat &image, const std::vector<cv::Rect> &faces,
               std::vector<mirovane::FaceAttrResult> &results, bool) override
    {
        const cv::Mat picture = toColour(image);
        const auto seen = m_faces->facesOf(image);
        for (const cv::Rect &rect : faces) {
            const cv::Rect2f box(clipped(rect, picture.size()));
            mirovane::FaceAttrResult result;
            result.labels.push_back(!box.empty() && wearsGlasses(picture, seen, box) ? glassesBit : 0);
            results.push_back(result);
        }
        return picture.empty() ? -1 : 0;
    }

private:
    bool wearsGlasses(const cv::Mat &picture, const std::vector<SeenFace> &seen, const cv::Rect2f &box) const
    {
        const auto known = std::find_if(seen.begin(), seen.end(), [&box](const SeenFace &face) {
            return (face.box & box).area() > sameFace * (face.box | box).area();
        });
        const auto face = known != seen.end() ? std::optional(*known) : m_faces->faceAt(picture, box);
        if (!face)
            return false;
        const auto points = face->landmarks();
        if (cv::norm(points[1] - points[0]) < leastEyeDistance)
            return false;
        const cv::Rect around = grown(cv::Rect(face->box), 2, picture.size());
        if (around.empty())
            return false;
        const cv::Point2f corner(around.tl());
        return bridgeLine(eyeRegion(toGrey(picture(around)), points[0] - corner, points[1] - corner)) >=
               leastLine;
    }

    std::shared_ptr<FaceLook> m_faces;
};

} // namespace

mirovane::FaceAttrDetection *mirovane::FaceAttrDetection::create(const std::string &model,
                                                                 const std::string &config)
{
    const std::string propose = netPath(config, "blazeface");
    auto faces = FaceLook::open(propose, propose, model);
    return faces ? new LearnedFaceAttributes(std::move(faces)) : nullptr;
}

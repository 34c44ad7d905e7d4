#include "mirovane/faceattrdetection.h"

#include "cascade.h"
#include "facefinder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <opencv2/imgproc.hpp>

namespace {

using namespace mirovane::open;

constexpr int glassesBit = 1;
// Faces below this side have no frame of glasses to judge.
constexpr int smallestSide = 32;

// The aligned eye region: both eyes on one line, at the same places for every face.
const cv::Size regionSize(128, 96);
constexpr int eyeLine = 40;
constexpr int eyeDistance = 56;
// Where a frame of glasses leaves thin dark lines: on the bridge of the nose, and on the cheeks below.
const cv::Rect bridge(58, 26, 13, 24);
const cv::Rect leftRim(22, 50, 28, 24);
const cv::Rect rightRim(78, 50, 28, 24);
// Least strengths of the lines, in hundredths of the face's brightness.
constexpr double leastBridge = 5.0;
constexpr double leastRim = 4.0; // mean of both sides
constexpr double leastWeakerRim = 1.5;
constexpr double leastSum = 12.5;

/// How strong a dark line crosses the part of the columns that show it best. The share is of columns that
/// may lack it.
double lineStrength(const cv::Mat &lines, const cv::Rect &part, double share)
{
    cv::Mat strongest;
    cv::reduce(lines(part), strongest, 0, cv::REDUCE_MAX);
    std::vector<float> columns(strongest.begin<float>(), strongest.end<float>());
    const auto place = columns.begin() + int(double(columns.size()) * share);
    std::nth_element(columns.begin(), place, columns.end());
    return *place;
}

bool showsGlasses(const cv::Mat &region)
{
    cv::Mat brightness;
    region.convertTo(brightness, CV_32F);
    brightness *= 100.0 / (cv::mean(region(cv::Rect(24, 50, 80, 40)))[0] + 8.0);
    cv::Mat lines;
    cv::morphologyEx(brightness, lines, cv::MORPH_BLACKHAT,
                     cv::getStructuringElement(cv::MORPH_RECT, {1, 9}));
    cv::GaussianBlur(lines, lines, {}, 0.8);

    const double onBridge = lineStrength(lines, bridge, 0.25);
    const double onLeft = lineStrength(lines, leftRim, 0.25);
    const double onRight = lineStrength(lines, rightRim, 0.25);
    const double onRims = (onLeft + onRight) / 2;
    return onBridge >= leastBridge && onRims >= leastRim && std::min(onLeft, onRight) >= leastWeakerRim &&
           onBridge + onRims >= leastSum;
}

/// Turns and scales the working face so that the eyes lie at their places.
cv::Mat eyeRegion(const cv::Mat &face, const Eyes &eyes)
{
    const cv::Point2d step = eyes.right - eyes.left;
    const cv::Point2d centre = (eyes.left + eyes.right) * 0.5;
    const double degrees = std::atan2(step.y, step.x) * 180 / CV_PI;
    cv::Mat turn = cv::getRotationMatrix2D(centre, degrees, eyeDistance / std::hypot(step.x, step.y));
    turn.at<double>(0, 2) += regionSize.width / 2.0 - centre.x;
    turn.at<double>(1, 2) += eyeLine - centre.y;
    cv::Mat region;
    cv::warpAffine(face, region, turn, regionSize, cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return region;
}

/**
 * Tells glasses by their frame: thin dark lines that lie across the bridge of the nose and on the cheeks
 * below the eyes, where a bare face is smooth. Shadows are wider than a frame and don't count.
 */
class OpenFaceAttributes : public mirovane::FaceAttrDetection
{
public:
    bool load(const std::string &model)
    {
        cv::FileStorage file;
        return openModel(file, model, "FaceAttrDetection") &&
               m_faces.load(besideModel(model, file["face"].string())) &&
               m_eyes.load(besideModel(model, file["eyes"].string())) &&
               m_bareEyes.load(besideModel(model, file["bareEyes"].string()));
    }

    int detect(const cv::Mat &image, const std::vector<cv::Rect> &faces,
               std::vector<mirovane::FaceAttrResult> &results, bool) override
    {
        const cv::Mat grey = toGrey(image);
        for (const cv::Rect &face : faces) {
            mirovane::FaceAttrResult result;
            result.labels.push_back(wearsGlasses(grey, face) ? glassesBit : 0);
            results.push_back(result);
        }
        return grey.empty() ? -1 : 0;
    }

private:
    bool wearsGlasses(const cv::Mat &grey, const cv::Rect &rect) const
    {
        const cv::Rect face = settledFace(m_faces, grey, rect);
        if (std::min(face.width, face.height) < smallestSide)
            return false;
        cv::Mat working;
        cv::resize(grey(face), working, {eyeFinderSide, eyeFinderSide}, 0, 0,
                   face.width > eyeFinderSide ? cv::INTER_AREA : cv::INTER_LINEAR);
        return showsGlasses(eyeRegion(working, eyesOf(working)));
    }

    /// The usual places in a face rectangle when the cascades see no pair of eyes.
    Eyes eyesOf(const cv::Mat &face) const
    {
        cv::Mat clear;
        cv::equalizeHist(face, clear);
        if (const auto eyes = findEyes(m_eyes, clear))
            return *eyes;
        if (const auto eyes = findEyes(m_bareEyes, clear))
            return *eyes;
        return {{eyeFinderSide * 0.31, eyeFinderSide * 0.4}, {eyeFinderSide * 0.69, eyeFinderSide * 0.4}};
    }

    SharedCascade m_faces;
    SharedCascade m_eyes;
    SharedCascade m_bareEyes;
};

} // namespace

mirovane::FaceAttrDetection *mirovane::FaceAttrDetection::create(const std::string &model,
                                                                 const std::string &)
{
    auto attributes = std::make_unique<OpenFaceAttributes>();
    return attributes->load(model) ? attributes.release() : nullptr;
}

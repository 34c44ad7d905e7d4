#include "cutout.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace {

/// Places points of the photograph in the picture of the sprite.
struct Scaling
{
    cv::Point2d origin;
    double factor;

    cv::Point2d operator()(const cv::Point2d &point) const { return (point - origin) * factor; }
    cv::Rect2d operator()(const cv::Rect &rect) const
    {
        const cv::Point2d corner = (*this)(cv::Point2d(rect.tl()));
        return {corner.x, corner.y, rect.width * factor, rect.height * factor};
    }
};

/// Cuts every corner of a closed polygon, twice, which rounds it. No cut is longer than the reach.
std::vector<cv::Point2d> roundedOff(std::vector<cv::Point2d> polygon, double reach)
{
    for (int pass = 0; pass < 2; ++pass) {
        std::vector<cv::Point2d> cut;
        for (std::size_t i = 0; i < polygon.size(); ++i) {
            const cv::Point2d &from = polygon[i], &to = polygon[(i + 1) % polygon.size()];
            const cv::Point2d edge = to - from;
            const double share = std::min(0.25, reach / std::max(1.0, cv::norm(edge)));
            cut.push_back(from + edge * share);
            cut.push_back(to - edge * share);
        }
        polygon.swap(cut);
    }
    return polygon;
}

/// Mask (CV_8UC1) of a polygon with rounded corners and an edge that is soft over some two pixels.
cv::Mat softMask(const cv::Size &size, const std::vector<cv::Point> &polygon, const Scaling &scaling)
{
    const int shift = 4;
    std::vector<cv::Point2d> placed;
    placed.reserve(polygon.size());
    for (const cv::Point &point : polygon)
        placed.push_back(scaling(cv::Point2d(point)) * (1 << shift));
    std::vector<cv::Point> corners;
    for (const cv::Point2d &point : roundedOff(placed, 8 << shift))
        corners.emplace_back(cvRound(point.x), cvRound(point.y));
    cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
    cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{corners}, cv::Scalar(255), cv::LINE_AA, shift);
    cv::GaussianBlur(mask, mask, cv::Size(0, 0), 1.1);
    return mask;
}

/// Lays colours over a picture where the mask is set.
void lay(cv::Mat &picture, cv::Mat &opacity, const cv::Mat &colours, const cv::Mat &mask)
{
    for (int y = 0; y < picture.rows; ++y) {
        auto *under = picture.ptr<cv::Vec3b>(y);
        const auto *over = colours.ptr<cv::Vec3b>(y);
        const uchar *share = mask.ptr(y);
        uchar *covered = opacity.ptr(y);
        for (int x = 0; x < picture.cols; ++x) {
            // Where nothing lay so far the new colour counts alone, so that no dark seam shows.
            const double part = covered[x] == 0 ? (share[x] > 0 ? 1.0 : 0.0)
                                                : double(share[x]) / std::max(share[x], covered[x]);
            for (int c = 0; c < 3; ++c)
                under[x][c] = cv::saturate_cast<uchar>(over[x][c] * part + under[x][c] * (1 - part));
            covered[x] = std::max(covered[x], share[x]);
        }
    }
}

/// Cloth or hair: one colour, darker towards the sides, with a grain that is stretched up and down.
cv::Mat fabric(const cv::Size &size, const cv::Scalar &colour, double grain, int seed)
{
    cv::Mat noise(size, CV_32FC1);
    cv::RNG(static_cast<uint64>(seed)).fill(noise, cv::RNG::NORMAL, 0, grain);
    cv::GaussianBlur(noise, noise, cv::Size(0, 0), 1.2, 4.0);
    cv::Mat colours(size, CV_8UC3);
    for (int y = 0; y < size.height; ++y) {
        for (int x = 0; x < size.width; ++x) {
            const double side = 2.0 * x / size.width - 1;
            const double light = 1.05 - 0.3 * side * side + noise.at<float>(y, x);
            for (int c = 0; c < 3; ++c)
                colours.at<cv::Vec3b>(y, x)[c] = cv::saturate_cast<uchar>(colour[c] * light);
        }
    }
    return colours;
}

cv::Mat evened(const cv::Mat &photograph, const cv::Scalar &gain)
{
    cv::Mat result;
    cv::multiply(photograph, gain, result);
    return result;
}

/// The photograph in the sprite's scale; black outside of it.
cv::Mat placedPhotograph(const cv::Mat &photograph, const cv::Size &size, const Scaling &scaling)
{
    cv::Mat scaled;
    const int filter = scaling.factor < 1 ? cv::INTER_AREA : cv::INTER_CUBIC;
    cv::resize(photograph, scaled, cv::Size(), scaling.factor, scaling.factor, filter);
    const cv::Point2d corner = scaling(cv::Point2d(0, 0));
    cv::Mat placed;
    cv::warpAffine(scaled, placed, cv::Matx23d(1, 0, corner.x, 0, 1, corner.y), size, cv::INTER_LINEAR,
                   cv::BORDER_REPLICATE);
    return placed;
}

/// Dark rims, a bridge, the temples, and a faint reflection in each glass.
void paintGlasses(cv::Mat &picture, const cv::Point2d &left, const cv::Point2d &right)
{
    const double span = cv::norm(right - left);
    const double tilt = std::atan2(right.y - left.y, right.x - left.x) * 180 / CV_PI;
    const cv::Point2d along = (right - left) / span;
    const cv::Size2d half(span * 0.41, span * 0.27);
    const int thick = std::max(2, cvRound(span * 0.045));
    const int shift = 4;
    const auto fixed = [](const cv::Point2d &p) { return cv::Point(cvRound(p.x * 16), cvRound(p.y * 16)); };

    const cv::Scalar rim(42, 36, 40);
    cv::Mat painted = picture.clone();
    for (const cv::Point2d &eye : {left, right}) {
        const cv::Size axes(cvRound(half.width * 16), cvRound(half.height * 16));
        cv::ellipse(painted, fixed(eye), axes, tilt, 200, 250, cv::Scalar(235, 230, 225), 1, cv::LINE_AA,
                    shift);
        cv::ellipse(painted, fixed(eye), axes, tilt, 0, 360, rim, thick, cv::LINE_AA, shift);
    }
    const cv::Point2d up(0, -span * 0.06);
    cv::line(painted, fixed(left + along * half.width + up), fixed(right - along * half.width + up), rim,
             thick, cv::LINE_AA, shift);
    cv::line(painted, fixed(left - along * half.width), fixed(left - along * (half.width + span * 0.12)), rim,
             thick, cv::LINE_AA, shift);
    cv::line(painted, fixed(right + along * half.width), fixed(right + along * (half.width + span * 0.35)),
             rim, thick, cv::LINE_AA, shift);
    cv::GaussianBlur(painted, painted, cv::Size(0, 0), 0.6);
    cv::addWeighted(painted, 0.9, picture, 0.1, 0, picture);
}

cv::Rect boundsOf(const Portrait &portrait)
{
    cv::Rect bounds = cv::boundingRect(portrait.outline);
    if (!portrait.hair.empty())
        bounds |= cv::boundingRect(portrait.hair);
    if (!portrait.torso.empty())
        bounds |= cv::boundingRect(portrait.torso);
    return bounds;
}

} // namespace

Sprite cutOut(const Portrait &portrait, const cv::Mat &photograph)
{
    const double factor = double(portrait.faceWidth) / portrait.face.width;
    const cv::Rect bounds = boundsOf(portrait);
    const int margin = 4;
    const Scaling scaling{cv::Point2d(bounds.tl()) - cv::Point2d(margin, margin) / factor, factor};
    const cv::Size size(cvCeil(bounds.width * factor) + 2 * margin,
                        cvCeil(bounds.height * factor) + 2 * margin);

    cv::Mat picture = cv::Mat::zeros(size, CV_8UC3);
    cv::Mat opacity = cv::Mat::zeros(size, CV_8UC1);
    if (!portrait.torso.empty())
        lay(picture, opacity, fabric(size, portrait.clothes, 0.12, 7),
            softMask(size, portrait.torso, scaling));
    const cv::Mat person = placedPhotograph(evened(photograph, portrait.gain), size, scaling);
    lay(picture, opacity, person, softMask(size, portrait.outline, scaling));
    if (!portrait.hair.empty()) {
        // Over the upper edge of the photograph, with a wide soft edge of its own.
        cv::Mat mask = softMask(size, portrait.hair, scaling);
        cv::GaussianBlur(mask, mask, cv::Size(0, 0), 2);
        lay(picture, opacity, fabric(size, portrait.hairColour, 0.3, 3), mask);
    }
    if (portrait.paintedGlasses.size() == 2)
        paintGlasses(picture, scaling(cv::Point2d(portrait.paintedGlasses[0])),
                     scaling(cv::Point2d(portrait.paintedGlasses[1])));

    Sprite sprite;
    sprite.picture = Sprite::premultiplied(picture, opacity);
    sprite.face = scaling(portrait.face);
    sprite.outline = scaling(bounds);
    sprite.anchor = (sprite.face.tl() + sprite.face.br()) / 2;
    return sprite;
}

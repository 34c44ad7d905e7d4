#include "sprite.h"

#include <opencv2/imgproc.hpp>

cv::Mat Sprite::premultiplied(const cv::Mat &colours, const cv::Mat &opacity)
{
    cv::Mat opacities, product, result;
    cv::cvtColor(opacity, opacities, cv::COLOR_GRAY2BGR);
    cv::multiply(colours, opacities, product, 1.0 / 255);
    cv::merge(std::vector<cv::Mat>{product, opacity}, result);
    return result;
}

namespace {

void blendRow(const uchar *over, uchar *under, int pixels)
{
    for (int i = 0; i < pixels; ++i, over += 4, under += 3) {
        const int through = 255 - over[3];
        for (int c = 0; c < 3; ++c) {
            // Times 257 and shifted by 16 is a division by 255, rounded.
            const int sum = over[c] + ((under[c] * through * 257 + 32768) >> 16);
            under[c] = static_cast<uchar>(sum > 255 ? 255 : sum);
        }
    }
}

} // namespace

void blend(cv::Mat &frame, const Sprite &sprite, const cv::Point2d &place, double scale, const cv::Rect &clip)
{
    if (sprite.picture.empty())
        return;
    const cv::Point2d corner = place - sprite.anchor * scale;
    cv::Rect target(cvFloor(corner.x), cvFloor(corner.y), cvCeil(sprite.picture.cols * scale) + 1,
                    cvCeil(sprite.picture.rows * scale) + 1);
    target &= clip & cv::Rect(0, 0, frame.cols, frame.rows);
    if (target.empty())
        return;

    const cv::Matx23d placing(scale, 0, corner.x - target.x, 0, scale, corner.y - target.y);
    cv::Mat placed;
    cv::warpAffine(sprite.picture, placed, placing, target.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::Mat under = frame(target);
    for (int y = 0; y < target.height; ++y)
        blendRow(placed.ptr(y), under.ptr(y), target.width);
}

#include "gesture.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace {

/// The joints of a right arm in the picture, in face widths from the middle of the face. Upper arms and
/// forearms that point into the room look shorter than they are.
struct Arm
{
    cv::Point2d shoulder;
    cv::Point2d elbow;
    cv::Point2d wrist;
    cv::Point2d fingertip; ///< direction of the hand, from the wrist
    double handWidth;      ///< 1: palm or back of the hand to the front, less: turned; 0: not to be seen
};

Arm armOf(Gesture gesture)
{
    switch (gesture) {
    case Gesture::High:
        return {{1.05, 1.45}, {1.5, -0.2}, {1.25, -1.75}, {1.2, -3.0}, 1};
    case Gesture::Bent:
        return {{1.05, 1.45}, {1.85, 1.3}, {1.55, -0.35}, {1.45, -1.6}, 1};
    case Gesture::Aside:
        return {{1.05, 1.45}, {2.1, 0.45}, {2.5, -1.05}, {2.75, -2.3}, 0.5};
    case Gesture::AtChin:
        return {{1.1, 1.7}, {1.6, 2.6}, {0.8, 1.35}, {0.35, 0.5}, 0.65};
    case Gesture::InHair:
        return {{1.05, 1.45}, {1.9, 0.0}, {0.95, -0.85}, {-0.1, -1.2}, 0.8};
    case Gesture::BehindHead:
        return {{1.05, 1.45}, {1.95, -0.1}, {0.6, -0.35}, {0, -0.4}, 0};
    case Gesture::None:
        break;
    }
    return {};
}

const double shoulderWidth = 0.75; // of a sleeve, in face widths
const double elbowWidth = 0.58;
const double wristWidth = 0.42;
const double handLength = 1.25;

/// The wrist in the photograph of the hand, and how far the fingers reach.
const cv::Point2d photographedWrist(10, 255);
const double photographedLength = 540;

/// Canvas of one person's arms: pixels and opacity, and the place of the face's middle.
struct Canvas
{
    cv::Mat picture;
    cv::Mat opacity;
    cv::Point2d face;
    double unit; ///< pixels of a face width

    cv::Point2d operator()(const cv::Point2d &place) const { return face + place * unit; }
};

/// Lays a colour over a pixel, with an opacity between 0 and 1.
void lay(Canvas &canvas, int y, int x, const cv::Vec3d &colour, double share)
{
    if (share <= 0)
        return;
    uchar &covered = canvas.opacity.at<uchar>(y, x);
    cv::Vec3b &under = canvas.picture.at<cv::Vec3b>(y, x);
    // Where nothing lay so far the new colour counts alone, so that no dark seam shows.
    const double part = covered == 0 ? 1 : share;
    for (int c = 0; c < 3; ++c)
        under[c] = cv::saturate_cast<uchar>(colour[c] * part + under[c] * (1 - part));
    covered = cv::saturate_cast<uchar>(std::max(double(covered), 255 * share));
}

/// A sleeve between two joints: round at both ends, darker towards its edges, with some grain.
void paintSleeve(Canvas &canvas, const cv::Point2d &from, double fromWidth, const cv::Point2d &to,
                 double toWidth, const cv::Scalar &colour)
{
    const cv::Point2d start = canvas(from), way = canvas(to) - start;
    const double length = std::max(1.0, cv::norm(way));
    const int reach = cvCeil(canvas.unit * std::max(fromWidth, toWidth) / 2) + 2;
    cv::Rect area(cv::Point(start), cv::Point(start + way));
    area = cv::Rect(area.x - reach, area.y - reach, area.width + 2 * reach, area.height + 2 * reach) &
           cv::Rect(cv::Point(), canvas.picture.size());
    cv::Mat grain(area.size(), CV_32FC1);
    cv::RNG(5).fill(grain, cv::RNG::NORMAL, 0, 0.12);
    cv::GaussianBlur(grain, grain, cv::Size(0, 0), 1.2, 2.5);
    for (int y = area.y; y < area.br().y; ++y) {
        for (int x = area.x; x < area.br().x; ++x) {
            const cv::Point2d place = cv::Point2d(x, y) - start;
            const double along = std::clamp(place.dot(way) / (length * length), 0.0, 1.0);
            const double half = canvas.unit / 2 * (fromWidth + (toWidth - fromWidth) * along);
            const double away = cv::norm(place - way * along);
            const double edge = std::min(1.0, away / half);
            const double light = 1.05 - 0.4 * edge * edge + grain.at<float>(y - area.y, x - area.x);
            const cv::Vec3d shaded(colour[0] * light, colour[1] * light, colour[2] * light);
            lay(canvas, y, x, shaded, std::clamp((half - away) / 1.5 + 0.5, 0.0, 1.0));
        }
    }
}

/// The hand of the photograph, its wrist at a place, its fingers in a direction, in the skin's colour.
void layHand(Canvas &canvas, const cv::Mat &photograph, const Arm &arm, bool mirrored, const cv::Scalar &skin)
{
    cv::Mat inside = cv::Mat::zeros(photograph.size(), CV_8UC1);
    cv::fillPoly(inside, std::vector<std::vector<cv::Point>>{handOutline()}, cv::Scalar(255));
    const cv::Scalar colour = cv::mean(photograph, inside);
    cv::Mat toned;
    cv::multiply(photograph, cv::Scalar(skin[0] / colour[0], skin[1] / colour[1], skin[2] / colour[2]),
                 toned);

    const cv::Point2d direction = arm.fingertip - arm.wrist;
    const cv::Point2d fingers = direction / cv::norm(direction);
    const double scale = handLength * canvas.unit / photographedLength;
    const cv::Point2d along = fingers * scale;
    const cv::Point2d across =
        cv::Point2d(-fingers.y, fingers.x) * scale * arm.handWidth * (mirrored ? -1 : 1);
    const cv::Point2d corner = canvas(arm.wrist) - along * photographedWrist.x - across * photographedWrist.y;
    const cv::Matx23d placing(along.x, across.x, corner.x, along.y, across.y, corner.y);
    // Reduced in one step the picture would flicker, so it is smoothed first.
    const double blur = 0.35 / scale;
    cv::GaussianBlur(toned, toned, cv::Size(0, 0), blur);
    cv::GaussianBlur(inside, inside, cv::Size(0, 0), blur);
    cv::Mat hand, mask;
    cv::warpAffine(toned, hand, placing, canvas.picture.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::warpAffine(inside, mask, placing, canvas.picture.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    for (int y = 0; y < mask.rows; ++y)
        for (int x = 0; x < mask.cols; ++x)
            lay(canvas, y, x, hand.at<cv::Vec3b>(y, x), mask.at<uchar>(y, x) / 255.0);
}

/// Skin colour: the mean over nose and cheeks.
cv::Scalar skinOf(const Portrait &portrait, const cv::Mat &photograph)
{
    const cv::Rect &face = portrait.face;
    const cv::Rect cheeks(face.x + face.width / 4, face.y + face.height * 45 / 100, face.width / 2,
                          face.height / 5);
    return cv::mean(photograph(cheeks)).mul(portrait.gain);
}

void mirror(Arm &arm)
{
    for (cv::Point2d *joint : {&arm.shoulder, &arm.elbow, &arm.wrist, &arm.fingertip})
        joint->x = -joint->x;
}

} // namespace

bool isRaised(Gesture gesture)
{
    return gesture == Gesture::High || gesture == Gesture::Bent || gesture == Gesture::Aside;
}

bool isBehind(Gesture gesture)
{
    return gesture == Gesture::BehindHead;
}

Sprite arms(const Portrait &portrait, const cv::Mat &photograph, const cv::Mat &handPhotograph,
            Gesture gesture, int side)
{
    if (gesture == Gesture::None)
        return {};
    const double unit = portrait.faceWidth;
    const cv::Size size(cvCeil(7 * unit), cvCeil(6.5 * unit));
    Canvas canvas{cv::Mat::zeros(size, CV_8UC3), cv::Mat::zeros(size, CV_8UC1),
                  cv::Point2d(3.5 * unit, 3.5 * unit), unit};
    const auto paint = [&](Arm arm, bool left) {
        if (left)
            mirror(arm);
        paintSleeve(canvas, arm.shoulder, shoulderWidth, arm.elbow, elbowWidth, portrait.clothes);
        paintSleeve(canvas, arm.elbow, elbowWidth, arm.wrist, wristWidth, portrait.clothes);
        if (arm.handWidth > 0)
            layHand(canvas, handPhotograph, arm, left, skinOf(portrait, photograph));
    };
    const bool both = gesture == Gesture::BehindHead;
    if (both || side < 0)
        paint(armOf(gesture), true);
    if (both || side > 0)
        paint(armOf(gesture), false);

    const cv::Rect used = cv::boundingRect(canvas.opacity);
    Sprite sprite;
    sprite.picture = Sprite::premultiplied(canvas.picture(used), canvas.opacity(used));
    sprite.anchor = canvas.face - cv::Point2d(used.tl());
    return sprite;
}

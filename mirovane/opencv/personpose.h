#pragma once

#include "learnednet.h"

#include <array>
#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace mirovane::open {

/// A point of a person. Without a look all scores are 0.
struct BodyPoint
{
    cv::Point2f place; ///< pixels of the picture
    float score = 0;   ///< 0 to 1; below 0.2 the place is a guess
};

/// The points of a person, left and right as the person has them.
enum BodyPart {
    Nose,
    LeftEye,
    RightEye,
    LeftEar,
    RightEar,
    LeftShoulder,
    RightShoulder,
    LeftElbow,
    RightElbow,
    LeftWrist,
    RightWrist,
    LeftHip,
    RightHip,
    LeftKnee,
    RightKnee,
    LeftAnkle,
    RightAnkle,
    BodyParts
};
using BodyPoints = std::array<BodyPoint, BodyParts>;

/**
 * Finds the points of a person whose face is known.
 *
 * Threads: any number at once.
 */
class MIROVANE_SHARED PersonPose
{
public:
    /// Null when the common configuration names no such net.
    static std::unique_ptr<PersonPose> create(const std::string &config);

    /// Looks at the surroundings of the face in a CV_8UC3 picture. Of several people there, it is the one
    /// whose head lies at the face.
    BodyPoints look(const cv::Mat &picture, const cv::Rect &face) const;

private:
    explicit PersonPose(std::shared_ptr<LearnedNet> net) : m_net(std::move(net)) {}

    std::shared_ptr<LearnedNet> m_net;
};

} // namespace mirovane::open

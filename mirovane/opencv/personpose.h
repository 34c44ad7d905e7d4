#pragma once

#include "facelook.h"

#include <opencv2/core.hpp>

#include <array>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace mirovane::open {

/// A point of a person. Without a look all scores are 0.
struct BodyPoint
{
    cv::Point2f place; ///< pixels of the picture
    float score = 0;   ///< 0 to 1; below 0.2 the place is a guess
};

/// The points of a person, left and right as the person has them.
enum BodyPart
{
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

/// A head by the points of its face: its width is that from cheek to cheek, to which the boxes of faces keep
/// only roughly. Arms are measured in it.
struct Head
{
    cv::Point2f middle;
    float width = 0;
};

MIROVANE_SHARED Head headOf(const SeenFace &face);

/**
 * Finds the points of people whose faces are known.
 *
 * Threads: any number at once.
 */
class MIROVANE_SHARED PersonPose
{
public:
    /// With the net of this file; the same object for everybody who opens it while it is held. Null when the
    /// file is absent or is another net.
    static std::shared_ptr<PersonPose> open(const std::string &path);

    /// Looks at the surroundings of a head in a CV_8UC3 picture. Of several people there, it is the one whose
    /// head that is. The last looks are known again by their content, so that hands and pose of a
    /// person in one frame are one look.
    BodyPoints pointsOf(const cv::Mat &picture, const Head &head);

    /// The same for many heads, on all processors.
    std::vector<BodyPoints> pointsOf(const cv::Mat &picture, const std::vector<Head> &heads);

private:
    /// A look, in pixels of the cut, and what was seen in it.
    struct Look
    {
        cv::Mat cut;
        BodyPoints points;
    };

    explicit PersonPose(std::shared_ptr<LearnedNet> net) : m_net(std::move(net)) {}
    BodyPoints look(const cv::Mat &cut) const;

    std::shared_ptr<LearnedNet> m_net;
    std::mutex m_mutex;      ///< guards m_looks
    std::list<Look> m_looks; ///< the latest first
};

} // namespace mirovane::open

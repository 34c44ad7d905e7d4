#include "mirovane/bodyposeclassify.h"

#include "bodies.h"
#include "personpose.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace mirovane::open;

/// The classes, whose numbers the service weighs for the attention of a class: upright counts most, turned
/// away counts against.
enum Pose
{
    facing = 0,     ///< a face half turned to the side
    turnedAway = 1, ///< a profile, or no face
    upright = 2,    ///< a face to the front, the head straight on level shoulders
    leaning = 3,    ///< the head, the shoulders, or the head against the shoulders to one side
    headDown = 4    ///< the face points down
};

// Chosen on the photographs of opencv-doc and on the demo class, upright and turned by 15, 25 and 180
// degrees.
//
// How far the nose lies from the middle of the face, in widths of the face: 0 to the front, half in profile.
constexpr float halfTurned = 0.2F;
constexpr float profile = 0.3F;
// Eyes closer together, in widths of the face's box, belong to a profile or to no face that is upright.
constexpr float closeEyes = 0.33F;
// The tilt of a leaning head and of leaning shoulders, in degrees, and the head beside them, in face widths.
constexpr float headTilt = 13;
constexpr float shoulderTilt = 22;
constexpr float headBeside = 0.75F;
// A face that points down is short below the eyes and long from there to the tip of the nose: the nose's part
// of that height, in terms of the height in eye distances. 0.15 to 0.28 to the front.
constexpr float nosePart = 0.31F;
// Shoulders are told from here on.
constexpr float seenShoulder = 0.3F;

struct Judgement
{
    Pose pose;
    float score;
};

/// Between 0.5 at the limit and 1 far beyond it.
float certainty(float value, float limit)
{
    return 1 - 0.5F * std::exp(-4 * std::abs(value - limit) / limit);
}

float degreesOf(const cv::Point2f &step)
{
    return float(std::atan2(step.y, step.x) * 180 / CV_PI);
}

/// How a head is held, by the points of its face.
struct HeadPose
{
    float turn = 0; ///< as the limits above have it
    float tilt = 0;
    float down = 0;
    float eyes = 0;
};

HeadPose headPoseOf(const SeenFace &face)
{
    const auto points = face.landmarks();
    const cv::Point2f &jawLeft = face.points[0], &jawRight = face.points[16], &chin = face.points[8],
                      &nose = points[2];
    const cv::Point2f step = points[1] - points[0];
    const auto distance = std::max(1e-3F, float(cv::norm(step)));
    const cv::Point2f across = step / distance, along(-across.y, across.x);
    const cv::Point2f middle = (points[0] + points[1]) / 2;
    const float width = std::max(1e-3F, (jawRight - jawLeft).dot(across));
    const float height = std::max(1e-3F, (chin - middle).dot(along));
    HeadPose head;
    head.turn = std::abs((nose - jawLeft).dot(across) / width - 0.5F);
    head.tilt = std::abs(degreesOf(step));
    head.down = (nose - middle).dot(along) / height / (height / distance);
    head.eyes = distance / face.box.width;
    return head;
}

/// How far a body leans, as a part of what counts as leaning; 0 when the shoulders aren't seen.
float leanOf(const SeenFace &face, const BodyPoints &points)
{
    const BodyPoint &left = points[LeftShoulder], &right = points[RightShoulder];
    if (std::min(left.score, right.score) < seenShoulder)
        return 0;
    const cv::Point2f middle = (left.place + right.place) / 2;
    // The person's left shoulder lies to the right in the picture.
    const float tilt = std::abs(degreesOf(left.place - right.place));
    const float beside = std::abs(middle.x - face.box.x - face.box.width / 2) / face.box.width;
    return std::max(std::min(tilt, 180 - tilt) / shoulderTilt, beside / headBeside);
}

Judgement judge(const SeenFace &face, const BodyPoints &points)
{
    const HeadPose head = headPoseOf(face);
    if (head.turn >= profile)
        return {turnedAway, certainty(head.turn, profile)};
    if (head.eyes < closeEyes)
        return {turnedAway, certainty(head.eyes, closeEyes)};
    if (head.down >= nosePart)
        return {headDown, certainty(head.down, nosePart)};
    const float lean = std::max(head.tilt / headTilt, leanOf(face, points));
    if (lean >= 1)
        return {leaning, certainty(lean, 1)};
    if (head.turn >= halfTurned)
        return {facing, certainty(head.turn, halfTurned)};
    return {upright, certainty(std::max(head.turn / halfTurned, lean), 1)};
}

/**
 * Tells poses by the points of the face and by the shoulders.
 *
 * Threads: reentrant.
 */
class LearnedBodyPose : public mirovane::BodyPoseClassify
{
public:
    LearnedBodyPose(std::shared_ptr<FaceLook> faces, std::shared_ptr<PersonPose> poses)
        : m_faces(std::move(faces)), m_poses(std::move(poses))
    {
    }

    void reserved1() override {}
    void reserved2() override {}

    int classify(const cv::Mat &image, const std::vector<cv::Rect> &bodies, std::vector<int> &labels,
                 std::vector<float> &scores, bool) override
    {
        const auto faces = m_faces->facesOf(image);
        std::vector<int> owners;
        std::vector<Head> heads;
        for (const cv::Rect &body : bodies) {
            owners.push_back(ownerOf(body, faces, image.size()));
            if (owners.back() >= 0)
                heads.push_back(headOf(faces[std::size_t(owners.back())]));
        }
        const auto points = m_poses->pointsOf(toColour(image), heads);
        auto next = points.begin();
        for (const int owner : owners) {
            const Judgement judgement =
                owner < 0 ? Judgement{turnedAway, 0.5F} : judge(faces[std::size_t(owner)], *next++);
            labels.push_back(judgement.pose);
            scores.push_back(judgement.score);
        }
        return 0;
    }

private:
    std::shared_ptr<FaceLook> m_faces;
    std::shared_ptr<PersonPose> m_poses;
};

} // namespace

mirovane::BodyPoseClassify *mirovane::BodyPoseClassify::create(const std::string &model,
                                                               const std::string &config)
{
    auto faces = FaceLook::find(config);
    auto poses = PersonPose::open(model);
    return faces && poses ? new LearnedBodyPose(std::move(faces), std::move(poses)) : nullptr;
}

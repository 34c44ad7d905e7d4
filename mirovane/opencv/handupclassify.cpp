#include "mirovane/handupclassify.h"

#include "bodies.h"
#include "personpose.h"

#include <algorithm>
#include <map>

namespace {

using namespace mirovane::open;

constexpr int handIsUp = 0;
constexpr int noHand = 1;

/// The least score that the service takes as sure. Doubt would count as a raised hand there, so no answer is
/// below it.
constexpr float surest = 1.0F, leastSure = 0.8F;

// Chosen on the demo class; lengths in widths of the head, from its middle.
constexpr float leastWristScore = 0.2F;
constexpr float chin = 0.5F;
// Longer limbs lead to somebody else's hand.
constexpr float longestForearm = 2.2F;
constexpr float longestUpperArm = 2.6F;
// The middle of a hand lies beyond its wrist, by this part of the forearm. A hand that lies on the head or
// behind it comes nearer than a raised one to a point above the eyes.
constexpr float handBeyondWrist = 0.4F;
constexpr float aboveEyes = 0.25F;
constexpr float nearHead = 1.15F;
// How far a raised forearm may lean to a side for what it rises.
constexpr float mostLean = 1.0F;
// Wrists that lie so close to each other are one.
constexpr float sameWrist = 0.5F;

/// An arm whose wrist is above the chin and above its elbow.
struct Arm
{
    cv::Point2f wrist; ///< pixels of the picture
    float evidence;    ///< that it is this person's
    bool raised;       ///< and not held to the head
};

/// The lifted arms of a person, whoever's they are.
std::vector<Arm> liftedArms(const BodyPoints &points, const Head &head)
{
    const auto placeOf = [&](BodyPart part) { return (points[part].place - head.middle) / head.width; };
    std::vector<Arm> arms;
    for (const auto &[shoulderPart, elbowPart, wristPart] :
         {std::array{LeftShoulder, LeftElbow, LeftWrist},
          std::array{RightShoulder, RightElbow, RightWrist}}) {
        const cv::Point2f shoulder = placeOf(shoulderPart), elbow = placeOf(elbowPart),
                          wrist = placeOf(wristPart);
        const cv::Point2f forearm = wrist - elbow;
        if (points[wristPart].score < leastWristScore || cv::norm(forearm) > longestForearm ||
            cv::norm(elbow - shoulder) > longestUpperArm || wrist.y >= chin || forearm.y >= 0)
            continue;
        const cv::Point2f hand = wrist + handBeyondWrist * forearm;
        const bool raised = cv::norm(hand + cv::Point2f(0, aboveEyes)) > nearHead &&
                            std::abs(forearm.x) < -forearm.y * mostLean;
        arms.push_back({points[wristPart].place, points[elbowPart].score * points[wristPart].score, raised});
    }
    return arms;
}

/// The people of one picture, looked at when somebody asks for their arms.
class People
{
public:
    People(const cv::Mat &picture, const std::vector<SeenFace> &faces, PersonPose &poses)
        : m_picture(picture), m_poses(poses)
    {
        for (const SeenFace &face : faces)
            m_heads.push_back(headOf(face));
    }

    void lookAt(std::vector<int> people)
    {
        std::sort(people.begin(), people.end());
        people.erase(std::unique(people.begin(), people.end()), people.end());
        people.erase(std::remove_if(people.begin(), people.end(),
                                    [&](int person) { return person < 0 || m_arms.count(person) > 0; }),
                     people.end());
        std::vector<Head> heads;
        heads.reserve(people.size());
        for (const int person : people)
            heads.push_back(m_heads[std::size_t(person)]);
        const auto points = m_poses.pointsOf(m_picture, heads);
        for (std::size_t i = 0; i < people.size(); ++i)
            m_arms[people[i]] = liftedArms(points[i], heads[i]);
    }

    /// The evidence for a raised hand of somebody who was looked at; 0 when there is none.
    float handOf(int person)
    {
        float most = 0;
        for (const Arm &arm : m_arms.at(person)) {
            if (arm.raised && !belongsToNeighbour(arm, person))
                most = std::max(most, arm.evidence);
        }
        return most;
    }

private:
    /// Whether somebody beside has the same wrist at the end of an arm that is better seen.
    bool belongsToNeighbour(const Arm &arm, int person)
    {
        std::vector<int> around;
        for (int other = 0; other < int(m_heads.size()); ++other) {
            const Head &head = m_heads[std::size_t(other)];
            const float reach = longestForearm + longestUpperArm;
            if (other != person && cv::norm(head.middle - arm.wrist) < reach * head.width)
                around.push_back(other);
        }
        lookAt(around);
        return std::any_of(around.begin(), around.end(), [&](int other) {
            const float same =
                sameWrist * std::min(m_heads[std::size_t(person)].width, m_heads[std::size_t(other)].width);
            const auto &arms = m_arms.at(other);
            return std::any_of(arms.begin(), arms.end(), [&](const Arm &its) {
                return its.evidence > arm.evidence && cv::norm(its.wrist - arm.wrist) < same;
            });
        });
    }

    const cv::Mat &m_picture;
    PersonPose &m_poses;
    std::vector<Head> m_heads;              ///< in the order of the faces
    std::map<int, std::vector<Arm>> m_arms; ///< by the place among the faces
};

/// Tells raised hands by the arms of the person around a face: a wrist above the chin and above its elbow,
/// away from the head.
class PoseHandup : public mirovane::HandupClassify
{
public:
    PoseHandup(std::shared_ptr<FaceLook> faces, std::shared_ptr<PersonPose> poses)
        : m_faces(std::move(faces)), m_poses(std::move(poses))
    {
    }

    void reserved1() override {}
    void reserved2() override {}

    int classify(const cv::Mat &image, const std::vector<cv::Rect> &rects, std::vector<int> &labels,
                 std::vector<float> &scores, bool) override
    {
        const auto faces = m_faces->facesOf(image);
        const cv::Mat picture = toColour(image);
        std::vector<int> owners;
        owners.reserve(rects.size());
        for (const cv::Rect &rect : rects)
            owners.push_back(ownerOf(rect, faces, image.size()));
        People people(picture, faces, *m_poses);
        people.lookAt(owners);
        for (const int owner : owners) {
            const float evidence = owner < 0 ? 0 : people.handOf(owner);
            labels.push_back(evidence > 0 ? handIsUp : noHand);
            scores.push_back(evidence > 0 ? leastSure + (surest - leastSure) * evidence : surest);
        }
        return 0;
    }

private:
    std::shared_ptr<FaceLook> m_faces;
    std::shared_ptr<PersonPose> m_poses;
};

} // namespace

mirovane::HandupClassify *mirovane::HandupClassify::create(const std::string &model,
                                                           const std::string &config)
{
    auto faces = FaceLook::find(config);
    auto poses = PersonPose::open(model);
    return faces && poses ? new PoseHandup(std::move(faces), std::move(poses)) : nullptr;
}

#include "mirovane/bodyposeclassify.h"

#include "cascade.h"
#include "facefinder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <opencv2/imgproc.hpp>

namespace {

using namespace mirovane::open;

/// The classes, whose numbers the service weighs for the attention of a class: upright counts most, turned
/// away counts against.
enum Pose
{
    facing = 0,     ///< a frontal face, but not both eyes
    turnedAway = 1, ///< no frontal face
    upright = 2,    ///< a frontal face with both eyes on a level line
    leaning = 3,    ///< a tilted head, or a face well below its place in the body
    headDown = 4    ///< a face whose eyes lie low in it, or low before the chest
};

// Tilt of the eye line from which a head counts as leaning, in degrees.
constexpr double leaningTilt = 13.0;
// Eyes lie at two fifths of a face's height; a bowed head shows more hair and moves them down.
constexpr double lowEyeLine = 0.49;
// How far a face lies below its place in the body, in sides of the face.
constexpr double leaningDrop = 0.35;
constexpr double bowedDrop = 0.6;

// A tilted head is looked for at this side, and counts with so many hits.
constexpr double tiltedFaceSide = 48.0;
constexpr int sureHits = 6;

struct Judgement
{
    Pose pose;
    float score;
};

/// Between 0.5 at the limit and 1 far from it.
float certainty(double distance, double scale)
{
    return float(1.0 - 0.5 * std::exp(-std::abs(distance) / scale));
}

/**
 * Tells poses by the frontal face of a body and the place of its eyes.
 *
 * Threads: reentrant; the only state is cascades that each call borrows.
 */
class OpenBodyPose : public mirovane::BodyPoseClassify
{
public:
    bool load(const std::string &model)
    {
        cv::FileStorage file;
        return openModel(file, model, "BodyPoseClassify") &&
               m_faces.load(besideModel(model, file["face"].string())) &&
               m_profiles.load(besideModel(model, file["profile"].string())) &&
               m_eyes.load(besideModel(model, file["eyes"].string())) &&
               m_bareEyes.load(besideModel(model, file["bareEyes"].string()));
    }

    void reserved1() override {}
    void reserved2() override {}

    int classify(const cv::Mat &image, const std::vector<cv::Rect> &bodies, std::vector<int> &labels,
                 std::vector<float> &scores, bool) override
    {
        const cv::Mat grey = toGrey(image);
        for (const cv::Rect &body : bodies) {
            const Judgement judgement = judge(grey, body);
            labels.push_back(judgement.pose);
            scores.push_back(judgement.score);
        }
        return grey.empty() ? -1 : 0;
    }

private:
    Judgement judge(const cv::Mat &grey, const cv::Rect &body) const
    {
        const cv::Rect inside = clipped(body, grey.size());
        if (inside.empty())
            return {turnedAway, 0.0F};
        const auto faces = findFaces(m_faces, grey, body, inside);
        if (faces.empty() && showsTiltedFace(grey, body))
            return {leaning, 0.7F};
        if (faces.empty())
            return {turnedAway, showsProfile(m_profiles, grey(inside)) ? 0.9F : 0.6F};
        return judgeFace(grey, body, faces.front());
    }

    Judgement judgeFace(const cv::Mat &grey, const cv::Rect &body, const cv::Rect &face) const
    {
        const cv::Rect expected = faceOfBody(body);
        // A body cut by the top of the picture has its face nearer to its top than expected.
        const double drop = double(face.y - expected.y) / expected.width;
        if (drop > bowedDrop)
            return {headDown, certainty(drop - bowedDrop, 0.2)};

        if (drop > leaningDrop)
            return {leaning, certainty(drop - leaningDrop, 0.2)};
        const auto eyes = eyesOf(grey(grown(face, 1.1, grey.size())));
        if (!eyes)
            return {facing, 0.6F};

        const double eyeLine = (eyes->left.y + eyes->right.y) / 2 / eyeFinderSide;
        if (eyeLine > lowEyeLine)
            return {headDown, certainty(eyeLine - lowEyeLine, 0.05)};
        const cv::Point2d step = eyes->right - eyes->left;
        const double tilt = std::abs(std::atan2(step.y, step.x)) * 180 / CV_PI;
        if (tilt > leaningTilt)
            return {leaning, certainty(tilt - leaningTilt, 5)};
        return {upright, std::min(certainty(tilt - leaningTilt, 5), certainty(eyeLine - lowEyeLine, 0.05))};
    }

    /// The frontal cascade misses faces that are tilted by some 20 degrees and more; so the picture is
    /// turned.
    bool showsTiltedFace(const cv::Mat &grey, const cv::Rect &body) const
    {
        const cv::Rect expected = faceOfBody(body);
        const cv::Rect area = grown(expected, 2.2, grey.size());
        if (area.empty())
            return false;
        const double scale = std::min(1.0, tiltedFaceSide / expected.width);
        const cv::Mat head = reduced(grey(area), scale);
        const int side = cvRound(expected.width * scale);
        for (const double degrees : {24.0, -24.0}) {
            const cv::Point2f middle(float(head.cols) / 2, float(head.rows) / 2);
            cv::Mat turned;
            cv::warpAffine(head, turned, cv::getRotationMatrix2D(middle, degrees, 1), head.size(),
                           cv::INTER_LINEAR, cv::BORDER_REPLICATE);
            for (const Find &face : m_faces.find(turned, 1.1, std::max(20, side * 2 / 3), side * 3 / 2))
                if (face.weight >= sureHits)
                    return true;
        }
        return false;
    }

    std::optional<Eyes> eyesOf(const cv::Mat &face) const
    {
        cv::Mat working;
        cv::resize(face, working, {eyeFinderSide, eyeFinderSide}, 0, 0, cv::INTER_LINEAR);
        cv::equalizeHist(working, working);
        const auto eyes = findEyes(m_eyes, working);
        return eyes ? eyes : findEyes(m_bareEyes, working);
    }

    SharedCascade m_faces;
    SharedCascade m_profiles;
    SharedCascade m_eyes;
    SharedCascade m_bareEyes;
};

} // namespace

mirovane::BodyPoseClassify *mirovane::BodyPoseClassify::create(const std::string &model, const std::string &)
{
    auto poses = std::make_unique<OpenBodyPose>();
    return poses->load(model) ? poses.release() : nullptr;
}

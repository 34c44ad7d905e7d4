#include "cascade.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <mirovane/facedetectionmtcnn.h>
#include <opencv2/imgproc.hpp>
#include <optional>

namespace mirovane {

namespace {

/// A window in which the first stage suspects a face, in pixels of the picture.
struct Proposal
{
    cv::Rect box;
    int windows = 0; ///< raw windows of the cascade that were joined into this one
};

/// A face on its way through the stages, in pixels of the picture.
struct Face
{
    cv::Rect box;
    int windows = 0;    ///< of the proposal
    int neighbours = 0; ///< windows of the second stage that agree on the box
    int eyesSeen = 0;   ///< eyes that the third stage found; the others are placed
    cv::Point2f leftEye;
    cv::Point2f rightEye;

    /// How much speaks for a face, over all stages.
    int evidence() const { return neighbours + 3 * windows + 5 * eyesSeen; }
};

/// The window of the first stage's cascade, and the least face that is to fill it.
constexpr int proposeWindow = 20;
constexpr double leastFace = 31;

/// A picture is searched at the scale that takes the least face to the window, and a larger one than a
/// full frame at this size.
constexpr double proposeSide = 1920 * proposeWindow / leastFace;

/// Width to which a proposal is brought for the second stage, and the range of faces looked for there.
constexpr int confirmWidth = 56;
constexpr int confirmLeast = confirmWidth * 6 / 10;
constexpr int confirmMost = confirmWidth * 16 / 10;

/// Measured so that real faces of 40 pixels pass and hardly anything else does.
constexpr int enoughEvidence = 18;

/// Width to which a face is brought for the third stage.
constexpr int eyesWidth = 96;

/// Where the eyes usually lie in a box of the second stage, and how far they may be from there, as parts
/// of its width.
constexpr float usualLeftEyeX = 0.31F;
constexpr float usualRightEyeX = 0.69F;
constexpr float usualEyeY = 0.39F;

bool isSameFace(const cv::Rect &a, const cv::Rect &b)
{
    const double common = (a & b).area();
    return common > 0.4 * std::min(a.area(), b.area());
}

cv::Rect scaled(const cv::Rect &rect, double scale)
{
    return {cvRound(rect.x * scale), cvRound(rect.y * scale), cvRound(rect.width * scale),
            cvRound(rect.height * scale)};
}

/// Joins windows that lie on nearly the same place into their mean. Unlike OpenCV's grouping this keeps
/// single ones: a small face often fills one window only.
std::vector<Proposal> joined(const std::vector<cv::Rect> &windows)
{
    if (windows.empty()) // cv::partition takes the address of the first
        return {};
    std::vector<int> groupOf;
    const int groups = cv::partition(windows, groupOf, cv::SimilarRects(0.4));
    std::vector<Proposal> result{size_t(groups)};
    for (size_t i = 0; i < windows.size(); ++i) {
        auto &group = result[size_t(groupOf[i])];
        group.box.x += windows[i].x;
        group.box.y += windows[i].y;
        group.box.width += windows[i].width;
        group.box.height += windows[i].height;
        ++group.windows;
    }
    for (auto &group : result)
        group.box = scaled(group.box, 1.0 / group.windows);
    return result;
}

class CascadeFaceDetection : public FaceDetectionMTCNN
{
public:
    bool load(const std::string &propose, const std::string &confirm, const std::string &eyes)
    {
        return open::loadCascade(m_propose, propose) && open::loadCascade(m_confirm, confirm) &&
               open::loadCascade(m_eyes, eyes);
    }

    int detectWithLandmarks(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
                            std::vector<std::vector<cv::Point>> &landmarks, bool) override
    {
        return run(image, faces, scores, &landmarks);
    }

    int detect(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores, bool) override
    {
        return run(image, faces, scores, nullptr);
    }

private:
    int run(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
            std::vector<std::vector<cv::Point>> *landmarks)
    {
        std::vector<Face> found;
        try {
            found = findFaces(open::toGrey(image));
        } catch (const cv::Exception &) {
            return -1;
        }
        for (const auto &face : found) {
            faces.push_back(face.box);
            scores.push_back(scoreOf(face));
            if (landmarks)
                landmarks->push_back(landmarksOf(face));
        }
        return 0;
    }

    std::vector<Face> findFaces(const cv::Mat &grey)
    {
        std::vector<Face> found;
        if (std::min(grey.cols, grey.rows) < proposeWindow)
            return found;
        for (const auto &proposal : propose(grey)) {
            if (const auto face = confirm(grey, proposal))
                found.push_back(*face);
        }
        found = withoutRepeats(std::move(found));
        for (auto &face : found)
            findEyes(grey, face);
        const auto isWeak = [](const Face &face) { return face.evidence() < enoughEvidence; };
        found.erase(std::remove_if(found.begin(), found.end(), isWeak), found.end());
        return found;
    }

    /// First stage: windows that may hold a face, from a reduced picture.
    std::vector<Proposal> propose(const cv::Mat &grey)
    {
        const double scale =
            std::min(proposeWindow / leastFace, proposeSide / std::max(grey.cols, grey.rows));
        cv::Mat reduced;
        cv::resize(grey, reduced, {}, scale, scale, cv::INTER_LINEAR);
        std::vector<cv::Rect> windows;
        m_propose.detectMultiScale(reduced, windows, 1.2, 0, 0, {proposeWindow, proposeWindow});
        auto proposals = joined(windows);
        for (auto &proposal : proposals)
            proposal.box = scaled(proposal.box, 1 / scale);
        return proposals;
    }

    /// Second stage: the face around a proposal, at the picture's own resolution.
    std::optional<Face> confirm(const cv::Mat &grey, const Proposal &proposal)
    {
        const auto region = open::grown(proposal.box, 1.7, grey.size());
        const double scale = double(confirmWidth) / proposal.box.width;
        cv::Mat part;
        cv::resize(grey(region), part, {}, scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);

        std::vector<cv::Rect> boxes;
        std::vector<int> neighbours;
        m_confirm.detectMultiScale(part, boxes, neighbours, 1.08, 2, 0, {confirmLeast, confirmLeast},
                                   {confirmMost, confirmMost});
        if (boxes.empty())
            return {};
        const auto best = size_t(std::max_element(neighbours.begin(), neighbours.end()) - neighbours.begin());
        Face face;
        face.box = open::clipped(scaled(boxes[best], 1 / scale) + region.tl(), grey.size());
        face.windows = proposal.windows;
        face.neighbours = neighbours[best];
        if (face.box.empty())
            return {};
        return face;
    }

    static std::vector<Face> withoutRepeats(std::vector<Face> faces)
    {
        std::stable_sort(faces.begin(), faces.end(),
                         [](const Face &a, const Face &b) { return a.evidence() > b.evidence(); });
        std::vector<Face> kept;
        for (const auto &face : faces) {
            const auto isKept = [&face](const Face &other) { return isSameFace(face.box, other.box); };
            if (std::none_of(kept.begin(), kept.end(), isKept))
                kept.push_back(face);
        }
        return kept;
    }

    /// Third stage: the eyes. One that is not seen is placed, so that the two never coincide.
    void findEyes(const cv::Mat &grey, Face &face)
    {
        const float scale = float(eyesWidth) / float(face.box.width);
        cv::Mat part;
        cv::resize(grey(face.box), part, {eyesWidth, cvRound(face.box.height * scale)}, 0, 0,
                   scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
        const cv::Point2f usualLeft(usualLeftEyeX * eyesWidth, usualEyeY * eyesWidth);
        const cv::Point2f usualRight(usualRightEyeX * eyesWidth, usualEyeY * eyesWidth);
        auto left = findEye(part, usualLeft);
        auto right = findEye(part, usualRight);
        if (left && right && !isPlausible(*left, *right))
            left = right = std::nullopt;

        face.eyesSeen = int(left.has_value()) + int(right.has_value());
        // One eye alone tells about the other, but may as well be an error: half the way.
        const auto shift = (left ? *left - usualLeft : right ? *right - usualRight : cv::Point2f()) / 2;
        const cv::Point2f origin(face.box.tl());
        const bool both = face.eyesSeen == 2;
        face.leftEye = origin + mixed(both ? *left : usualLeft + shift, usualLeft) / scale;
        face.rightEye = origin + mixed(both ? *right : usualRight + shift, usualRight) / scale;
    }

    std::optional<cv::Point2f> findEye(const cv::Mat &part, const cv::Point2f &usual)
    {
        constexpr int reach = eyesWidth * 28 / 100;
        const auto region =
            open::clipped({int(usual.x) - reach, int(usual.y) - reach, 2 * reach, 2 * reach}, part.size());
        std::vector<cv::Rect> windows;
        std::vector<int> neighbours;
        m_eyes.detectMultiScale(part(region), windows, neighbours, 1.05, 2, 0, {eyesWidth / 7, eyesWidth / 7},
                                {eyesWidth / 2, eyesWidth / 2});
        if (windows.empty())
            return {};
        const auto best = std::max_element(neighbours.begin(), neighbours.end()) - neighbours.begin();
        const auto &window = windows[size_t(best)];
        return cv::Point2f(float(region.x) + float(window.x) + float(window.width) / 2,
                           float(region.y) + float(window.y) + float(window.height) / 2);
    }

    /// The box errs less than a single find: a quarter of it steadies the eyes.
    static cv::Point2f mixed(const cv::Point2f &found, const cv::Point2f &usual)
    {
        return 0.75F * found + 0.25F * usual;
    }

    static bool isPlausible(const cv::Point2f &left, const cv::Point2f &right)
    {
        const auto apart = right - left;
        return apart.x > 0.25F * eyesWidth && apart.x < 0.6F * eyesWidth &&
               std::abs(apart.y) < 0.45F * apart.x;
    }

    /// Between 0 and 1; one half is just enough evidence.
    static float scoreOf(const Face &face)
    {
        const auto evidence = float(face.evidence());
        return evidence / (evidence + float(enoughEvidence));
    }

    /// Nose and mouth follow the eyes in the proportions of a face that looks straight on.
    static std::vector<cv::Point> landmarksOf(const Face &face)
    {
        const auto across = face.rightEye - face.leftEye;
        const cv::Point2f down(-across.y, across.x);
        const auto middle = (face.leftEye + face.rightEye) / 2;
        const auto mouth = middle + 1.1F * down;
        std::vector<cv::Point> points;
        for (const cv::Point2f &point : {face.leftEye, face.rightEye, middle + 0.58F * down,
                                         mouth - 0.4F * across, mouth + 0.4F * across})
            points.emplace_back(cvRound(point.x), cvRound(point.y));
        return points;
    }

    cv::CascadeClassifier m_propose;
    cv::CascadeClassifier m_confirm;
    cv::CascadeClassifier m_eyes;
};

} // namespace

FaceDetectionMTCNN *FaceDetectionMTCNN::create(const std::string &stage1, const std::string &stage2,
                                               const std::string &stage3, const std::string &)
{
    auto detector = std::make_unique<CascadeFaceDetection>();
    if (!detector->load(stage1, stage2, stage3))
        return nullptr;
    return detector.release();
}

} // namespace mirovane

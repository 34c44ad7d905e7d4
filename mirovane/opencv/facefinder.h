#pragma once

#include <mutex>
#include <opencv2/core.hpp>
#include <opencv2/objdetect.hpp>
#include <optional>
#include <string>
#include <vector>

namespace mirovane::open {

/// What a cascade found. The weight is the number of neighbouring hits that agree: 3 for a weak find, 10
/// and more for an ordinary one.
struct Find
{
    cv::Rect rect;
    int weight = 0;
};

/**
 * A cascade for any number of threads.
 *
 * A cascade isn't reentrant, so each running call borrows a copy of its own; there are never more copies
 * than threads that called at the same time.
 */
class SharedCascade
{
public:
    /// Reads the cascade; call it once, before any other thread knows the object. False when the file is
    /// absent or is no cascade.
    bool load(const std::string &path);

    /// What lies in a grey picture (CV_8UC1) with sides between the two, in pixels. Empty for a picture
    /// of another kind.
    std::vector<Find> find(const cv::Mat &grey, double step, int minSide, int maxSide) const;

private:
    std::string m_path;
    mutable std::mutex m_mutex;                        ///< guards m_idle
    mutable std::vector<cv::CascadeClassifier> m_idle; ///< loaded and not borrowed
};

/// The picture reduced by a factor of at most 1; each side keeps a pixel at least.
cv::Mat reduced(const cv::Mat &picture, double factor);

/// The upper body that goes with a face: from just above the hair to the chest, about two faces wide.
/// May reach outside the picture.
cv::Rect bodyOfFace(const cv::Rect &face);

/// Where the face of such a body lies: bodyOfFace the other way round.
cv::Rect faceOfBody(const cv::Rect &body);

/// The faces within an area of a picture (CV_8UC1), that of the body's owner first: the one nearest to
/// where the body has its face. Empty when the owner's face isn't seen, whatever else is.
std::vector<cv::Rect> findFaces(const SharedCascade &cascade, const cv::Mat &grey, const cv::Rect &body,
                                const cv::Rect &area);

/// A face rectangle of any detector as this cascade places it, with a small margin; the rectangle itself,
/// clipped, where the cascade sees no face. What is measured at fixed places of a face starts from here,
/// because detectors differ in how much of a head they take in. The picture is CV_8UC1.
cv::Rect settledFace(const SharedCascade &cascade, const cv::Mat &grey, const cv::Rect &face);

/// Whether a grey picture of a body shows a face from the side, looking either way.
bool showsProfile(const SharedCascade &cascade, const cv::Mat &body);

/// The side of the square face picture that findEyes takes.
constexpr int eyeFinderSide = 160;

/// The middles of the eyes in the picture of a face, in its pixels.
struct Eyes
{
    cv::Point2d left;
    cv::Point2d right;
};

/// The most level pair of eyes of a square grey face picture of eyeFinderSide, if one is seen.
std::optional<Eyes> findEyes(const SharedCascade &cascade, const cv::Mat &face);

} // namespace mirovane::open

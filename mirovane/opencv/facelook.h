#pragma once

#include "learnednet.h"

#include <array>
#include <future>
#include <list>
#include <optional>

namespace mirovane::open {

/// A face in a picture, in its pixels.
struct MIROVANE_SHARED SeenFace
{
    cv::Rect2f box;      ///< may reach outside the picture; about 2.5 eye distances wide
    float score = 0;     ///< 0 to 1; from 0.5 on it counts as a face
    bool placed = false; ///< points was filled
    /// The 68 points of the usual numbering: 0 to 16 the jaw, 17 to 26 the brows, 27 to 35 the nose, 36 to 41
    /// the left eye as seen, 42 to 47 the right one, 48 to 67 the mouth.
    std::array<cv::Point2f, 68> points;

    /// Left eye, right eye, nose, left mouth corner, right mouth corner, as seen in the picture.
    std::array<cv::Point2f, 5> landmarks() const;
};

/**
 * Looks for faces with learned nets: everywhere at two sizes, again around each place found, then for the
 * points of each face.
 *
 * Threads: everything may be called from any number of threads.
 */
class MIROVANE_SHARED FaceLook
{
public:
    /// A look with the nets of these files; the same object for everybody who opens it while it is held. Null
    /// when a file is absent or is no net.
    static std::shared_ptr<FaceLook> open(const std::string &propose, const std::string &confirm,
                                          const std::string &landmarks);

    /// A look with the nets that the common configuration names: blazeface, twice, and landmark68.
    static std::shared_ptr<FaceLook> find(const std::string &config);

    /// The faces of a picture (8-bit, one, three or four channels; others have none), the surest first. The
    /// last pictures are known again by their content, so that everybody who asks for the faces of one frame
    /// shares one look; who asks while it is under way waits for it.
    std::vector<SeenFace> facesOf(const cv::Mat &image);

    /// The face at a place of a picture (CV_8UC3) where somebody has seen one: box about 2.5 eye distances
    /// wide. None when the second look sees none there. The score is the second look's alone.
    std::optional<SeenFace> faceAt(const cv::Mat &picture, const cv::Rect2f &box);

private:
    struct Look
    {
        cv::Mat picture;
        std::shared_future<std::vector<SeenFace>> faces;
    };

    FaceLook() = default;
    std::vector<SeenFace> look(const cv::Mat &picture);
    std::vector<SeenFace> propose(const cv::Mat &picture, double scale);
    std::optional<SeenFace> confirm(const cv::Mat &picture, const cv::Rect2f &box);
    void place(const cv::Mat &picture, SeenFace &face);

    std::shared_ptr<LearnedNet> m_propose;
    std::shared_ptr<LearnedNet> m_confirm;
    std::shared_ptr<LearnedNet> m_landmarks;
    std::mutex
        m_everywhere;   ///< held while a whole picture is searched, which takes all cores and much memory
    std::mutex m_mutex; ///< leaf lock of m_looks
    std::list<Look> m_looks; ///< the latest first
};

} // namespace mirovane::open

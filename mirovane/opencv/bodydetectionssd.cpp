#include "mirovane/bodydetectionssd.h"

#include "cascade.h"
#include "facefinder.h"

#include <algorithm>
#include <memory>

namespace {

using namespace mirovane::open;

// The picture is searched at no more than this width or height.
constexpr double workingSide = 1280.0;
// Upper bodies are twice as wide as faces and found at half the detail, in a quarter of the time.
constexpr double bodyReduction = 0.5;
// The smallest face and upper body looked for, each in pixels of its reduced picture: about the sizes that
// the cascades were trained at.
constexpr int smallestFace = 22;
constexpr int smallestBody = 24;
// What the face rectangle of another detector may lie outside ours, in sides of the face.
constexpr double padding = 0.2;
// So many hits make an upper body without a face; half of them do when a profile face lies in it.
constexpr int manyHits = 12;
constexpr int someHits = 6;

struct Body
{
    cv::Rect rect;
    cv::Rect face; ///< empty for a body without a visible face
    float score = 0;
};

double overlap(const cv::Rect &a, const cv::Rect &b)
{
    return double((a & b).area()) / std::max(1, std::min(a.area(), b.area()));
}

float scoreOfHits(double hits)
{
    return float(hits / (hits + 3.0));
}

cv::Rect scaled(const cv::Rect &rect, double factor)
{
    return {cvRound(rect.x * factor), cvRound(rect.y * factor), cvRound(rect.width * factor),
            cvRound(rect.height * factor)};
}

/// Moves the sides of a body so that the faces of its neighbours don't lie in it: a body that covers two
/// faces could be given to the wrong person. The own face keeps its room.
void leaveNeighboursOut(Body &body, const std::vector<Body> &all)
{
    const int room = cvRound(body.face.width * padding);
    for (const Body &other : all) {
        if (other.face.empty() || other.face == body.face || (body.rect & other.face) != other.face)
            continue;
        const int left = body.rect.x;
        const int right = body.rect.br().x;
        const int middle = other.face.x + other.face.width / 2;
        if (other.face.x > body.face.br().x)
            body.rect.width = std::max(middle, body.face.br().x + room) - left;
        else if (other.face.br().x < body.face.x) {
            body.rect.x = std::min(middle, body.face.x - room);
            body.rect.width = right - body.rect.x;
        }
    }
}

/**
 * Finds upper bodies by their faces, and by the upper-body cascade where no face is seen.
 *
 * Every frontal face makes one body. The upper-body cascade errs a lot, so what it finds counts only away
 * from the faces, and only with many hits or with a profile face in it.
 */
class OpenBodyDetection : public mirovane::BodyDetectionSSD
{
public:
    bool load(const std::string &model)
    {
        cv::FileStorage file;
        return openModel(file, model, "BodyDetectionSSD") &&
               m_faces.load(besideModel(model, file["face"].string())) &&
               m_profiles.load(besideModel(model, file["profile"].string())) &&
               loadCascade(m_upperBody, besideModel(model, file["upperBody"].string()));
    }

    int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<float> &scores, bool) override
    {
        const cv::Mat grey = toGrey(image);
        if (grey.empty())
            return -1;

        const double scale = std::min(1.0, workingSide / std::max(grey.cols, grey.rows));
        const cv::Mat small = reduced(grey, scale);

        std::vector<Body> found = bodiesWithFace(small);
        addFacelessBodies(small, found);
        for (Body body : found) {
            leaveNeighboursOut(body, found);
            const cv::Rect rect = clipped(scaled(body.rect, 1 / scale), grey.size());
            if (rect.empty())
                continue;
            bodies.push_back(rect);
            scores.push_back(body.score);
        }
        return 0;
    }

private:
    std::vector<Body> bodiesWithFace(const cv::Mat &grey) const
    {
        auto faces = m_faces.find(grey, 1.15, smallestFace, std::min(grey.cols, grey.rows));
        std::stable_sort(faces.begin(), faces.end(),
                         [](const Find &a, const Find &b) { return a.weight > b.weight; });
        std::vector<Body> bodies;
        for (const Find &face : faces) {
            const bool known = std::any_of(bodies.begin(), bodies.end(), [&](const Body &body) {
                return overlap(body.face, face.rect) > 0.4;
            });
            if (!known)
                bodies.push_back({bodyOfFace(face.rect), face.rect, scoreOfHits(face.weight)});
        }
        return bodies;
    }

    void addFacelessBodies(const cv::Mat &grey, std::vector<Body> &bodies)
    {
        const cv::Mat small = reduced(grey, bodyReduction);
        std::vector<cv::Rect> rects;
        std::vector<int> hits;
        m_upperBody.detectMultiScale(small, rects, hits, 1.1, someHits, 0, {smallestBody, smallestBody});
        for (std::size_t i = 0; i < rects.size(); ++i) {
            const cv::Rect rect = clipped(scaled(rects[i], 1 / bodyReduction), grey.size());
            const bool taken = std::any_of(bodies.begin(), bodies.end(),
                                           [&](const Body &body) { return overlap(body.rect, rect) > 0.2; });
            if (taken || (hits[i] < manyHits && !showsProfile(m_profiles, grey(rect))))
                continue;
            bodies.push_back({rect, {}, scoreOfHits(hits[i]) / 2});
        }
    }

    SharedCascade m_faces;
    SharedCascade m_profiles;
    cv::CascadeClassifier m_upperBody;
};

} // namespace

mirovane::BodyDetectionSSD *mirovane::BodyDetectionSSD::create(const std::string &model, const std::string &)
{
    auto detection = std::make_unique<OpenBodyDetection>();
    return detection->load(model) ? detection.release() : nullptr;
}

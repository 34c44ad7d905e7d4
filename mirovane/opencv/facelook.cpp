#include "facelook.h"

#include "common.h"

#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace mirovane::open {

namespace {

/// Pictures whose faces are remembered: several analyses may be at different frames.
constexpr size_t mostLooks = 4;

/// Below this a picture holds no face worth looking for.
constexpr int leastSide = 16;

/// The longer side of the picture that is searched for small faces, and how much smaller the one for large
/// faces is.
constexpr double searchedSide = 1280;
constexpr double largeFaces = 0.5;

/// From here on a place is looked at again. This and the numbers below were chosen on the photographs of
/// opencv-doc that bench/recognisers/faces.txt and nofaces.txt list.
constexpr float enoughForSecondLook = 0.3F;

/// The second look's cut, in pixels and in sides of the box.
constexpr int confirmSide = 128;
constexpr float confirmReach = 2.5F;

/// How much the first look counts in the score of both, which is their weighted geometric mean: small faces
/// have little of it. From 0.67 on it counts as a face.
constexpr float firstLookShare = 0.3F;
constexpr float justEnough = 0.67F;

constexpr int landmarkSide = 112;

float overlap(const cv::Rect2f &a, const cv::Rect2f &b)
{
    const float common = (a & b).area();
    return common / (a.area() + b.area() - common);
}

/// The boxes that a net has found in an input, in its pixels: each stands for those that overlap it.
std::vector<SeenFace> boxesOf(LearnedNet &net, const cv::Mat &input, float least)
{
    const auto blobs = net.run(input, {"score16", "box16", "score32", "box32"});
    std::vector<SeenFace> found;
    for (size_t grid = 0; grid < 2; ++grid) {
        const float stride = grid == 0 ? 16 : 32;
        const cv::Mat &scores = blobs[2 * grid];
        const cv::Mat &boxes = blobs[2 * grid + 1];
        const float leastRaw = std::log(least / (1 - least));
        const int rows = scores.size[2];
        const int columns = scores.size[3];
        for (int anchor = 0; anchor < scores.size[1]; ++anchor) {
            for (int y = 0; y < rows; ++y) {
                for (int x = 0; x < columns; ++x) {
                    const float raw = scores.ptr<float>(0, anchor, y)[x];
                    if (raw < leastRaw)
                        continue;
                    const auto number = [&](int which) {
                        return boxes.ptr<float>(0, 16 * anchor + which, y)[x];
                    };
                    const cv::Size2f size(number(2), number(3));
                    if (!(size.width > 1 && size.height > 1))
                        continue;
                    SeenFace face;
                    face.box = {(float(x) + 0.5F) * stride + number(0) - size.width / 2,
                                (float(y) + 0.5F) * stride + number(1) - size.height / 2, size.width,
                                size.height};
                    face.score = sigmoid(raw);
                    found.push_back(face);
                }
            }
        }
    }
    return found;
}

/// Boxes of one face become one: the mean of those that overlap the surest one, by their scores.
std::vector<SeenFace> joined(std::vector<SeenFace> faces)
{
    std::stable_sort(faces.begin(), faces.end(),
                     [](const SeenFace &a, const SeenFace &b) { return a.score > b.score; });
    std::vector<SeenFace> result;
    std::vector<char> used(faces.size(), 0);
    for (size_t i = 0; i < faces.size(); ++i) {
        if (used[i])
            continue;
        cv::Vec4f sum;
        float weight = 0;
        for (size_t j = i; j < faces.size(); ++j) {
            if (used[j] || overlap(faces[i].box, faces[j].box) < 0.3F)
                continue;
            used[j] = 1;
            const auto &box = faces[j].box;
            sum += faces[j].score * cv::Vec4f(box.x, box.y, box.width, box.height);
            weight += faces[j].score;
        }
        auto face = faces[i];
        sum /= weight;
        face.box = {sum[0], sum[1], sum[2], sum[3]};
        result.push_back(face);
    }
    return result;
}

/// One of two faces is left where the smaller lies mostly in the other.
std::vector<SeenFace> withoutRepeats(std::vector<SeenFace> faces)
{
    std::stable_sort(faces.begin(), faces.end(),
                     [](const SeenFace &a, const SeenFace &b) { return a.score > b.score; });
    std::vector<SeenFace> kept;
    for (const auto &face : faces) {
        const auto isKept = [&face](const SeenFace &other) {
            return (face.box & other.box).area() > 0.5F * std::min(face.box.area(), other.box.area());
        };
        if (std::none_of(kept.begin(), kept.end(), isKept))
            kept.push_back(face);
    }
    return kept;
}

/// Scores are told so that 0.5 is just enough.
float told(float score)
{
    return score < justEnough ? 0.5F * score / justEnough : 1 - 0.5F * (1 - score) / (1 - justEnough);
}

cv::Point2f meanOf(const cv::Point2f *first, const cv::Point2f *last)
{
    return std::accumulate(first, last, cv::Point2f()) / float(last - first);
}

} // namespace

std::array<cv::Point2f, 5> SeenFace::landmarks() const
{
    const auto *point = points.data();
    return {meanOf(point + 36, point + 42), meanOf(point + 42, point + 48), points[30], points[48],
            points[54]};
}

std::shared_ptr<FaceLook> FaceLook::open(const std::string &propose, const std::string &confirm,
                                         const std::string &landmarks)
{
    static std::mutex mutex;
    static std::map<std::array<std::string, 3>, std::weak_ptr<FaceLook>> opened;
    const std::lock_guard<std::mutex> locker(mutex);
    auto &known = opened[{propose, confirm, landmarks}];
    if (auto look = known.lock())
        return look;
    std::shared_ptr<FaceLook> look(new FaceLook);
    look->m_propose = LearnedNet::open(propose);
    look->m_confirm = LearnedNet::open(confirm);
    look->m_landmarks = LearnedNet::open(landmarks);
    for (const auto &net : {look->m_propose, look->m_confirm}) {
        if (!net || !net->gives({"score16", "box16", "score32", "box32"}))
            return nullptr;
    }
    if (!look->m_landmarks || !look->m_landmarks->gives({"points"}))
        return nullptr;
    known = look;
    return look;
}

std::shared_ptr<FaceLook> FaceLook::find(const std::string &config)
{
    const std::string propose = netPath(config, "blazeface");
    return open(propose, propose, netPath(config, "landmark68"));
}

std::vector<SeenFace> FaceLook::facesOf(const cv::Mat &image)
{
    const auto picture = toColour(image);
    if (picture.empty() || std::min(picture.cols, picture.rows) < leastSide)
        return {};
    std::promise<std::vector<SeenFace>> promise;
    {
        std::unique_lock<std::mutex> locker(m_mutex);
        for (const auto &look : m_looks) {
            if (samePixels(look.picture, picture)) {
                const auto faces = look.faces;
                locker.unlock();
                return faces.get();
            }
        }
        m_looks.push_front({picture.clone(), promise.get_future().share()});
        if (m_looks.size() > mostLooks)
            m_looks.pop_back();
    }
    std::vector<SeenFace> faces;
    try {
        faces = look(picture);
    } catch (const std::exception &) {
        // A picture that a net doesn't take, or that memory is too short for, has no faces; nobody waits
        // forever.
    }
    promise.set_value(faces);
    return faces;
}

std::optional<SeenFace> FaceLook::faceAt(const cv::Mat &picture, const cv::Rect2f &box)
{
    auto face = confirm(picture, box);
    if (face)
        place(picture, *face);
    return face;
}

std::vector<SeenFace> FaceLook::look(const cv::Mat &picture)
{
    const double scale = std::min(1.0, searchedSide / std::max(picture.cols, picture.rows));
    std::vector<SeenFace> places;
    {
        const std::lock_guard<std::mutex> locker(m_everywhere);
        places = propose(picture, scale);
        const auto large = propose(picture, largeFaces * scale);
        places.insert(places.end(), large.begin(), large.end());
    }
    places = joined(std::move(places));

    std::vector<std::optional<SeenFace>> confirmed(places.size());
    cv::parallel_for_(cv::Range(0, int(places.size())), [&](const cv::Range &range) {
        for (int i = range.start; i < range.end; ++i) {
            auto face = confirm(picture, places[size_t(i)].box);
            if (!face)
                continue;
            face->score = told(std::pow(places[size_t(i)].score, firstLookShare) *
                               std::pow(face->score, 1 - firstLookShare));
            if (face->score >= 0.5F)
                confirmed[size_t(i)] = face;
        }
    });
    std::vector<SeenFace> faces;
    for (const auto &face : confirmed) {
        if (face)
            faces.push_back(*face);
    }
    faces = withoutRepeats(std::move(faces));
    cv::parallel_for_(cv::Range(0, int(faces.size())), [&](const cv::Range &range) {
        for (int i = range.start; i < range.end; ++i)
            place(picture, faces[size_t(i)]);
    });
    return faces;
}

/// First look: everywhere, in the picture brought to a scale.
std::vector<SeenFace> FaceLook::propose(const cv::Mat &picture, double scale)
{
    cv::Mat reduced = picture;
    if (scale != 1)
        cv::resize(picture, reduced,
                   {std::max(1, cvRound(picture.cols * scale)), std::max(1, cvRound(picture.rows * scale))},
                   0, 0, cv::INTER_AREA);
    // The net takes multiples of 32.
    const auto filled = [](int side) { return (side + 31) / 32 * 32 - side; };
    cv::copyMakeBorder(reduced, reduced, 0, filled(reduced.rows), 0, filled(reduced.cols),
                       cv::BORDER_CONSTANT);
    auto places = boxesOf(*m_propose, inputOf({reduced}, evenScale), enoughForSecondLook);
    for (auto &place : places) {
        auto &box = place.box;
        box = {float(box.x / scale), float(box.y / scale), float(box.width / scale),
               float(box.height / scale)};
    }
    return places;
}

/// Second look: the surest face about where one was seen, in a cut that shows it at a fixed size.
std::optional<SeenFace> FaceLook::confirm(const cv::Mat &picture, const cv::Rect2f &box)
{
    const auto centre = (box.tl() + box.br()) / 2;
    const float side = confirmReach * std::max(box.width, box.height);
    const auto cut = squareCut(picture, centre, side, confirmSide);
    const float scale = side / confirmSide;
    std::optional<SeenFace> best;
    for (auto &face : joined(boxesOf(*m_confirm, inputOf({cut}, evenScale), 0.2F))) {
        face.box = {centre.x - side / 2 + face.box.x * scale, centre.y - side / 2 + face.box.y * scale,
                    face.box.width * scale, face.box.height * scale};
        const auto middle = (face.box.tl() + face.box.br()) / 2;
        if (box.contains(middle) && (!best || face.score > best->score))
            best = face;
    }
    return best;
}

/// Finds the points of a face.
void FaceLook::place(const cv::Mat &picture, SeenFace &face)
{
    const auto centre = (face.box.tl() + face.box.br()) / 2;
    const cv::Size2f region(1.1F * face.box.width, 1.15F * face.box.height);
    const float side = std::max(region.width, region.height);
    auto cut = squareCut(picture, centre, side, landmarkSide);
    // The net knows only what lies in the region, the square around it was black.
    const auto border = [&](float part) { return cvRound(landmarkSide * (1 - part / side) / 2); };
    const int left = border(region.width);
    const int top = border(region.height);
    cv::Mat inner = cv::Mat::zeros(cut.size(), cut.type());
    const cv::Rect shown(left, top, landmarkSide - 2 * left, landmarkSide - 2 * top);
    cut(shown).copyTo(inner(shown));
    const auto blob = m_landmarks->run(inputOf({inner}, faceScale), {"points"}).front();
    const auto *numbers = blob.ptr<float>();
    for (size_t i = 0; i < face.points.size(); ++i)
        face.points[i] = centre + cv::Point2f(numbers[2 * i] - 0.5F, numbers[2 * i + 1] - 0.5F) * side;
    face.placed = true;
}

} // namespace mirovane::open

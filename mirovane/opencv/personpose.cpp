#include "personpose.h"

#include "common.h"

#include <opencv2/core/utility.hpp>

#include <algorithm>
#include <cmath>
#include <map>

namespace mirovane::open {

namespace {

/// The net looks at a square of this side, and answers in cells of so many pixels.
constexpr int inputSide = 192;
constexpr float cellSide = 4;
constexpr int cells = 48;

/// Looks that are remembered: the people of a frame.
constexpr std::size_t mostLooks = 64;

/// The square around a person, in widths of the head: its side, and how far its centre lies below the head's.
constexpr float squareSide = 5.5F;
constexpr float squareDrop = 0.6F;

/// Where the middle of the head lies in it, in cells.
const cv::Point2f headCell(cells / 2.0F, (0.5F - squareDrop / squareSide) * cells);

/// Width of a head in widths of its jaw, and the least in widths of the face's box: a profile's jaw is short.
constexpr float jawShare = 0.96F;
constexpr float leastWidth = 0.8F;

/// How far the middle of the face lies above that of its box, in widths of the head.
constexpr float middleAbove = 0.07F;

/// How soon a place loses weight as it departs from the expected one, in cells.
constexpr float nearness = 1.8F;

/// The planes of a blob of the shape 1 x planes x cells x cells.
class Planes
{
public:
    explicit Planes(const cv::Mat &blob) : m_blob(blob) {}
    float operator()(int plane, int y, int x) const { return m_blob.ptr<float>(0, plane, y)[x]; }

private:
    const cv::Mat &m_blob;
};

/// The cell of highest weight: the score of a plane against the distance to where it is expected.
template <class Expected>
cv::Point heaviest(const Planes &scores, int plane, Expected distance)
{
    cv::Point best;
    float most = -1;
    for (int y = 0; y < cells; ++y) {
        for (int x = 0; x < cells; ++x) {
            const float weight = sigmoid(scores(plane, y, x)) / (distance(y, x) + nearness);
            if (weight <= most)
                continue;
            most = weight;
            best = {x, y};
        }
    }
    return best;
}

} // namespace

std::shared_ptr<PersonPose> PersonPose::open(const std::string &path)
{
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<PersonPose>> opened;
    const std::lock_guard<std::mutex> locker(mutex);
    auto &known = opened[path];
    if (auto pose = known.lock())
        return pose;
    auto net = LearnedNet::open(path);
    if (!net || !net->gives({"centre", "heat", "regression", "offset"}))
        return nullptr;
    std::shared_ptr<PersonPose> pose(new PersonPose(std::move(net)));
    known = pose;
    return pose;
}

Head headOf(const SeenFace &face)
{
    const float jaw = jawShare * float(cv::norm(face.points[16] - face.points[0]));
    const float width = std::max({1.0F, leastWidth * face.box.width, jaw});
    return {(face.box.tl() + face.box.br()) / 2 - cv::Point2f(0, middleAbove * width), width};
}

BodyPoints PersonPose::pointsOf(const cv::Mat &picture, const Head &head)
{
    const float side = squareSide * head.width;
    const cv::Point2f centre = head.middle + cv::Point2f(0, squareDrop * head.width);
    const cv::Point2f corner = centre - cv::Point2f(side / 2, side / 2);
    const float scale = side / inputSide;
    const cv::Mat cut = squareCut(picture, centre, side, inputSide);

    const auto inPicture = [&](BodyPoints points) {
        for (auto &point : points)
            point.place = corner + point.place * scale;
        return points;
    };
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        for (const auto &known : m_looks) {
            if (samePixels(known.cut, cut))
                return inPicture(known.points);
        }
    }
    const auto points = look(cut);
    {
        const std::lock_guard<std::mutex> locker(m_mutex);
        m_looks.push_front({cut, points});
        if (m_looks.size() > mostLooks)
            m_looks.pop_back();
    }
    return inPicture(points);
}

std::vector<BodyPoints> PersonPose::pointsOf(const cv::Mat &picture, const std::vector<Head> &heads)
{
    std::vector<BodyPoints> points(heads.size());
    cv::parallel_for_(cv::Range(0, int(heads.size())), [&](const cv::Range &range) {
        for (int i = range.start; i < range.end; ++i)
            points[std::size_t(i)] = pointsOf(picture, heads[std::size_t(i)]);
    });
    return points;
}

BodyPoints PersonPose::look(const cv::Mat &cut) const
{
    const auto blobs = m_net->run(inputOf({cut}, evenScale), {"centre", "heat", "regression", "offset"});
    const Planes centres(blobs[0]), heat(blobs[1]), regression(blobs[2]), offset(blobs[3]);

    // Each cell guesses the points of the person whose centre it may be.
    const auto toHead = [&](int y, int x) {
        return std::hypot(float(y) + regression(2 * Nose, y, x) - headCell.y,
                          float(x) + regression(2 * Nose + 1, y, x) - headCell.x);
    };
    const cv::Point person = heaviest(centres, 0, toHead);

    BodyPoints points;
    for (int part = 0; part < BodyParts; ++part) {
        const float guessY = float(person.y) + regression(2 * part, person.y, person.x);
        const float guessX = float(person.x) + regression(2 * part + 1, person.y, person.x);
        const cv::Point at = heaviest(
            heat, part, [&](int y, int x) { return std::hypot(float(y) - guessY, float(x) - guessX); });
        const cv::Point2f place(float(at.x) + offset(2 * part + 1, at.y, at.x),
                                float(at.y) + offset(2 * part, at.y, at.x));
        points[std::size_t(part)] = {place * cellSide, sigmoid(heat(part, at.y, at.x))};
    }
    return points;
}

} // namespace mirovane::open

#include "personpose.h"

#include <cmath>

namespace mirovane::open {

namespace {

/// The net looks at a square of this side, and answers in cells of four pixels.
constexpr int inputSide = 192;
constexpr int cells = inputSide / 4;

/// The square around a person, in face widths: its side, and how far its centre lies below the face's top.
constexpr float squareSide = 5.5F;
constexpr float squareDrop = 1.1F;

/// How soon a place loses weight as it departs from the expected one, in cells.
constexpr float nearness = 1.8F;

float sigmoid(float value)
{
    return 1 / (1 + std::exp(-value));
}

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
template <class Expected> cv::Point heaviest(const Planes &scores, int plane, Expected distance)
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

std::unique_ptr<PersonPose> PersonPose::create(const std::string &config)
{
    auto net = LearnedNet::find(config, "movenet");
    return net ? std::unique_ptr<PersonPose>(new PersonPose(std::move(net))) : nullptr;
}

BodyPoints PersonPose::look(const cv::Mat &picture, const cv::Rect &face) const
{
    const auto width = float(face.width);
    const cv::Point2f middle(float(face.x) + width / 2, float(face.y) + float(face.height) / 2);
    const cv::Point2f centre(middle.x, float(face.y) + squareDrop * width);
    const float side = squareSide * width;
    const cv::Mat cut = squareCut(picture, centre, side, inputSide);
    const auto blobs = m_net->run(inputOf({cut}, evenScale), {"centre", "heat", "regression", "offset"});
    const Planes centres(blobs[0]), heat(blobs[1]), regression(blobs[2]), offset(blobs[3]);

    const float cell = side / cells;
    const cv::Point2f corner = centre - cv::Point2f(side / 2, side / 2);
    const cv::Point2f head((middle.x - corner.x) / cell, (middle.y - corner.y) / cell);
    // Each cell guesses the points of the person whose centre it may be.
    const auto toHead = [&](int y, int x) {
        return std::hypot(float(y) + regression(2 * Nose, y, x) - head.y,
                          float(x) + regression(2 * Nose + 1, y, x) - head.x);
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
        points[std::size_t(part)] = {corner + place * cell, sigmoid(heat(part, at.y, at.x))};
    }
    return points;
}

} // namespace mirovane::open

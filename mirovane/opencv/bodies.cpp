#include "bodies.h"

#include "common.h"

#include <algorithm>

namespace mirovane::open {

namespace {

// Proportions of a body in widths of its face.
constexpr float bodyWidth = 2.5F;
constexpr float spaceAbove = 0.6F;
constexpr float bodyHeight = 3.1F;

/// What a body leaves on each side of its own face, in face widths and in pixels: a face comes back from its
/// detector with some padding and has to lie wholly inside.
constexpr float room = 0.2F;
constexpr float leastRoom = 8;

struct Span
{
    float from;
    float to;
};

/// The columns of a body, up to half way into the faces beside it that it would cover.
Span columnsOf(const SeenFace &face, const std::vector<SeenFace> &all, const cv::Rect2f &body)
{
    const float margin = std::max(leastRoom, room * face.box.width);
    Span columns{std::min(body.x, face.box.x - margin), std::max(body.br().x, face.box.br().x + margin)};
    for (const SeenFace &other : all) {
        const bool besides = &other != &face && other.box.y < body.br().y && other.box.br().y > body.y;
        const float middle = other.box.x + other.box.width / 2;
        if (besides && middle > face.box.br().x)
            columns.to = std::min(columns.to, std::max(middle, face.box.br().x + margin));
        else if (besides && middle < face.box.x)
            columns.from = std::max(columns.from, std::min(middle, face.box.x - margin));
    }
    return columns;
}

double commonShare(const cv::Rect &a, const cv::Rect &b)
{
    const double common = (a & b).area();
    return common / (double(a.area()) + b.area() - common);
}

} // namespace

std::vector<cv::Rect> bodiesOf(const std::vector<SeenFace> &faces, const cv::Size &size)
{
    std::vector<cv::Rect> bodies;
    for (const SeenFace &face : faces) {
        const float width = face.box.width, middle = face.box.x + width / 2;
        const cv::Rect2f body(middle - bodyWidth / 2 * width,
                              face.box.y - std::max(2 * leastRoom, spaceAbove * width), bodyWidth * width,
                              bodyHeight * width + leastRoom);
        const Span columns = columnsOf(face, faces, body);
        bodies.push_back(clipped({cv::Point(cvFloor(columns.from), cvFloor(body.y)),
                                  cv::Point(cvCeil(columns.to), cvCeil(body.br().y))},
                                 size));
    }
    return bodies;
}

int ownerOf(const cv::Rect &body, const std::vector<SeenFace> &faces, const cv::Size &size)
{
    const cv::Rect inside = clipped(body, size);
    const auto bodies = bodiesOf(faces, size);
    int owner = -1;
    double most = 0;
    for (std::size_t i = 0; i < faces.size(); ++i) {
        const cv::Point middle((faces[i].box.tl() + faces[i].box.br()) / 2);
        const double share = inside.contains(middle) ? commonShare(inside, bodies[i]) : 0;
        if (share <= most)
            continue;
        most = share;
        owner = int(i);
    }
    return owner;
}

} // namespace mirovane::open

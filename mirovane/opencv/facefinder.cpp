#include "facefinder.h"

#include "cascade.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

namespace mirovane::open {

namespace {

// Proportions of a body rectangle in sides of its face.
constexpr double bodyWidth = 2.2;
constexpr double spaceAbove = 0.5;
constexpr double bodyHeight = 2.8;

// A body's face may be this much smaller or bigger than its rectangle promises, and lie so far away.
constexpr double smallest = 0.6;
constexpr double biggest = 1.6;
constexpr double farthest = 0.8;

// Faces within bodies are looked for at this side, which bounds the cost of big ones.
constexpr double workingFace = 48.0;

cv::Point2d centre(const cv::Rect &rect)
{
    return {rect.x + rect.width / 2.0, rect.y + rect.height / 2.0};
}

} // namespace

bool SharedCascade::load(const std::string &path)
{
    cv::CascadeClassifier cascade;
    if (!loadCascade(cascade, path))
        return false;
    m_path = path;
    m_idle.assign(1, cascade);
    return true;
}

std::vector<Find> SharedCascade::find(const cv::Mat &grey, double step, int minSide, int maxSide) const
{
    if (grey.empty() || grey.type() != CV_8UC1 || maxSide < minSide)
        return {};

    cv::CascadeClassifier cascade;
    {
        const std::lock_guard lock(m_mutex);
        if (!m_idle.empty()) {
            cascade = m_idle.back();
            m_idle.pop_back();
        }
    }
    // A copy of a cv::CascadeClassifier shares its state, so a further thread reads the file again.
    if (cascade.empty() && !loadCascade(cascade, m_path))
        return {};

    std::vector<cv::Rect> rects;
    std::vector<int> hits;
    cascade.detectMultiScale(grey, rects, hits, step, 3, 0, {minSide, minSide}, {maxSide, maxSide});
    {
        const std::lock_guard lock(m_mutex);
        m_idle.push_back(cascade);
    }

    std::vector<Find> finds;
    for (std::size_t i = 0; i < rects.size(); ++i)
        finds.push_back({rects[i], hits[i]});
    return finds;
}

cv::Mat reduced(const cv::Mat &picture, double factor)
{
    const cv::Size size(std::max(1, cvRound(picture.cols * factor)),
                        std::max(1, cvRound(picture.rows * factor)));
    cv::Mat result;
    cv::resize(picture, result, size, 0, 0, cv::INTER_AREA);
    return result;
}

cv::Rect bodyOfFace(const cv::Rect &face)
{
    const int width = cvRound(face.width * bodyWidth);
    return {face.x + (face.width - width) / 2, cvRound(face.y - face.height * spaceAbove), width,
            cvRound(face.height * bodyHeight)};
}

cv::Rect faceOfBody(const cv::Rect &body)
{
    const int side = std::max(1, cvRound(body.width / bodyWidth));
    return {body.x + (body.width - side) / 2, cvRound(body.y + side * spaceAbove), side, side};
}

std::vector<cv::Rect> findFaces(const SharedCascade &cascade, const cv::Mat &grey, const cv::Rect &body,
                                const cv::Rect &area)
{
    const cv::Rect inside = clipped(area, grey.size());
    if (inside.empty() || clipped(body, grey.size()).empty())
        return {};

    const cv::Rect expected = faceOfBody(body);
    const double scale = std::min(1.0, workingFace / expected.width);
    const cv::Mat small = reduced(grey(inside), scale);
    const double side = expected.width * scale;

    std::vector<cv::Rect> faces;
    const auto distance = [&](const cv::Rect &face) { return cv::norm(centre(face) - centre(expected)); };
    for (const Find &find :
         cascade.find(small, 1.1, std::max(20, int(side * smallest)), int(side * biggest))) {
        const cv::Rect face(inside.x + cvRound(find.rect.x / scale), inside.y + cvRound(find.rect.y / scale),
                            cvRound(find.rect.width / scale), cvRound(find.rect.height / scale));
        faces.push_back(clipped(face, grey.size()));
    }
    std::sort(faces.begin(), faces.end(),
              [&](const cv::Rect &a, const cv::Rect &b) { return distance(a) < distance(b); });
    if (faces.empty() || distance(faces.front()) > farthest * expected.width)
        return {};
    return faces;
}

cv::Rect settledFace(const SharedCascade &cascade, const cv::Mat &grey, const cv::Rect &face)
{
    constexpr double side = 64.0;
    constexpr double margin = 1.08;
    const cv::Rect given = clipped(face, grey.size());
    const cv::Rect area = grown(given, 1.4, grey.size());
    if (area.empty())
        return given;
    const double scale = std::min(1.0, side / given.width);
    const cv::Mat small = reduced(grey(area), scale);
    const int expected = cvRound(given.width * scale);
    cv::Rect settled = given;
    double nearest = 0.3 * given.width;
    for (const Find &find : cascade.find(small, 1.05, std::max(20, expected * 6 / 10), expected * 14 / 10)) {
        const cv::Rect rect(area.x + cvRound(find.rect.x / scale), area.y + cvRound(find.rect.y / scale),
                            cvRound(find.rect.width / scale), cvRound(find.rect.height / scale));
        const double distance = cv::norm(centre(rect) - centre(given));
        if (distance >= nearest)
            continue;
        nearest = distance;
        settled = grown(rect, margin, grey.size());
    }
    return settled;
}

bool showsProfile(const SharedCascade &cascade, const cv::Mat &body)
{
    if (body.empty())
        return false;
    const double scale = std::min(1.0, workingFace * bodyWidth / body.cols);
    cv::Mat small = reduced(body, scale);
    if (!cascade.find(small, 1.1, 20, small.cols).empty())
        return true;
    // The cascade knows faces that look to the left only.
    cv::flip(small, small, 1);
    return !cascade.find(small, 1.1, 20, small.cols).empty();
}

std::optional<Eyes> findEyes(const SharedCascade &cascade, const cv::Mat &face)
{
    // Eyes lie in the upper part; below it the corners of the mouth look like eyes to a cascade.
    const cv::Rect band(0, eyeFinderSide / 8, eyeFinderSide, eyeFinderSide * 7 / 16);
    if (face.size() != cv::Size(eyeFinderSide, eyeFinderSide))
        return std::nullopt;

    const auto finds = cascade.find(face(band), 1.05, 24, 64);
    std::optional<Eyes> eyes;
    double leastTilt = 0.36;
    for (const Find &a : finds) {
        for (const Find &b : finds) {
            const cv::Point2d left = centre(a.rect + band.tl());
            const cv::Point2d right = centre(b.rect + band.tl());
            const double distance = right.x - left.x;
            if (left.x >= eyeFinderSide / 2.0 || right.x < eyeFinderSide / 2.0 ||
                distance < eyeFinderSide * 0.25 || distance > eyeFinderSide * 0.56)
                continue;
            const double tilt = std::abs(right.y - left.y) / distance;
            if (tilt > leastTilt)
                continue;
            leastTilt = tilt;
            eyes = Eyes{left, right};
        }
    }
    return eyes;
}

} // namespace mirovane::open

#pragma once

#include "fakes.h"
#include "source.h"

#include <limits>
#include <stdexcept>

/**
 * Recognisers whose results come from the bytes of an input: mostly such as a real one could give, and then
 * rectangles from anywhere, scores that are no numbers, lists of lengths that don't belong together, features
 * of other types, exceptions. They are called on the threads of the analyses and of requests.
 */
namespace garbage {

/// Where all of them get their bytes.
inline Source &bytes()
{
    static Source source;
    return source;
}

inline int result()
{
    if (bytes().oneIn(64))
        throw std::runtime_error("recogniser");
    if (bytes().oneIn(128))
        throw 7;
    return bytes().oneIn(16) ? bytes().take<std::int8_t>() : 0;
}

/// A list that is now and then longer or shorter than it should be.
inline std::size_t length(std::size_t right)
{
    return bytes().oneIn(32) ? std::size_t(bytes().choose(40)) : right;
}

inline int coordinate(int side)
{
    switch (bytes().choose(16)) {
    case 0:
        return bytes().take<std::int32_t>();
    case 1:
        return bytes().oneIn(2) ? std::numeric_limits<int>::max() : std::numeric_limits<int>::min();
    case 2:
        return -bytes().take<std::uint8_t>();
    default:
        return bytes().take<std::uint16_t>() % std::max(side, 1);
    }
}

inline cv::Rect rect(const cv::Size &picture)
{
    return {coordinate(picture.width), coordinate(picture.height), coordinate(300), coordinate(300)};
}

inline std::vector<cv::Rect> rects(const cv::Size &picture)
{
    std::vector<cv::Rect> list(std::size_t(bytes().choose(7)));
    for (cv::Rect &element : list)
        element = rect(picture);
    return list;
}

inline double score()
{
    static constexpr double edges[] = {0.0,
                                       0.9,
                                       1.0,
                                       -1.0,
                                       1e300,
                                       std::numeric_limits<double>::quiet_NaN(),
                                       std::numeric_limits<double>::infinity(),
                                       std::numeric_limits<double>::denorm_min()};
    return edges[bytes().choose(int(std::size(edges)))];
}

template <class Number>
std::vector<Number> scores(std::size_t right)
{
    std::vector<Number> list(length(right));
    for (Number &element : list)
        element = static_cast<Number>(score());
    return list;
}

inline std::vector<int> labels(std::size_t right)
{
    std::vector<int> list(length(right));
    for (int &label : list)
        label = bytes().oneIn(8) ? bytes().take<std::int32_t>() : bytes().choose(6);
    return list;
}

inline cv::Mat matrix(int columns)
{
    static constexpr int types[] = {CV_32F, CV_32F, CV_32F, CV_32F, CV_32F, CV_64F, CV_8U, CV_32FC3, CV_32S};
    const int width = bytes().oneIn(16) ? bytes().choose(64) : columns;
    const int height = bytes().oneIn(16) ? bytes().choose(4) : 1;
    cv::Mat result = cv::Mat::zeros(height, width, types[bytes().choose(int(std::size(types)))]);
    if (result.type() == CV_32F) {
        for (int i = 0; i < std::min(width * height, 4); ++i)
            result.at<float>(i / width, i % width) = static_cast<float>(score());
    }
    return result;
}

struct Gallery : scripted::FaceID
{
    int registerFace(const cv::Mat &, int) override
    {
        result();
        return bytes().oneIn(8) ? bytes().take<std::int32_t>() : nextID++ % 8;
    }
    int identify(const cv::Mat &, int *id, bool) override
    {
        *id = anyId();
        return result();
    }
    int extractFeature(const cv::Mat &, cv::Mat *feature, bool) override
    {
        *feature = matrix(16);
        return result();
    }
    int identifyAll(const cv::Mat &, int *id, cv::Mat *feature, std::vector<int> *candidates,
                    std::vector<double> *list, bool) override
    {
        *id = anyId();
        *feature = matrix(16);
        *candidates = labels(8);
        *list = scores<double>(8);
        return result();
    }
    int removeFace(int) override { return result(); }
    void clearFaces() override { result(); }

    static int anyId() { return bytes().oneIn(8) ? bytes().take<std::int32_t>() : bytes().choose(9) - 1; }
};

/// One class and one score for each of some things.
inline int classes(std::size_t count, std::vector<int> &states, std::vector<float> &list)
{
    states = labels(count);
    list = scores<float>(count);
    return result();
}

inline int faces(const cv::Mat &image, std::vector<cv::Rect> &found, std::vector<float> &list,
                 std::vector<std::vector<cv::Point>> &landmarks)
{
    found = rects(image.size());
    list = scores<float>(found.size());
    landmarks.resize(length(found.size()));
    for (std::vector<cv::Point> &points : landmarks) {
        points.resize(length(5));
        for (cv::Point &point : points)
            point = {coordinate(image.cols), coordinate(image.rows)};
    }
    return result();
}

inline int bodies(const cv::Mat &image, std::vector<cv::Rect> &found, std::vector<float> &list)
{
    found = rects(image.size());
    list = scores<float>(found.size());
    return result();
}

inline int attributes(std::size_t count, std::vector<mirovane::FaceAttrResult> &results)
{
    results.resize(length(count));
    for (mirovane::FaceAttrResult &one : results)
        one.labels = garbage::labels(1);
    return result();
}

inline int emotion(int &label, float &certainty)
{
    label = bytes().choose(3);
    certainty = static_cast<float>(score());
    return result();
}

inline int poses(const cv::Mat &image, std::vector<cv::Rect> &found, std::vector<cv::Mat> &points)
{
    found = rects(image.size());
    points.resize(length(found.size()));
    for (cv::Mat &row : points)
        row = matrix(36);
    return result();
}

} // namespace garbage

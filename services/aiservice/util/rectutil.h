#pragma once

#include <opencv2/core.hpp>

#include <QVariantMap>

#include <algorithm>

/**
 * What the whole service does with rectangles that come from outside: from clients, from the store and
 * from recognisers. All functions are free of state and safe on any thread.
 */
namespace rect_util {

/// Far outside every picture, and small enough for sums, doublings and products in 64 bits.
constexpr int largestCoordinate = 1 << 20;

inline int bounded(int value)
{
    return std::clamp(value, -largestCoordinate, largestCoordinate);
}

/// The same rectangle, its values cut to a range in which the arithmetic on it can't overflow. A
/// rectangle of any real picture comes back unchanged.
inline cv::Rect bounded(const cv::Rect &rect)
{
    return cv::Rect(bounded(rect.x), bounded(rect.y), bounded(rect.width), bounded(rect.height));
}

/// The part of the rectangle that lies in a picture of this size; empty (all 0) if none does.
inline cv::Rect clipped(const cv::Rect &rect, const cv::Size &picture)
{
    return bounded(rect) & cv::Rect(cv::Point(0, 0), picture);
}

/// Sets the keys "x", "y", "width" and "height" (int) of the map.
inline void insert(QVariantMap &map, const cv::Rect &rect)
{
    map.insert(QStringLiteral("x"), rect.x);
    map.insert(QStringLiteral("y"), rect.y);
    map.insert(QStringLiteral("width"), rect.width);
    map.insert(QStringLiteral("height"), rect.height);
}

/// Reads the same keys; a missing one is 0.
inline cv::Rect fromMap(const QVariantMap &map)
{
    return cv::Rect(map.value(QStringLiteral("x")).toInt(), map.value(QStringLiteral("y")).toInt(),
                    map.value(QStringLiteral("width")).toInt(), map.value(QStringLiteral("height")).toInt());
}

/// The words of the log: " x: 1 y: 2 width: 3 height: 4".
inline QString text(const cv::Rect &rect)
{
    return QStringLiteral(" x: %1 y: %2 width: %3 height: %4")
        .arg(rect.x)
        .arg(rect.y)
        .arg(rect.width)
        .arg(rect.height);
}

} // namespace rect_util

#pragma once

#include <opencv2/core.hpp>

#include <QString>
#include <QVariantMap>

/**
 * One player of the function game: a fixed region around the student, and in each frame the key points
 * of the biggest person in it. Used by one thread at a time.
 */
class StudentBodyposeDetecion
{
public:
    /// @param position the student's body at the start of the game, in frame pixels
    StudentBodyposeDetecion(const QString &stuID, const cv::Rect &position);

    /// Computes the region and returns it: "stuID", "x", "y", "width", "height". The region doesn't
    /// follow the student afterwards.
    QVariantMap info();

    /// One frame: "stuID" and "bones", a list of maps with "x" and "y" in frame pixels; empty without a
    /// pose network or without a person in the region.
    QVariantMap detect(const cv::Mat &frame);

private:
    cv::Mat findKeyPoints(const cv::Mat &frame) const;

    QString m_stuID;
    cv::Rect m_position;
    cv::Rect m_region; ///< all 0 until info()
};

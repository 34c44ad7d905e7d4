#pragma once

#include "studentinfo.h"

#include <QVariantMap>
#include <QVector>

#include <vector>

/// What the analyses of the class share: who is where in this frame, and how a student is reported.
namespace student_state {

/// Gives the bodies of a frame to the students and returns copies of those found.
/// @param frameNumber for the logs
QVector<StudentInfo> identify(const cv::Mat &frame, const std::vector<cv::Rect> &bodies, int frameNumber);

/// The body rectangles of the students, in order.
std::vector<cv::Rect> bodyRects(const QVector<StudentInfo> &students);

/// The map "stuID", "state", "x", "y", "width", "height" of a student with his body rectangle.
QVariantMap entry(const StudentInfo &student, int state);

} // namespace student_state

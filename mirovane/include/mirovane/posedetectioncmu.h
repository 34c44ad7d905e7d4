#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace mirovane {

/**
 * Finds bodies with their key points in a picture (CV_8UC3, blue-green-red). Called from several threads
 * at once without a lock: must be reentrant. The service has no factory for it.
 */
class PoseDetectionCMU
{
public:
    virtual ~PoseDetectionCMU() = default;

    virtual void reserved1() = 0;
    virtual void reserved2() = 0;

    /// Appends one rectangle and one matrix for each body, in step. A matrix is one row of floats
    /// x0, y0, x1, y1, ... in pixels of the picture.
    virtual int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<cv::Mat> &keyPoints,
                       bool option) = 0;
};

} // namespace mirovane

#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/**
 * Finds the faces of a picture, with five landmarks each on request.
 *
 * Pictures are CV_8UC3 in blue-green-red order; rectangles and points are pixels of that picture. The
 * lists are appended to and stay in step with one another. No operation needs to be reentrant: the
 * caller takes turns.
 */
class MIROVANE_API FaceDetectionMTCNN
{
public:
    virtual ~FaceDetectionMTCNN() = default;

    /// Makes a detector from the files of its three stages and the common configuration, all full
    /// paths. Null on failure. The caller owns the object.
    static FaceDetectionMTCNN *create(const std::string &stage1, const std::string &stage2,
                                      const std::string &stage3, const std::string &config);

    /// One rectangle, one score and one landmark list for each face. A landmark list has five points:
    /// left eye, right eye, nose, left mouth corner, right mouth corner, as seen in the picture.
    virtual int detectWithLandmarks(const cv::Mat &image, std::vector<cv::Rect> &faces,
                                    std::vector<float> &scores,
                                    std::vector<std::vector<cv::Point>> &landmarks, bool option) = 0;

    /// The same without landmarks.
    virtual int detect(const cv::Mat &image, std::vector<cv::Rect> &faces, std::vector<float> &scores,
                       bool option) = 0;
};

} // namespace mirovane

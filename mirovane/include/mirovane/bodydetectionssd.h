#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/**
 * Finds the upper bodies of a picture (CV_8UC3, blue-green-red). Need not be reentrant: the caller takes
 * turns.
 */
class MIROVANE_API BodyDetectionSSD
{
public:
    virtual ~BodyDetectionSSD() = default;

    /// Makes a recogniser from its model file and the common configuration, both full paths.
    /// Null on failure. The caller owns the object.
    static BodyDetectionSSD *create(const std::string &model, const std::string &config);

    /// Appends one rectangle, in pixels of the picture, and one score for each body.
    virtual int detect(const cv::Mat &image, std::vector<cv::Rect> &bodies, std::vector<float> &scores,
                       bool option) = 0;
};

} // namespace mirovane

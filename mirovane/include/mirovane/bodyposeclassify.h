#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/**
 * Tells the pose class (0 to 4) of bodies in a picture (CV_8UC3, blue-green-red). Called from several
 * threads at once without a lock: must be reentrant.
 */
class MIROVANE_API BodyPoseClassify
{
public:
    virtual ~BodyPoseClassify() = default;

    /// Makes a recogniser from its model file and the common configuration, both full paths.
    /// Null on failure. The caller owns the object.
    static BodyPoseClassify *create(const std::string &model, const std::string &config);

    virtual void reserved1() = 0;
    virtual void reserved2() = 0;

    /// Appends one class and one score for each rectangle, in order.
    virtual int classify(const cv::Mat &image, const std::vector<cv::Rect> &bodies, std::vector<int> &labels,
                         std::vector<float> &scores, bool option) = 0;
};

} // namespace mirovane

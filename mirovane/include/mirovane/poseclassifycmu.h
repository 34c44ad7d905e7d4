#pragma once

#include <opencv2/core.hpp>

#include <vector>

namespace mirovane {

/**
 * Tells a pose label from key points. Called from several threads at once without a lock: must be
 * reentrant. The service has no factory for it.
 */
class PoseClassifyCMU
{
public:
    virtual ~PoseClassifyCMU() = default;

    virtual void reserved1() = 0;

    /// Appends one state and one score for each matrix, in order.
    virtual int classify(const std::vector<cv::Mat> &keyPoints, std::vector<int> &states,
                         std::vector<float> &scores) = 0;
};

} // namespace mirovane

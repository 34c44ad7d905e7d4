#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/**
 * Tells the emotion of one face picture (CV_8UC3, blue-green-red, any size). Need not be reentrant: the
 * caller takes turns.
 */
class MIROVANE_API FaceEmotionClassify
{
public:
    virtual ~FaceEmotionClassify() = default;

    /// Makes a recogniser from its model file and the common configuration, both full paths.
    /// Null on failure. The caller owns the object.
    static FaceEmotionClassify *create(const std::string &model, const std::string &config);

    virtual void reserved1() = 0;
    virtual void reserved2() = 0;
    virtual void reserved3() = 0;

    /// Sets the class (1 is a smile) and its score between 0 and 1.
    virtual int classify(const cv::Mat &face, int *label, float *score, bool option) = 0;
};

} // namespace mirovane

#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/// The attributes of one face.
struct FaceAttrResult
{
    std::vector<int> labels;        ///< one value per attribute; bit 0 of the first: wears glasses
    unsigned char reserved[8] = {}; ///< the library's own, copied along
};

/**
 * Tells the attributes of faces. Pictures are CV_8UC3 in blue-green-red order, rectangles are pixels of
 * the picture. Need not be reentrant: the caller takes turns.
 */
class MIROVANE_API FaceAttrDetection
{
public:
    virtual ~FaceAttrDetection() = default;

    /// Makes a recogniser from its model file and the common configuration, both full paths.
    /// Null on failure. The caller owns the object.
    static FaceAttrDetection *create(const std::string &model, const std::string &config);

    /// Appends one record for each rectangle, in order.
    virtual int detect(const cv::Mat &image, const std::vector<cv::Rect> &faces,
                       std::vector<FaceAttrResult> &results, bool option) = 0;
};

} // namespace mirovane

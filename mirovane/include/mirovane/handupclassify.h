#pragma once

#include "mirovane/api.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace mirovane {

/**
 * Judges whether the crops of a picture (CV_8UC3, blue-green-red) show a raised hand. Need not be
 * reentrant: the caller takes turns.
 */
class MIROVANE_API HandupClassify
{
public:
    virtual ~HandupClassify() = default;

    /// Makes a recogniser from its model file and the common configuration, both full paths.
    /// Null on failure. The caller owns the object.
    static HandupClassify *create(const std::string &model, const std::string &config);

    virtual void reserved1() = 0;
    virtual void reserved2() = 0;

    /// Appends one label (0: a hand is up; anything else: none is) and one score for each rectangle, in
    /// order. A rectangle may reach below the picture's last row: the library clips it.
    virtual int classify(const cv::Mat &image, const std::vector<cv::Rect> &rects, std::vector<int> &labels,
                         std::vector<float> &scores, bool option) = 0;
};

} // namespace mirovane

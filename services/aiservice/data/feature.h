#pragma once

#include <opencv2/core.hpp>

/// What the service computes with features of faces. They come out of foreign libraries, so any matrix may
/// be one. Free of state, safe on any thread.
namespace feature {

/// Whether two features can be compared and added: both of them floating point numbers in single or double
/// precision, of the same type and shape, and not empty.
bool fits(const cv::Mat &first, const cv::Mat &second);

/// Cosine of two features; 0.0 where it can't be told: they don't fit, or one of them is zero.
double similarity(const cv::Mat &first, const cv::Mat &second);

} // namespace feature

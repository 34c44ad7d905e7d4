#pragma once

#include <opencv2/core.hpp>

#include <string>

/**
 * What the open recognisers share: loading a model file, and taking pictures and rectangles of any
 * quality without an exception.
 */
namespace mirovane::open {

/// Whether the path is a file with something in it. OpenCV writes a line on standard error for one that it
/// cannot open, so that is found out first.
bool isReadable(const std::string &path);

/// Opens a YAML or XML file of numbers whose text "class" is the given name. False, without an exception,
/// when the file is absent, is neither, or belongs to another class.
bool openModel(cv::FileStorage &file, const std::string &path, const std::string &className);

/// The path of a further file that lies beside a model file.
std::string besideModel(const std::string &modelPath, const std::string &fileName);

/// The part of the rectangle that lies in a picture of the size; empty (all zero) when there is none.
/// Sides and sums of any size are taken: nothing overflows.
cv::Rect clipped(const cv::Rect &rect, const cv::Size &size);

/// The rectangle grown about its centre by a factor, clipped to the size.
cv::Rect grown(const cv::Rect &rect, double factor, const cv::Size &size);

/// A grey CV_8UC1 picture of an 8-bit picture with one, three or four channels; empty for anything else.
/// A picture that is grey already is shared, not copied.
cv::Mat toGrey(const cv::Mat &image);

/// Whether two pictures hold the same pixels.
bool samePixels(const cv::Mat &a, const cv::Mat &b);

} // namespace mirovane::open

#include "common.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>

namespace mirovane::open {

bool isReadable(const std::string &path)
{
    return std::ifstream(path, std::ios::binary).peek() != std::ifstream::traits_type::eof();
}

bool openModel(cv::FileStorage &file, const std::string &path, const std::string &className)
{
    if (!isReadable(path))
        return false;
    try {
        if (!file.open(path, cv::FileStorage::READ))
            return false;
        const auto node = file["class"];
        return node.isString() && node.string() == className;
    } catch (const cv::Exception &) {
        return false;
    }
}

std::string besideModel(const std::string &modelPath, const std::string &fileName)
{
    const auto separator = modelPath.find_last_of("/\\");
    if (separator == std::string::npos)
        return fileName;
    return modelPath.substr(0, separator + 1) + fileName;
}

cv::Rect clipped(const cv::Rect &rect, const cv::Size &size)
{
    const auto left = std::max<std::int64_t>(rect.x, 0);
    const auto top = std::max<std::int64_t>(rect.y, 0);
    const auto right = std::min<std::int64_t>(std::int64_t(rect.x) + rect.width, size.width);
    const auto bottom = std::min<std::int64_t>(std::int64_t(rect.y) + rect.height, size.height);
    if (right <= left || bottom <= top)
        return {};
    return {int(left), int(top), int(right - left), int(bottom - top)};
}

cv::Rect grown(const cv::Rect &rect, double factor, const cv::Size &size)
{
    const auto inside = clipped(rect, size);
    const auto dx = cvRound(inside.width * (factor - 1) / 2);
    const auto dy = cvRound(inside.height * (factor - 1) / 2);
    return clipped({inside.x - dx, inside.y - dy, inside.width + 2 * dx, inside.height + 2 * dy}, size);
}

cv::Mat toGrey(const cv::Mat &image)
{
    if (image.empty() || image.dims != 2 || image.depth() != CV_8U)
        return {};
    cv::Mat grey;
    switch (image.channels()) {
    case 1:
        return image;
    case 3:
        cv::cvtColor(image, grey, cv::COLOR_BGR2GRAY);
        return grey;
    case 4:
        cv::cvtColor(image, grey, cv::COLOR_BGRA2GRAY);
        return grey;
    default:
        return {};
    }
}

bool samePixels(const cv::Mat &a, const cv::Mat &b)
{
    if (a.size() != b.size() || a.type() != b.type())
        return false;
    const size_t bytes = size_t(a.cols) * a.elemSize();
    for (int row = 0; row < a.rows; ++row) {
        if (std::memcmp(a.ptr(row), b.ptr(row), bytes) != 0)
            return false;
    }
    return true;
}

} // namespace mirovane::open

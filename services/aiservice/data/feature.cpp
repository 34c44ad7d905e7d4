#include "feature.h"

#include <cmath>

bool feature::fits(const cv::Mat &first, const cv::Mat &second)
{
    return !first.empty() && (first.depth() == CV_32F || first.depth() == CV_64F) &&
           first.type() == second.type() && first.size == second.size;
}

double feature::similarity(const cv::Mat &first, const cv::Mat &second)
{
    if (!fits(first, second))
        return 0.0;
    const double a = first.dot(second);
    const double x1 = first.dot(first);
    const double x2 = second.dot(second);
    if (x2 * a * x1 == 0.0)
        return 0.0;
    return a / std::sqrt(x1) / std::sqrt(x2);
}

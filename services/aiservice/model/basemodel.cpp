#include "basemodel.h"

#include "rectutil.h"

#include <QDebug>

BaseModel::BaseModel(const cv::Mat &image, bool available)
    : m_image(&image), m_width(image.cols), m_height(image.rows), m_available(available), m_finished(false)
{
}

bool BaseModel::hasLength(const char *name, size_t length, size_t expected)
{
    if (length == expected)
        return true;
    qCritical("[%s] recogniser delivered %zu results instead of %zu", name, length, expected);
    return false;
}

void BaseModel::bound(std::vector<cv::Rect> &rects)
{
    for (cv::Rect &rect : rects)
        rect = rect_util::bounded(rect);
}

void BaseModel::logThrown(const char *name, const char *what)
{
    qCritical("[%s] recogniser threw: %s", name, what);
}

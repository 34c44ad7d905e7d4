#include "studentbodyposedetecion.h"

#include "aiconfig.h"
#include "modelmanager.h"
#include "rectutil.h"

#include <opencv2/imgproc.hpp>

#include <QDebug>

#include <cmath>
#include <cstdint>

namespace {

constexpr int regionWidth = 550;
constexpr int regionHeight = 700;
/// The picture that the pose network gets.
constexpr int pictureWidth = 400;
constexpr int pictureHeight = 510;
// Picture by region, rounded to floats.
constexpr float scaleX = 0.72727275F;
constexpr float scaleY = 0.7285714F;

/// Cuts a coordinate of a network to an integer; what no picture can hold becomes a bound.
int truncated(float value)
{
    if (std::isnan(value))
        return 0;
    constexpr auto bound = static_cast<float>(rect_util::largestCoordinate);
    return static_cast<int>(std::clamp(value, -bound, bound));
}

/// Index of the rectangle with the largest area, the first of equal ones; -1 if all areas are 0.
int largest(const std::vector<cv::Rect> &rects)
{
    int best = -1;
    std::int64_t bestArea = 0;
    for (size_t i = 0; i < rects.size(); ++i) {
        const std::int64_t area = std::int64_t{rects[i].width} * rects[i].height;
        if (area > bestArea) {
            bestArea = area;
            best = static_cast<int>(i);
        }
    }
    return best;
}

} // namespace

StudentBodyposeDetecion::StudentBodyposeDetecion(const QString &stuID, const cv::Rect &position)
    : m_stuID(stuID), m_position(rect_util::bounded(position))
{
}

QVariantMap StudentBodyposeDetecion::info()
{
    const int frameWidth = AIConfig::instance().frameWidth;
    const int frameHeight = AIConfig::instance().frameHeight;
    m_region.x = std::max(m_position.x - (regionWidth - m_position.width) / 2, 0);
    m_region.y = std::max(m_position.y - (regionHeight - m_position.height) / 2, 0);
    m_region.width = std::min(regionWidth, frameWidth - m_region.x);
    m_region.height = std::min(regionHeight, frameHeight - m_region.y);
    // At the right edge x is pulled back, the width isn't; y is never pulled back.
    if (m_region.width == frameWidth - m_region.x)
        m_region.x = frameWidth - regionWidth;

    QVariantMap map{{QStringLiteral("stuID"), m_stuID}};
    rect_util::insert(map, m_region);
    qInfo().noquote().nospace() << "[functionGame] stu info,stuID: " << m_stuID << rect_util::text(m_region);
    return map;
}

QVariantMap StudentBodyposeDetecion::detect(const cv::Mat &frame)
{
    QVariantList bones;
    QString text;
    const cv::Mat points = findKeyPoints(frame);
    for (int i = 0; i < points.cols / 2; ++i) {
        const int x = truncated(points.at<float>(0, 2 * i) / scaleX + static_cast<float>(m_region.x));
        const int y = truncated(points.at<float>(0, 2 * i + 1) / scaleY + static_cast<float>(m_region.y));
        bones.append(QVariantMap{{QStringLiteral("x"), x}, {QStringLiteral("y"), y}});
        text += QStringLiteral("x: %1 y: %2").arg(x).arg(y);
    }
    qInfo().noquote().nospace() << "[functionGame] stuID: " << m_stuID << " bones: " << text;
    return {{QStringLiteral("stuID"), m_stuID}, {QStringLiteral("bones"), bones}};
}

/// The key points of the biggest person in the region, one row of floats; empty if there is none.
cv::Mat StudentBodyposeDetecion::findKeyPoints(const cv::Mat &frame) const
{
    const cv::Rect region = rect_util::clipped(m_region, frame.size());
    if (region.empty())
        return cv::Mat();
    cv::Mat picture;
    cv::resize(frame(region), picture, cv::Size(pictureWidth, pictureHeight), 0, 0, cv::INTER_LINEAR);
    const auto model = ModelManager::instance().createCMUSingleModel(picture);
    if (!model->detect())
        return cv::Mat();
    const int person = largest(model->m_rects);
    if (person == -1)
        return cv::Mat();
    const cv::Mat points = model->m_keyPoints[person];
    return points.type() == CV_32FC1 && points.rows >= 1 ? points : cv::Mat();
}

#include "studenttracker.h"

#include "aiconfig.h"
#include "datamanager.h"
#include "modelmanager.h"
#include "protocol.h"
#include "rectutil.h"

#include <opencv2/imgproc.hpp>
#include <opencv2/tracking.hpp>
// The legacy header needs the one above.
#include <opencv2/tracking/tracking_legacy.hpp>

#include <QDebug>

#include <cmath>

namespace {

// The frame and its half, as numbers: they don't follow the frame at hand.
constexpr int fullWidth = 1920;
constexpr int fullHeight = 1080;
constexpr int halfWidth = 960;
constexpr int halfHeight = 540;
/// Around the face, at half scale, where tracking starts.
constexpr int startMargin = 10;
/// Around the tracked box, at half scale, where the face is looked for.
constexpr int searchMargin = 60;
/// The farthest (squared, at half scale) that box and face may lie apart.
constexpr int largestDistance = 100;

bool touches(const cv::Rect2d &box, const cv::Mat &picture)
{
    return box.width >= 1 && box.height >= 1 &&
           (box & cv::Rect2d(0, 0, picture.cols, picture.rows)).area() > 0;
}

/// A full-scale value of a report.
int doubled(int value)
{
    return 2 * value < 1 ? 0 : 2 * value;
}

} // namespace

StudentTracker::StudentTracker(const QString &requestID, int faceID, const cv::Rect &face, QObject *parent)
    : QObject(parent), m_requestID(requestID), m_faceID(faceID)
{
    m_tracker = cv::legacy::TrackerKCF::create();
    m_stuID = DataManager::instance()->getStudentID(faceID);
    const cv::Rect sane = rect_util::bounded(face);
    m_rect.x = std::max(sane.x / 2 - startMargin, 0);
    m_rect.y = std::max(sane.y / 2 - startMargin, 0);
    m_rect.width = std::min(halfWidth - m_rect.x, sane.width / 2 + 2 * startMargin);
    m_rect.height = std::min(halfHeight - m_rect.y, sane.height / 2 + 2 * startMargin);
}

StudentTracker::~StudentTracker() = default;

bool StudentTracker::startTracking(const cv::Mat &frame)
{
    QMutexLocker locker(&m_lock);
    if (!m_tracker)
        return false;
    m_running = true;
    cv::Mat half;
    cv::resize(frame, half, cv::Size(frame.cols / 2, frame.rows / 2), 0, 0, cv::INTER_LINEAR);
    report(follow(frame, half));
    return true;
}

void StudentTracker::stop()
{
    m_stopping.store(true, std::memory_order_relaxed);
    QMutexLocker locker(&m_lock);
    m_tracker.reset();
    m_running = false;
}

/// One step of the tracker. The box to report, at half scale.
cv::Rect StudentTracker::follow(const cv::Mat &frame, const cv::Mat &half)
{
    if (!m_inited) {
        m_inited = initTracker(half, m_rect);
        if (!m_inited)
            qWarning("[Tracking] tracker init failed");
        return m_rect;
    }
    if (!updateTracker(half)) {
        m_tracker = cv::legacy::TrackerKCF::create();
        m_inited = initTracker(half, m_lastBox);
        return cv::Rect(m_lastBox);
    }
    m_lastBox = m_bbox;
    const cv::Rect face = findFace(frame);
    if (!face.empty() && hasStrayed(face) && rectify(half, face))
        return m_rect;
    return cv::Rect(m_bbox);
}

bool StudentTracker::initTracker(const cv::Mat &half, const cv::Rect2d &box)
{
    try {
        return touches(box, half) && m_tracker->init(half, box);
    } catch (const cv::Exception &error) {
        qWarning("[Tracking] tracker threw: %s", error.what());
        return false;
    }
}

bool StudentTracker::updateTracker(const cv::Mat &half)
{
    try {
        return m_tracker->update(half, m_bbox) && touches(m_bbox, half);
    } catch (const cv::Exception &error) {
        qWarning("[Tracking] tracker threw: %s", error.what());
        return false;
    }
}

cv::Rect StudentTracker::findFace(const cv::Mat &frame) const
{
    const int x0 = std::max(static_cast<int>(m_bbox.x) - searchMargin, 0);
    const int y0 = std::max(static_cast<int>(m_bbox.y) - searchMargin, 0);
    const int x = 2 * x0;
    const int y = 2 * y0;
    // Columns and rows of the full frame against a place at half scale: the region reaches further to the
    // right and to the bottom than the margin alone.
    const int width = std::min(
        fullWidth - x, 2 * std::min(frame.cols - x0, static_cast<int>(m_bbox.width) + 2 * searchMargin));
    const int height = std::min(
        fullHeight - y, 2 * std::min(frame.rows - y0, static_cast<int>(m_bbox.height) + 2 * searchMargin));
    const cv::Mat region = frame(rect_util::clipped(cv::Rect(x, y, width, height), frame.size())).clone();
    if (region.empty())
        return cv::Rect();

    const auto detector = ModelManager::instance().createMTCNNModel(region, true);
    if (!detector->detect())
        return cv::Rect();
    const std::vector<cv::Mat> crops = detector->cropHeads(AIConfig::instance().identifyEyeDistance);
    for (size_t i = 0; i < crops.size() && !m_stopping.load(std::memory_order_relaxed); ++i) {
        const auto model = ModelManager::instance().createFaceIDModel(crops[i], FaceIDModel::Identify);
        if (!model->detect() || model->m_id != m_faceID)
            continue;
        const cv::Rect face = detector->m_rects[i] + cv::Point(x, y);
        qWarning().nospace() << "[tracker] faceid rect x: " << face.x << " y: " << face.y
                             << " width: " << face.width << "height: " << face.height;
        return face;
    }
    return cv::Rect();
}

bool StudentTracker::hasStrayed(const cv::Rect &face) const
{
    const int dx = static_cast<int>(m_bbox.x + m_bbox.width * 0.5) - face.x / 2 - (face.width / 2) / 2;
    const int dy = static_cast<int>(m_bbox.y + m_bbox.height * 0.5) - (face.height / 2) / 2 - face.y / 2;
    return std::int64_t{dx} * dx + std::int64_t{dy} * dy > largestDistance;
}

/// Restarts the tracker on the face. The left edge stays where the constructor has put it.
bool StudentTracker::rectify(const cv::Mat &half, const cv::Rect &face)
{
    qWarning("[tracker] rectify rect");
    m_rect.y = std::max(face.y / 2 - startMargin, 0);
    m_rect.width = std::min(half.cols - m_rect.x, face.width / 2 + 2 * startMargin);
    m_rect.height = std::min(half.rows - m_rect.y, face.height / 2 + 2 * startMargin);
    m_tracker = cv::legacy::TrackerKCF::create();
    m_inited = initTracker(half, m_rect);
    if (!m_inited) {
        qWarning("[tracker] rectify failed");
        return false;
    }
    m_lastBox = m_bbox;
    return true;
}

void StudentTracker::report(const cv::Rect &halfBox)
{
    const int x = doubled(halfBox.x);
    const int y = doubled(halfBox.y);
    const cv::Rect box(x, y, std::min(fullWidth - x, 2 * halfBox.width),
                       std::min(fullHeight - y, 2 * halfBox.height));
    QVariantMap payload{{QStringLiteral("stuID"), m_stuID}};
    rect_util::insert(payload, box);
    qInfo().noquote().nospace() << "[studentTracking] stuID: " << m_stuID << rect_util::text(box);
    emit serviceMessgeSignal(code(ai::Event::Followed), payload, m_requestID);
}

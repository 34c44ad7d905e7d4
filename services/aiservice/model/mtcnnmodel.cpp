#include "mtcnnmodel.h"

#include "aiconfig.h"
#include "rectutil.h"

#include <opencv2/imgproc.hpp>

#include <QDebug>

#include <array>
#include <cmath>
#include <limits>

namespace {

constexpr int cropSize = 128;
constexpr float eyeCentreX = 0.5F;
constexpr float eyeCentreY = 0.45F;

/// Adds without leaving the range of an int.
int saturatingSum(int sum, double square)
{
    constexpr double largest = std::numeric_limits<int>::max();
    const int term = static_cast<int>(std::min(square, largest));
    return static_cast<int>(std::min(largest, static_cast<double>(sum) + term));
}

} // namespace

MTCNNModel::MTCNNModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceDetectionMTCNN> recogniser,
                       bool withLandmarks)
    : BaseModel(image, Recogniser::Faces, recogniser != nullptr),
      m_recogniser(std::move(recogniser)),
      m_withLandmarks(withLandmarks)
{
}

void MTCNNModel::call()
{
    if (m_withLandmarks)
        m_recogniser->detectWithLandmarks(*m_image, m_rects, m_scores, m_landmarks, false);
    else
        m_recogniser->detect(*m_image, m_rects, m_scores, false);
}

bool MTCNNModel::fits() const
{
    return !m_withLandmarks || hasLength(m_landmarks.size(), m_rects.size());
}

void MTCNNModel::discard()
{
    m_rects.clear();
    m_scores.clear();
    m_landmarks.clear();
}

void MTCNNModel::conclude()
{
    bound(m_rects);
    for (std::vector<cv::Point> &points : m_landmarks) {
        for (cv::Point &point : points)
            point = cv::Point(rect_util::bounded(point.x), rect_util::bounded(point.y));
    }
}

QString MTCNNModel::subject() const
{
    return QStringLiteral("mtcnn size: %1").arg(m_rects.size());
}

void MTCNNModel::emitFinished(bool ret)
{
    emit finished(ret, this);
}

void MTCNNModel::expandFaces()
{
    if (!m_finished)
        return;
    const int padding = AIConfig::instance().faceRectPadding;
    for (cv::Rect &rect : m_rects) {
        rect =
            cv::Rect(rect.x - padding, rect.y - padding, rect.width + 2 * padding, rect.height + 2 * padding);
        rect.x = std::max(rect.x, 0);
        rect.y = std::max(rect.y, 0);
        rect.width = std::min(rect.width, m_width - rect.x);
        rect.height = std::min(rect.height, m_height - rect.y);
    }
}

std::vector<cv::Point> MTCNNModel::faceCentres()
{
    std::vector<cv::Point> centres;
    if (!m_finished)
        return centres;
    centres.reserve(m_rects.size());
    for (const cv::Rect &rect : m_rects)
        centres.emplace_back(rect.x + rect.width / 2, rect.y + rect.height / 2);
    return centres;
}

std::vector<cv::Mat> MTCNNModel::cropHeads(int eyeDistance)
{
    std::vector<cv::Mat> heads;
    if (!m_finished || !m_withLandmarks)
        return heads;
    heads.reserve(m_landmarks.size());
    for (std::vector<cv::Point> &landmarks : m_landmarks) {
        cv::Mat head = cropHeadMat(landmarks, eyeDistance, cropSize, eyeCentreX, eyeCentreY);
        if (!head.empty())
            heads.push_back(std::move(head));
    }
    return heads;
}

cv::Mat MTCNNModel::cropHeadMat(std::vector<cv::Point> &landmarks, int eyeDistance, int size, float xRatio,
                                float yRatio)
{
    if (!m_finished || !m_withLandmarks)
        return cv::Mat();
    // A list without two eyes is treated like one whose eyes coincide.
    const cv::Point first = landmarks.size() < 2 ? cv::Point() : landmarks[0];
    const cv::Point second = landmarks.size() < 2 ? cv::Point() : landmarks[1];
    const cv::Point middle((first.x + second.x) / 2, (first.y + second.y) / 2); // whole pixels
    const cv::Point2f centre = middle;
    const double dx = second.x - first.x;
    const double dy = second.y - first.y;
    const double distance = std::sqrt(dx * dx + dy * dy);
    if (distance == 0.0) {
        qWarning("the eye distance is zero");
        return cv::Mat();
    }

    const float angle = cv::fastAtan2(static_cast<float>(dy), static_cast<float>(dx));
    cv::Mat matrix = cv::getRotationMatrix2D(centre, angle, eyeDistance / distance);
    matrix.at<double>(0, 2) += static_cast<float>(size) * xRatio - centre.x;
    matrix.at<double>(1, 2) += static_cast<float>(size) * yRatio - centre.y;

    cv::Mat head;
    const bool cut = guarded([&] {
        cv::warpAffine(*m_image, head, matrix, cv::Size(size, size),
                       cv::INTER_LINEAR | cv::WARP_FILL_OUTLIERS, cv::BORDER_CONSTANT, cv::Scalar());
    });
    return cut ? head : cv::Mat();
}

std::vector<int> MTCNNModel::landmarkOffsets()
{
    static const std::array<cv::Point, 5> reference{cv::Point(43, 55), cv::Point(93, 54), cv::Point(69, 81),
                                                    cv::Point(48, 98), cv::Point(88, 97)};
    std::vector<int> offsets;
    if (!m_finished || !m_withLandmarks)
        return offsets;
    offsets.reserve(m_landmarks.size());
    for (size_t face = 0; face < m_landmarks.size(); ++face) {
        const std::vector<cv::Point> &points = m_landmarks[face];
        int sum = 0;
        for (size_t i = 0; i < std::min(points.size(), reference.size()); ++i) {
            const double dx = points[i].x - m_rects[face].x - reference[i].x;
            const double dy = points[i].y - m_rects[face].y - reference[i].y;
            sum = saturatingSum(sum, dx * dx + dy * dy);
        }
        offsets.push_back(sum);
    }
    return offsets;
}

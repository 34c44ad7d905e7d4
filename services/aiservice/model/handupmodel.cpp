#include "handupmodel.h"

#include "rectutil.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QMutex>

namespace {

QMutex recogniserLock;

constexpr size_t cropsPerBody = 3;
/// Least score at which one of the crops rules a hand out. The scores are floats, compared as doubles:
/// the nearest float to 0.8 counts as 0.8.
constexpr double sureScore = 0.8;

} // namespace

HandupModel::HandupModel(const cv::Mat &image, std::shared_ptr<mirovane::HandupClassify> recogniser,
                         const std::vector<cv::Rect> &bodies)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser)), m_rects(bodies)
{
}

bool HandupModel::detect()
{
    if (!m_available)
        return false;
    if (m_rects.empty())
        return true;
    QElapsedTimer clock;
    clock.start();
    const cv::Mat image = *m_image;
    for (cv::Rect &rect : m_rects) {
        rect = rect_util::bounded(rect);
        rect.width += 1;
        rect.height += 1;
    }
    const std::vector<cv::Rect> crops = expandedRects();
    std::vector<int> labels;
    std::vector<float> scores;
    if (!classify(image, crops, labels, scores))
        return false;
    for (size_t i = 0; i < crops.size(); i += cropsPerBody) {
        const bool allNonZero = labels[i] != 0 && labels[i + 1] != 0 && labels[i + 2] != 0;
        const auto isSure = [&](size_t crop) { return static_cast<double>(scores[crop]) >= sureScore; };
        m_states.push_back(allNonZero && (isSure(i) || isSure(i + 1) || isSure(i + 2)) ? 1 : 0);
    }
    qDebug().nospace() << "handup time: " << clock.elapsed();
    m_finished = true;
    return true;
}

void HandupModel::emitFinished(bool) {}

std::vector<cv::Rect> HandupModel::expandedRects() const
{
    std::vector<cv::Rect> crops;
    crops.reserve(m_rects.size() * cropsPerBody);
    for (const cv::Rect &rect : m_rects) {
        const int x = std::max(rect.x - 3, 0);
        const int width = std::min(m_width - x, rect.width + 5);
        crops.emplace_back(x, std::max(rect.y - 6, 0), width, std::max(rect.height, 0));
        crops.emplace_back(x, std::max(rect.y - 12, 0), width, std::max(rect.height + 6, 0));
        crops.emplace_back(x, std::max(rect.y - 18, 0), width, std::max(rect.height + 12, 0));
    }
    return crops;
}

bool HandupModel::classify(const cv::Mat &image, const std::vector<cv::Rect> &crops, std::vector<int> &labels,
                           std::vector<float> &scores)
{
    QMutexLocker locker(&recogniserLock);
    return guarded("handup", [&] { m_recogniser->classify(image, crops, labels, scores, false); }) &&
           hasLength("handup", labels.size(), crops.size()) &&
           hasLength("handup", scores.size(), crops.size());
}

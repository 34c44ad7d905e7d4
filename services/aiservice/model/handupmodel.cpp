#include "handupmodel.h"

#include "rectutil.h"

namespace {

constexpr size_t cropsPerBody = 3;
/// Least score at which one of the crops rules a hand out.
constexpr float sureScore = 0.8F;

} // namespace

HandupModel::HandupModel(const cv::Mat &image, std::shared_ptr<mirovane::HandupClassify> recogniser,
                         const std::vector<cv::Rect> &bodies)
    : BaseModel(image, Recogniser::Handup, recogniser != nullptr),
      m_recogniser(std::move(recogniser)),
      m_rects(bodies)
{
}

bool HandupModel::prepare()
{
    for (cv::Rect &rect : m_rects) {
        rect = rect_util::bounded(rect);
        rect.width += 1;
        rect.height += 1;
    }
    m_crops = expandedRects();
    return !m_rects.empty();
}

void HandupModel::call()
{
    m_recogniser->classify(*m_image, m_crops, m_labels, m_certainties, false);
}

bool HandupModel::fits() const
{
    return hasLength(m_labels.size(), m_crops.size()) && hasLength(m_certainties.size(), m_crops.size());
}

void HandupModel::conclude()
{
    for (size_t i = 0; i < m_crops.size(); i += cropsPerBody) {
        const bool allNonZero = m_labels[i] != 0 && m_labels[i + 1] != 0 && m_labels[i + 2] != 0;
        const auto isSure = [&](size_t crop) { return m_certainties[crop] >= sureScore; };
        m_states.push_back(allNonZero && (isSure(i) || isSure(i + 1) || isSure(i + 2)) ? 1 : 0);
    }
}

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

#include "faceattrmodel.h"

FaceAttrModel::FaceAttrModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceAttrDetection> recogniser,
                             const std::vector<cv::Rect> &faces)
    : BaseModel(image, Recogniser::FaceAttr, recogniser != nullptr),
      m_recogniser(std::move(recogniser)),
      m_rects(faces)
{
}

void FaceAttrModel::call()
{
    m_recogniser->detect(*m_image, m_rects, m_results, false);
}

bool FaceAttrModel::fits() const
{
    return hasLength(m_results.size(), m_rects.size());
}

bool FaceAttrModel::wearsGlasses() const
{
    constexpr int glassesBit = 1; // of the first label
    if (m_results.empty())
        return false;
    const std::vector<int> &labels = m_results.front().labels;
    return !labels.empty() && (labels.front() & glassesBit) != 0;
}

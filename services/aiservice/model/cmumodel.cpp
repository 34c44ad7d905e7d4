#include "cmumodel.h"

CMUModel::CMUModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseDetectionCMU> recogniser)
    : BaseModel(image, Recogniser::Pose, recogniser != nullptr), m_recogniser(std::move(recogniser))
{
}

void CMUModel::call()
{
    m_recogniser->detect(*m_image, m_rects, m_keyPoints, false);
}

bool CMUModel::fits() const
{
    return hasLength(m_keyPoints.size(), m_rects.size());
}

void CMUModel::discard()
{
    m_rects.clear();
    m_keyPoints.clear();
}

void CMUModel::conclude()
{
    bound(m_rects);
}

void CMUModel::emitFinished(bool ret)
{
    emit finished(ret, this);
}

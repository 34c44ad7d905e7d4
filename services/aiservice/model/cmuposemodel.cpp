#include "cmuposemodel.h"

CMUPoseModel::CMUPoseModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseClassifyCMU> recogniser,
                           const std::vector<cv::Mat> &keyPoints)
    : BaseModel(image, Recogniser::PoseClass, recogniser != nullptr),
      m_recogniser(std::move(recogniser)),
      m_keyPoints(keyPoints)
{
}

void CMUPoseModel::call()
{
    m_recogniser->classify(m_keyPoints, m_states, m_scores);
}

bool CMUPoseModel::fits() const
{
    return hasLength(m_states.size(), m_keyPoints.size());
}

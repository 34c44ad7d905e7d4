#include "bodyposemodel.h"

#include "aiconfig.h"

BodyPoseModel::BodyPoseModel(const cv::Mat &image, std::shared_ptr<mirovane::BodyPoseClassify> recogniser,
                             const std::vector<cv::Rect> &bodies)
    : BaseModel(image, Recogniser::BodyPose, recogniser != nullptr),
      m_recogniser(std::move(recogniser)),
      m_rects(bodies)
{
}

void BodyPoseModel::call()
{
    m_recogniser->classify(*m_image, m_rects, m_states, m_scores, false);
}

bool BodyPoseModel::fits() const
{
    return hasLength(m_states.size(), m_rects.size());
}

void BodyPoseModel::conclude()
{
    const auto &weights = AIConfig::instance().bodyPoseWeights;
    for (const int state : m_states)
        m_value += state >= 0 && state < static_cast<int>(weights.size()) ? weights[state] : 0.0;
}

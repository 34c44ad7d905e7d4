#include "cmuposemodel.h"

#include <QDebug>
#include <QElapsedTimer>

CMUPoseModel::CMUPoseModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseClassifyCMU> recogniser,
                           const std::vector<cv::Mat> &keyPoints)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser)), m_keyPoints(keyPoints)
{
}

bool CMUPoseModel::detect()
{
    if (!m_available)
        return false;
    QElapsedTimer clock;
    clock.start();
    const bool ran = guarded("cmupose", [this] { m_recogniser->classify(m_keyPoints, m_states, m_scores); });
    if (!ran || !hasLength("cmupose", m_states.size(), m_keyPoints.size()))
        return false;
    qDebug().nospace() << "ssd pose time: " << clock.elapsed();
    m_finished = true;
    return true;
}

void CMUPoseModel::emitFinished(bool) {}

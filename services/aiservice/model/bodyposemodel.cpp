#include "bodyposemodel.h"

#include "aiconfig.h"

#include <QDebug>
#include <QElapsedTimer>

BodyPoseModel::BodyPoseModel(const cv::Mat &image, std::shared_ptr<mirovane::BodyPoseClassify> recogniser,
                             const std::vector<cv::Rect> &bodies)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser)), m_rects(bodies)
{
}

bool BodyPoseModel::detect()
{
    if (!m_available)
        return false;
    QElapsedTimer clock;
    clock.start();
    const bool ran =
        guarded("bodypose", [this] { m_recogniser->classify(*m_image, m_rects, m_states, m_scores, false); });
    if (!ran || !hasLength("bodypose", m_states.size(), m_rects.size()))
        return false;
    qDebug().nospace() << "ssd pose time: " << clock.elapsed();
    const auto &weights = AIConfig::instance().bodyPoseWeights;
    for (const int state : m_states)
        m_value += state >= 0 && state < static_cast<int>(weights.size()) ? weights[state] : 0.0;
    m_finished = true;
    return true;
}

void BodyPoseModel::emitFinished(bool) {}

#include "cmumodel.h"

#include <QDebug>
#include <QElapsedTimer>

CMUModel::CMUModel(const cv::Mat &image, std::shared_ptr<mirovane::PoseDetectionCMU> recogniser)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser))
{
}

bool CMUModel::detect()
{
    if (!m_available)
        return false;
    QElapsedTimer clock;
    clock.start();
    const bool ran = guarded("cmu", [this] { m_recogniser->detect(*m_image, m_rects, m_keyPoints, false); });
    if (!ran || !hasLength("cmu", m_keyPoints.size(), m_rects.size())) {
        m_rects.clear();
        m_keyPoints.clear();
        return false;
    }
    bound(m_rects);
    qDebug().nospace() << "cmutime: " << clock.elapsed();
    m_finished = true;
    return true;
}

void CMUModel::emitFinished(bool ret)
{
    emit finished(ret, this);
}

#include "ssdmodel.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QMutex>

namespace {

QMutex recogniserLock;

} // namespace

SSDModel::SSDModel(const cv::Mat &image, std::shared_ptr<mirovane::BodyDetectionSSD> recogniser)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser))
{
}

bool SSDModel::detect()
{
    if (!m_available)
        return false;
    QElapsedTimer clock;
    clock.start();
    QMutexLocker locker(&recogniserLock);
    if (!guarded("ssd", [this] { m_recogniser->detect(*m_image, m_rects, m_scores, false); })) {
        m_rects.clear();
        return false;
    }
    bound(m_rects);
    qDebug().nospace() << "ssd time: " << clock.elapsed();
    m_finished = true;
    return true;
}

void SSDModel::emitFinished(bool) {}

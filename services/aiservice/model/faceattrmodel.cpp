#include "faceattrmodel.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QMutex>

namespace {

QMutex recogniserLock;

} // namespace

FaceAttrModel::FaceAttrModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceAttrDetection> recogniser,
                             const std::vector<cv::Rect> &faces)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser)), m_rects(faces)
{
}

bool FaceAttrModel::detect()
{
    if (!m_available)
        return false;
    QElapsedTimer clock;
    clock.start();
    QMutexLocker locker(&recogniserLock);
    const bool ran =
        guarded("faceattr", [this] { m_recogniser->detect(*m_image, m_rects, m_results, false); });
    if (!ran || !hasLength("faceattr", m_results.size(), m_rects.size()))
        return false;
    qDebug().nospace() << "faceattr_time: " << clock.elapsed();
    m_finished = true;
    return true;
}

void FaceAttrModel::emitFinished(bool) {}

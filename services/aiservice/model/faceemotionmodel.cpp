#include "faceemotionmodel.h"

#include "aiconfig.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QMutex>

namespace {

QMutex recogniserLock;

} // namespace

FaceEmotionModel::FaceEmotionModel(const cv::Mat &image,
                                   std::shared_ptr<mirovane::FaceEmotionClassify> recogniser)
    : BaseModel(image, recogniser != nullptr), m_recogniser(std::move(recogniser))
{
}

bool FaceEmotionModel::detect()
{
    if (!m_available)
        return false;
    QElapsedTimer clock;
    clock.start();
    QMutexLocker locker(&recogniserLock);
    const cv::Mat face = *m_image;
    if (!guarded("faceemotion", [&] { m_recogniser->classify(face, &m_label, &m_score, false); }))
        return false;
    qDebug().nospace() << "faceemotion_time: " << clock.elapsed();
    m_finished = true;
    return true;
}

void FaceEmotionModel::emitFinished(bool) {}

bool FaceEmotionModel::isSmile() const
{
    return m_label == 1 && m_score >= AIConfig::instance().smileThre;
}

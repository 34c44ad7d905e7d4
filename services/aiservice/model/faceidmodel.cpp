#include "faceidmodel.h"

#include <QDebug>

FaceIDModel::FaceIDModel(const cv::Mat &image, std::shared_ptr<mirovane::FaceIDDetection> recogniser,
                         int action, int id)
    : BaseModel(image, Recogniser::FaceID, recogniser != nullptr),
      m_recogniser(std::move(recogniser)),
      m_action(action),
      m_id(id)
{
}

bool FaceIDModel::detect()
{
    return BaseModel::detect() && m_succeeded;
}

/// Catches what is thrown itself: whatever came of it, the action has run.
void FaceIDModel::call()
{
    guarded([this] { m_succeeded = runAction(); });
}

QString FaceIDModel::subject() const
{
    return QStringLiteral("faceid action:%1").arg(m_action);
}

void FaceIDModel::emitFinished(bool ret)
{
    emit finished(ret, this);
}

bool FaceIDModel::runAction()
{
    switch (m_action) {
    case Register:
        return registerFaceID();
    case RegisterAndExtract: {
        const bool registered = registerFaceID();
        // Guarded by itself: a failing extraction must not make a face that is enrolled look refused.
        guarded([this] { m_recogniser->extractFeature(*m_image, &m_feature, false); });
        return registered;
    }
    case RegisterAs:
        m_id = m_recogniser->registerFace(*m_image, m_id);
        return m_id >= 0;
    case Identify:
        return m_recogniser->identify(*m_image, &m_id, false) == 0;
    case Extract: {
        const int result = m_recogniser->extractFeature(*m_image, &m_feature, false);
        return result == 0 || result == -1;
    }
    case IdentifyAll:
        return m_recogniser->identifyAll(*m_image, &m_id, &m_feature, &m_candidates, &m_scores, false) == 0;
    case Remove:
        return m_recogniser->removeFace(m_id) == 0;
    case Clear:
        m_recogniser->clearFaces();
        return true;
    default:
        return false;
    }
}

bool FaceIDModel::registerFaceID()
{
    m_id = m_recogniser->registerFace(*m_image, -1);
    if (m_id < 0)
        qWarning().nospace() << "regist faceid failed: " << m_id;
    return m_id >= 0;
}

#include "concerntrationstrategy.h"

#include "aiconfig.h"
#include "datamanager.h"
#include "modelmanager.h"
#include "protocol.h"
#include "rectutil.h"
#include "studentstate.h"

#include <QDebug>

ConcerntrationStrategy::ConcerntrationStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("ConcerntrationStrategy"), requestID)
{
    m_frameInterval = 30;
}

void ConcerntrationStrategy::handleFrame(const cv::Mat &frame)
{
    if (DataManager::instance()->count() == 0) {
        qWarning("no bind student!!!");
        return;
    }
    const auto detector = ModelManager::instance().createSSDModel(frame);
    if (!detector->detect()) {
        qWarning("ssd detect failed!!!");
        return;
    }
    if (detector->m_rects.empty()) {
        qWarning("ssd detect body empty!");
        return;
    }

    const QVector<StudentInfo> students = student_state::identify(frame, detector->m_rects, frameCount());
    const auto classifier =
        ModelManager::instance().createBodyPoseModel(frame, student_state::bodyRects(students));
    if (!classifier->detect()) {
        qWarning("body pose detect failed !!!");
        return;
    }

    QVariantList states;
    for (int i = 0; i < students.size(); ++i) {
        const StudentInfo &student = students[i];
        const int state = classifier->m_states[i];
        states.append(student_state::entry(student, state));
        qInfo().noquote().nospace() << "[concern] frameNum: " << m_seenFrames << " type: " << student.status
                                    << " stuID: " << student.stuID << " state: " << state
                                    << rect_util::text(student.bodyRect);
    }
    qInfo().nospace() << "[concern] frameNum: " << m_seenFrames
                      << " concertration value: " << classifier->m_value;
    const QVariantMap payload{{QStringLiteral("concerntration"), classifier->m_value},
                              {QStringLiteral("studentStates"), states}};
    emit serviceMessgeSignal(code(ai::Event::Attention), payload, m_requestID);

    if (!AIConfig::instance().enableEmotion)
        return;
    for (const StudentInfo &student : students) {
        // The rectangle may be that of an earlier frame, and a client may have put it anywhere.
        const cv::Rect view = rect_util::clipped(student.faceRect, frame.size());
        if (!view.empty())
            detectSmile(frame(view), student.stuID, student.faceRect);
    }
}

void ConcerntrationStrategy::detectSmile(const cv::Mat &face, const QString &stuID,
                                         const cv::Rect_<int> &rect)
{
    const auto model = ModelManager::instance().createFaceEmotionModel(face);
    if (!model->detect() || !model->isSmile())
        return;
    QVariantMap payload{{QStringLiteral("stuID"), stuID}};
    rect_util::insert(payload, rect);
    qInfo().noquote().nospace() << "[smile] stuID: " << stuID << " x: " << rect.x << " y: " << rect.y
                                << " w: " << rect.width << " h: " << rect.height;
    emit serviceMessgeSignal(code(ai::Event::Smile), payload, QString());
}

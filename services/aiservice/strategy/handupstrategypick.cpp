#include "handupstrategypick.h"

#include "modelmanager.h"
#include "protocol.h"
#include "rectutil.h"
#include "studentstate.h"

#include <QDebug>

handupPickStrategy::handupPickStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("HandupPickStrategy"), requestID)
{
    m_frameInterval = 30;
}

void handupPickStrategy::handleFrame(const cv::Mat &frame)
{
    const auto detector = ModelManager::instance().createSSDModel(frame);
    if (!detector->detect()) {
        qCritical("ssd detect failed!!!");
        return;
    }
    if (detector->m_rects.empty()) {
        qWarning("ssd detect body empty!");
        return;
    }

    const QVector<StudentInfo> students = student_state::identify(frame, detector->m_rects, frameCount());
    const auto classifier =
        ModelManager::instance().createHandupModel(frame, student_state::bodyRects(students));
    if (!classifier->detect()) {
        qWarning("handup detect failed!!!");
        return;
    }

    QVariantList raised;
    for (int i = 0; i < students.size(); ++i) {
        const int state = classifier->m_states[i];
        if (state != 0)
            continue;
        const StudentInfo &student = students[i];
        raised.append(student_state::entry(student, state));
        qInfo().noquote().nospace() << "[handup] frameNum: " << m_seenFrames << " stuID: "
                                    << " type: " << student.status << student.stuID << " state: " << state
                                    << rect_util::text(student.bodyRect);
    }
    emit serviceMessgeSignal(code(ai::Event::Hands), QVariantMap{{QStringLiteral("handupStudents"), raised}},
                             m_requestID);
}

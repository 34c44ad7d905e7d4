#include "handupstrategy.h"

#include "datamanager.h"
#include "modelmanager.h"
#include "protocol.h"
#include "rectutil.h"
#include "studentstate.h"

#include <QDebug>

HandupStrategy::HandupStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("CMUHandupStrategy"), requestID)
{
    m_frameInterval = 30;
}

void HandupStrategy::handleFrame(const cv::Mat &frame)
{
    const auto detector = ModelManager::instance().createCMUModel(frame);
    if (!detector->detect()) {
        qCritical("cmu detect failed!!!");
        return;
    }
    if (detector->m_rects.empty()) {
        qWarning("ssd detect body empty!");
        return;
    }

    // The classifier judges what the records hold, not the key points of this frame.
    const QVector<StudentInfo> students = student_state::identify(frame, detector->m_rects, frameCount());
    std::vector<cv::Mat> bodies;
    bodies.reserve(students.size());
    for (const StudentInfo &student : students)
        bodies.push_back(student.bodyMat);
    const auto classifier = ModelManager::instance().createCMUPoseModel(frame, bodies);
    if (!classifier->detect()) {
        qCritical("body pose detect failed !!!");
        return;
    }

    QVariantList raised;
    for (int i = 0; i < students.size(); ++i) {
        const int state = classifier->m_states[i];
        if (state != 0)
            continue;
        const StudentInfo &student = students[i];
        raised.append(student_state::entry(student, state));
        qInfo().noquote().nospace() << "[handup] frameNum: " << m_seenFrames << " type: " << student.status
                                    << " stuID: " << student.stuID << " state: " << state
                                    << rect_util::text(student.bodyRect);
    }
    DataManager::instance()->showStudents(frame);
    emit serviceMessgeSignal(code(ai::Event::Hands), QVariantMap{{QStringLiteral("handupStudents"), raised}},
                             m_requestID);
}

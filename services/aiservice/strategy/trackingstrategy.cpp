#include "trackingstrategy.h"

#include "aiconfig.h"
#include "datamanager.h"
#include "rectutil.h"
#include "studenttracker.h"

#include <QDebug>

TrackingStrategy::TrackingStrategy(const QString &requestID)
    : BaseStrategy(QStringLiteral("TrackingStrategy"), requestID)
{
    m_frameInterval = AIConfig::instance().trackingFrameInterval;
}

TrackingStrategy::~TrackingStrategy() = default;

int TrackingStrategy::startTracking(QString stuID, const QString &requestID)
{
    const StudentInfo student = DataManager::instance()->getStudentInfo(stuID);
    if (student.stuID.isEmpty()) {
        qWarning().noquote().nospace() << "[Tracking] can't find student: " << stuID;
        return -1;
    }
    qInfo().nospace() << "tracking rect x: " << student.faceRect.x << ", width: " << student.faceRect.width
                      << ",faceId: " << student.faceID;
    if (trackers().contains(requestID)) {
        qWarning().noquote().nospace() << "[Tracking] student: " << stuID << " is tracking";
        return -2;
    }
    const auto tracker = std::make_shared<StudentTracker>(requestID, student.faceID, student.faceRect);
    // Connected before a pass can see it, so that its first report isn't lost.
    connect(tracker.get(), &StudentTracker::serviceMessgeSignal, this, &BaseStrategy::serviceMessgeSignal,
            Qt::DirectConnection);
    {
        QMutexLocker locker(&m_trackersLock);
        m_trackers.insert(requestID, tracker);
    }
    qInfo().noquote().nospace() << "[tracking] start tracking,student: " << stuID
                                << " faceID: " << student.faceID << " face rect"
                                << rect_util::text(student.faceRect);
    return 0;
}

void TrackingStrategy::stopTracking(QString stuID, const QString &requestID)
{
    qInfo().noquote().nospace() << "[tracking] stop,stuID: " << stuID;
    const std::shared_ptr<StudentTracker> tracker = trackers().value(requestID);
    if (!tracker) {
        qWarning().noquote().nospace() << "[tracking] stop,stuID: " << stuID << " not found";
        return;
    }
    tracker->stop();
    QMutexLocker locker(&m_trackersLock);
    m_trackers.remove(requestID);
}

int TrackingStrategy::trackerCount() const
{
    return trackers().size();
}

void TrackingStrategy::handleFrame(const cv::Mat &frame)
{
    for (const auto &tracker : trackers())
        tracker->startTracking(frame);
}

TrackingStrategy::Trackers TrackingStrategy::trackers() const
{
    QMutexLocker locker(&m_trackersLock);
    return m_trackers;
}

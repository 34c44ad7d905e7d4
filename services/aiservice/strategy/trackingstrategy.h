#pragma once

#include "basestrategy.h"

#include <QMap>
#include <QMutex>

#include <memory>

class StudentTracker;

/**
 * Follows chosen students through the picture, one tracker for each request, on every tenth frame. See
 * BaseStrategy for threads and life; startTracking, stopTracking and trackerCount are called on request
 * threads while passes run.
 */
class TrackingStrategy : public BaseStrategy
{
    Q_OBJECT

public:
    explicit TrackingStrategy(const QString &requestID);
    ~TrackingStrategy() override;

    /// 0: followed from now on; -1: no such student; -2: the request already follows somebody.
    int startTracking(QString stuID, const QString &requestID);
    /// Ends the tracker of a request; a pass in hand is finished first.
    void stopTracking(QString stuID, const QString &requestID);
    int trackerCount() const;

    void handleFrame(const cv::Mat &frame) override;

private:
    using Trackers = QMap<QString, std::shared_ptr<StudentTracker>>;

    Trackers trackers() const;

    mutable QMutex m_trackersLock; ///< leaf lock of the map; passes run on a copy of it
    Trackers m_trackers;           ///< by request
};

#pragma once

#include <opencv2/core.hpp>

#include <QMutex>
#include <QObject>
#include <QVariant>

#include <atomic>
#include <memory>

namespace cv::legacy {
inline namespace tracking {
class TrackerKCF;
}
} // namespace cv::legacy

/**
 * Follows one student for one request: a KCF tracker on the frame at half size, checked in each pass
 * against the face recognisers and restarted on the student's face when it has strayed.
 *
 * Threads: made on a request thread; passes run on the strategy's thread; stop() may come from any
 * thread and waits for a pass, which makes no further recogniser calls then. Events are sent with the lock
 * held.
 *
 * Failure: nothing fails towards the client. Every pass ends in a report of the best box at hand; a box
 * that leaves the frame counts as a failed step of the tracker.
 */
class StudentTracker : public QObject
{
    Q_OBJECT

public:
    /// @param requestID receiver of the events
    /// @param faceID the student's id in the recogniser's gallery
    /// @param face where the student's face was seen last, in pixels of the full frame
    StudentTracker(const QString &requestID, int faceID, const cv::Rect &face, QObject *parent = nullptr);
    ~StudentTracker() override;

    /// One pass on a full-size frame, with one event 1014. False only after stop().
    bool startTracking(const cv::Mat &frame);

    void stop();

signals:
    void serviceMessgeSignal(unsigned int msg, const QVariant &eventInfo, QString requestID);

private:
    /// Restarts the tracker on a box of the half frame. Whether it took it.
    bool initTracker(const cv::Mat &half, const cv::Rect2d &box);
    bool updateTracker(const cv::Mat &half);
    cv::Rect follow(const cv::Mat &frame, const cv::Mat &half);
    /// Looks for the student's face around the tracked box; empty if it isn't there.
    cv::Rect findFace(const cv::Mat &frame) const;
    bool hasStrayed(const cv::Rect &face) const;
    bool rectify(const cv::Mat &half, const cv::Rect &face);
    void report(const cv::Rect &halfBox);

    QMutex m_lock;
    std::atomic<bool> m_stopping{false}; ///< set before stop() waits for the lock
    QString m_stuID;
    QString m_requestID;
    cv::Ptr<cv::legacy::TrackerKCF> m_tracker; ///< null after stop()
    int m_faceID;
    // Boxes at half scale.
    cv::Rect m_rect;      ///< where the tracker is started
    cv::Rect2d m_bbox;    ///< output of the last update
    cv::Rect2d m_lastBox; ///< the last box that the tracker confirmed
    bool m_inited = false;
    bool m_running = false;
};

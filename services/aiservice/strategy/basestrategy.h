#pragma once

#include "framebacklog.h"

#include <opencv2/core.hpp>

#include <QObject>
#include <QVariantMap>

#include <atomic>

class QThread;

/**
 * One analysis that runs on the video for a while, on a thread of its own. It takes every n-th frame,
 * turns it into a cv::Mat and hands it to the subclass, which runs its models and sends its events.
 *
 * Threads: the object lives on its own thread; onRecieveFrame and handleFrame run there, one frame at a
 * time. start, startWithinFrames and setParameters are called on request threads, stop on a request
 * thread or on its own; offerFrame on the thread of the video.
 *
 * Life: made with a stopped thread, started once, ended by stop() or release(). What has ended never starts
 * again. Whoever gets `finished` by a direct connection may release the strategy from inside it.
 */
class BaseStrategy : public QObject
{
    Q_OBJECT

public:
    /// @param name for the logs
    /// @param requestID the request that events are answered to
    BaseStrategy(const QString &name, const QString &requestID, QObject *parent = nullptr);
    ~BaseStrategy() override;

    virtual void setParameters(const QVariantMap &params);
    virtual void onStart();
    virtual void onStop();
    /// One frame that got through the interval, CV_8UC3 in blue-green-red order, a copy that lives for
    /// this call.
    virtual void handleFrame(const cv::Mat &frame) = 0;

    /// Makes the strategy of a registered name; null for any other name. The caller ends it with
    /// release().
    static BaseStrategy *createNewStrategy(const QString &name, const QString &requestID);

    /// Ends a strategy: on its own thread if that runs (frames still waiting there go with it), at once
    /// if it never ran.
    static void release(BaseStrategy *strategy);

    /// Starts without a frame budget. False if it runs already or has ended.
    bool start();
    /// Starts and stops by itself after so many handled frames, at least 1. False if it runs already or has
    /// ended.
    bool startWithinFrames(int frames);
    /// Takes no more frames and emits finished; a frame in hand is finished first only if it is on the
    /// calling thread.
    bool stop();
    /// Whether it was stopped, before the start or after it: every start is refused from then on.
    bool hasEnded() const { return m_state == State::ended; }

    /// Before the start: where its frames are counted.
    void countIn(counters::AnalysisRow &row) { m_backlog.countIn(row); }
    /// Queues a frame for the strategy's thread, unless frameBacklog of them are waiting there.
    void offerFrame(const QImage &image);

    /// Frames seen by all strategies together; a label for logs.
    static int frameCount();

    static constexpr int frameBacklog = FrameBacklog::limit;

public slots:
    void onRecieveFrame(const QImage &image);

signals:
    void finished();
    void serviceMessgeSignal(unsigned int msg, const QVariant &eventInfo, const QString &requestID);

protected:
    int m_handledFrames = 0;          ///< frames that reached handleFrame
    int m_seenFrames = 0;             ///< frames counted by the interval
    int m_frameInterval = 1;          ///< only every n-th frame is handled
    int m_imageWidth = 0;             ///< of the last handled frame
    int m_imageHeight = 0;            ///< of the last handled frame
    std::atomic<int> m_frameLimit{0}; ///< frame budget; 0 means none
    const QString m_name;
    const QString m_requestID;
    QThread *m_thread; ///< deletes itself when it has finished

private:
    enum class State
    {
        fresh,
        running, ///< frames are taken
        ended
    };

    /// The one step from fresh to running. False, with a line in the log, from any other state.
    bool enterRunning(const char *refusal);

    std::atomic<State> m_state{State::fresh};
    FrameBacklog m_backlog;
};

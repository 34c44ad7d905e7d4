#pragma once

#include <QtGlobal>

#include <atomic>
#include <functional>

class QThread;
class QTimer;

/**
 * Tells the client when the video stops and when it comes back, as event 1022. Looks every 3 seconds; there
 * is no video once no frame has come for 4. Two states: the video is thought alive, at first, or silent. Each
 * change is told once.
 *
 * Threads: frameCame on the thread of the video; check on the thread of the timer; start and stop on request
 * threads, one at a time. The states outlive a stop.
 */
class VideoWatch
{
public:
    /// @param isExpected whether there ought to be video; asked by each check
    explicit VideoWatch(std::function<bool()> isExpected);

    /// Makes the timer, which fires as long as the thread runs. Before the thread starts.
    void start(QThread *thread);
    /// Deletes the timer. After its thread has ended.
    void stop();
    void frameCame();
    /// One look. Does nothing while no video is expected.
    void check();

private:
    const std::function<bool()> m_isExpected;
    QTimer *m_checkTimer = nullptr;
    // Wall clock in ticks of 100 nanoseconds.
    std::atomic<qint64> m_checkTime{0}; ///< of the last look; nobody reads it, kept on purpose
    std::atomic<qint64> m_lastFrameTime{0};
    std::atomic<bool> m_videoAlive{true}; ///< the state last told to the client
};

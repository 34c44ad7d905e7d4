#pragma once

#include "segmentpeek.h"

#include <QObject>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>

/**
 * Fetches the camera's frames on a thread of its own and hands them on, and knows how the camera is doing.
 *
 * Threads: the receiver is called on the watch's thread; everything else may be called from any thread.
 */
class CameraWatch
{
public:
    using Receiver = std::function<void(const VideoFrame &)>;

    CameraWatch(const QString &key, Receiver receiver);
    ~CameraWatch();

    /// Whether a camera has made a segment.
    bool hasSegment() const { return m_hasSegment.load(std::memory_order_relaxed); }
    /// Frames fetched since the beginning.
    std::uint64_t frames() const { return m_frames.load(std::memory_order_relaxed); }
    /// Milliseconds since the newest frame was fetched; -1 before the first one.
    qint64 pictureAge() const;

private:
    void look();
    static qint64 now();

    SegmentPeek m_peek;
    Receiver m_receiver;
    QThread m_thread;
    QTimer *m_timer;
    QString m_complaint;   ///< the error told last
    qint64 m_lastLook = 0; ///< when a frame or a segment was last found
    std::atomic<bool> m_hasSegment{false};
    std::atomic<std::uint64_t> m_frames{0};
    std::atomic<qint64> m_lastFrame{-1};
};

#pragma once

#include "counters.h"

#include <QImage>
#include <QMetaObject>

#include <atomic>

/**
 * The frames that wait for an object on another thread, bounded: a consumer that is slow or hangs costs no
 * memory. Belongs to the object, which counts what becomes of the frames that come through. Threads: any.
 */
class FrameBacklog
{
public:
    static constexpr int limit = 64;

    FrameBacklog() = default;
    ~FrameBacklog()
    {
        const int rest = m_waiting; // which Qt drops together with the object
        m_counted->queued.add(-rest);
        m_counted->skippedStopped.add(rest);
    }
    FrameBacklog(const FrameBacklog &) = delete;
    FrameBacklog &operator=(const FrameBacklog &) = delete;

    /// Before the first frame: where the frames are counted.
    void countIn(counters::AnalysisRow &row) { m_counted = &row; }
    counters::AnalysisRow &counted() { return *m_counted; }

    /// Queues a call of the slot on the object's thread; does nothing while `limit` frames wait there. The
    /// pixels are shared, not copied.
    template <class Object>
    void offer(Object *object, void (Object::*slot)(const QImage &), const QImage &image)
    {
        m_counted->offered.add();
        if (m_waiting.load(std::memory_order_relaxed) >= limit) {
            m_counted->skippedQueue.add();
            return;
        }
        m_waiting.fetch_add(1, std::memory_order_relaxed);
        m_counted->queued.add();
        QMetaObject::invokeMethod(
            object,
            [this, object, slot, image] {
                m_waiting.fetch_sub(1, std::memory_order_relaxed);
                m_counted->queued.add(-1);
                (object->*slot)(image);
            },
            Qt::QueuedConnection);
    }

private:
    std::atomic<int> m_waiting{0};
    counters::AnalysisRow *m_counted = &counters::page().analyses.rows[0];
};

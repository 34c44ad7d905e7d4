#pragma once

#include <QImage>
#include <QMetaObject>

#include <atomic>

/**
 * The frames that wait for an object on another thread, bounded: a consumer that is slow or hangs costs no
 * memory. Belongs to the object. Threads: any.
 */
class FrameBacklog
{
public:
    static constexpr int limit = 64;

    /// Queues a call of the slot on the object's thread; does nothing while `limit` frames wait there. The
    /// pixels are shared, not copied.
    template <class Object>
    void offer(Object *object, void (Object::*slot)(const QImage &), const QImage &image)
    {
        if (m_waiting.load(std::memory_order_relaxed) >= limit)
            return;
        m_waiting.fetch_add(1, std::memory_order_relaxed);
        QMetaObject::invokeMethod(
            object,
            [this, object, slot, image] {
                m_waiting.fetch_sub(1, std::memory_order_relaxed);
                (object->*slot)(image);
            },
            Qt::QueuedConnection);
    }

private:
    std::atomic<int> m_waiting{0};
};

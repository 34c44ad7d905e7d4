#include "camerawatch.h"

#include "timerthread.h"

#include <QDebug>

#include <chrono>

namespace {

constexpr int pollInterval = 10; // milliseconds
/// A segment in which nothing happens for so long may have been left by a camera that is gone.
constexpr int patience = 3000;

} // namespace

CameraWatch::CameraWatch(const QString &key, Receiver receiver)
    : m_peek(key), m_receiver(std::move(receiver)), m_timer(createThreadTimer(&m_thread, pollInterval))
{
    m_timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(
        m_timer, &QTimer::timeout, m_timer, [this] { look(); }, Qt::DirectConnection);
    m_thread.start();
}

CameraWatch::~CameraWatch()
{
    endThreadTimer(m_timer, &m_thread);
}

qint64 CameraWatch::now()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

qint64 CameraWatch::pictureAge() const
{
    const qint64 last = m_lastFrame.load(std::memory_order_relaxed);
    return last < 0 ? -1 : now() - last;
}

void CameraWatch::look()
{
    VideoFrame frame;
    QString error;
    const auto result = m_peek.look(&frame, &error);
    m_hasSegment.store(result != SegmentPeek::NoSegment, std::memory_order_relaxed);
    switch (result) {
    case SegmentPeek::NewFrame:
        m_lastLook = now();
        m_lastFrame.store(m_lastLook, std::memory_order_relaxed);
        m_frames.fetch_add(1, std::memory_order_relaxed);
        m_complaint.clear();
        m_receiver(frame);
        break;
    case SegmentPeek::Refused:
        if (error != m_complaint)
            qWarning().noquote() << "frame refused:" << error;
        m_complaint = error;
        break;
    default:
        // The next look finds the segment that has the name by then.
        if (now() - m_lastLook > patience) {
            m_lastLook = now();
            m_peek.detach();
        }
        break;
    }
}

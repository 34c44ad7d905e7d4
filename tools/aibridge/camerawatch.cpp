#include "camerawatch.h"

#include "imageblock.h"

#include <utility>

namespace {

constexpr int interval = 500; // milliseconds
constexpr int oldest = 4000;  // milliseconds

} // namespace

CameraWatch::CameraWatch(QObject *parent) : QObject(parent), m_memory(QStringLiteral("Camera"))
{
    connect(&m_timer, &QTimer::timeout, this, &CameraWatch::look);
    m_timer.start(interval);
}

qint64 CameraWatch::age() const
{
    return m_seen.isValid() ? m_seen.elapsed() : -1;
}

bool CameraWatch::isAlive() const
{
    return m_seen.isValid() && m_seen.elapsed() <= oldest;
}

void CameraWatch::look()
{
    if (!m_memory.isAttached() && !m_memory.attach(QSharedMemory::ReadOnly))
        return;
    if (m_memory.size() < int(sizeof(ShmHeader)))
        return;
    // What is overwritten meanwhile differs from before as well, and that is all that counts.
    ShmHeader header;
    std::memcpy(&header, m_memory.constData(), sizeof header);
    const QByteArray change(header.changeID, sizeof header.changeID);
    const bool first = m_change.isEmpty();
    if (std::exchange(m_change, change) != change && !first)
        m_seen.start();
    const bool alive = isAlive();
    if (!std::exchange(m_wasAlive, alive) && alive)
        emit resumed();
}

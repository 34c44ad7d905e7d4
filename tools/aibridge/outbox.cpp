#include "outbox.h"

#include <utility>

namespace {

qint64 sizeOf(const OutgoingMessage &message)
{
    constexpr int overhead = 100; // of an entry, roughly
    return message.topic.size() * 2 + message.payload.size() + overhead;
}

} // namespace

void Outbox::add(OutgoingMessage message)
{
    m_bytes += sizeOf(message);
    m_messages.push_back({std::move(message)});
    while (m_messages.size() > 1 && (int(m_messages.size()) > m_maximumCount || m_bytes > m_maximumBytes))
        dropOldest();
}

void Outbox::dropOldest()
{
    const Entry &oldest = m_messages.front();
    m_bytes -= sizeOf(oldest.message);
    if (!oldest.everAcknowledged)
        ++m_dropped;
    if (m_next > 0) {
        --m_next;
        if (!oldest.acknowledged)
            --m_unacknowledged;
    }
    m_messages.pop_front();
}

const OutgoingMessage *Outbox::next() const
{
    if (m_next == m_messages.size() || m_unacknowledged >= window)
        return nullptr;
    return &m_messages[m_next].message;
}

void Outbox::handedOver(int number)
{
    Entry &entry = m_messages[m_next++];
    entry.number = number;
    entry.acknowledged = false;
    ++m_unacknowledged;
}

void Outbox::acknowledged(int number, qint64 now)
{
    for (size_t i = m_next; i-- > 0;) {
        Entry &entry = m_messages[i];
        if (entry.number != number || entry.acknowledged)
            continue;
        entry.acknowledged = true;
        --m_unacknowledged;
        if (!std::exchange(entry.everAcknowledged, true))
            entry.time = now;
        return;
    }
}

void Outbox::forget(qint64 now)
{
    while (m_next > 0 && m_messages.front().acknowledged && now - m_messages.front().time > memory)
        dropOldest();
}

void Outbox::sendAgain(qint64 now)
{
    std::deque<Entry> kept;
    for (Entry &entry : m_messages) {
        if (entry.everAcknowledged && now - entry.time > memory)
            m_bytes -= sizeOf(entry.message);
        else
            kept.push_back(std::move(entry));
    }
    m_messages.swap(kept);
    m_next = 0;
    m_unacknowledged = 0;
}

#pragma once

#include <QByteArray>
#include <QString>

#include <deque>

/// A message to the broker that must not be lost.
struct OutgoingMessage
{
    QString topic;
    QByteArray payload;
};

/**
 * Messages on their way to the broker, oldest first: those that wait, those that were handed over and are not
 * acknowledged, and for a minute those that were, since a broker that is killed loses what it had not saved.
 *
 * Bounded by number and bytes; the oldest goes first. What goes without ever having been acknowledged is
 * counted.
 *
 * Threads: one.
 */
class Outbox
{
public:
    /// @param maximumCount, maximumBytes of all three kinds together
    Outbox(int maximumCount, qint64 maximumBytes) : m_maximumCount(maximumCount), m_maximumBytes(maximumBytes)
    {
    }

    static constexpr qint64 memory = 60000; ///< milliseconds after an acknowledgement
    static constexpr int window = 16;       ///< messages handed over and not acknowledged, at most

    void add(OutgoingMessage message);

    /// The next message to hand over; null when none waits, or the window is full. Valid until the next call.
    const OutgoingMessage *next() const;
    /// The message of next() was handed over under this number.
    void handedOver(int number);
    /// The broker has taken responsibility for the message of this number.
    void acknowledged(int number, qint64 now);
    /// Forgets acknowledged messages whose time is over.
    void forget(qint64 now);
    /// The connection has ended: all that is here is to be sent again, in its order.
    void sendAgain(qint64 now);

    int waiting() const { return int(m_messages.size() - m_next); }
    int unacknowledged() const { return m_unacknowledged; }
    /// True when nothing waits for the broker.
    bool isDelivered() const { return waiting() == 0 && m_unacknowledged == 0; }
    quint64 dropped() const { return m_dropped; }

private:
    struct Entry
    {
        OutgoingMessage message;
        int number = 0;
        bool acknowledged = false; ///< by this connection
        bool everAcknowledged = false;
        qint64 time = 0; ///< of the first acknowledgement
    };

    void dropOldest();

    const int m_maximumCount;
    const qint64 m_maximumBytes;
    std::deque<Entry> m_messages; // handed over before m_next, waiting from there on
    size_t m_next = 0;
    int m_unacknowledged = 0;
    qint64 m_bytes = 0;
    quint64 m_dropped = 0;
};

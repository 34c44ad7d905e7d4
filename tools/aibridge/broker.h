#pragma once

#include "settings.h"

#include <QByteArray>
#include <QObject>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

struct mosquitto;

/**
 * The connection to the MQTT broker. It is made again whenever it ends, after pauses that grow from half a
 * second to ten; nothing is kept here across connections.
 *
 * A thread of its own does all that may block: looking up the name, connecting, the TLS handshake. A broker
 * that doesn't answer within the keepalive, or doesn't accept within 15 seconds, counts as gone.
 *
 * Threads: calls from the thread of the object, where the signals arrive, too.
 */
class Broker : public QObject
{
    Q_OBJECT

public:
    struct Request
    {
        QString topic;
        QByteArray payload;
        QString responseTopic;
        QByteArray correlation;
    };

    /// @param will topic that gets "offline", retained, when the connection is lost
    Broker(const Settings::Broker &settings, const QString &clientID, const QString &will,
           const QString &subscription, QObject *parent = nullptr);
    /// Waits at most two seconds for the thread, which may be inside a look-up.
    ~Broker() override;

    void start();
    bool isConnected() const { return m_connected; }

    /// Hands a message over at QoS 1.
    /// @param correlation for an answer, of its request
    /// @return the number that acknowledged() tells, 0 without a connection
    int publish(const QString &topic, const QByteArray &payload, bool retain,
                const QByteArray &correlation = {});

    quint64 sentMessages() const { return m_sentMessages; }
    quint64 sentBytes() const { return m_sentBytes; }

signals:
    void connected();
    /// Once after each connected(), and for each attempt that failed.
    void disconnected(const QString &reason, bool wasConnected);
    void acknowledged(int number);
    void requested(const Broker::Request &request);

private:
    struct Calls;

    void run();
    /// One connection from beginning to end; returns why it ended.
    QString serve();
    void tell(const QString &reason, bool wasConnected);

    const Settings::Broker m_settings;
    const QByteArray m_clientID, m_will, m_subscription;
    std::thread m_thread;

    std::mutex m_mutex; // guards the two that follow
    std::condition_variable m_wake;
    mosquitto *m_client = nullptr; // while it can publish
    std::atomic<bool> m_ending{false};
    std::atomic<bool> m_ended{false};

    // Of the broker's thread.
    bool m_accepted = false;
    bool m_closed = false;
    QString m_refusal;

    // Of the object's thread.
    bool m_connected = false;
    quint64 m_sentMessages = 0, m_sentBytes = 0;
};
Q_DECLARE_METATYPE(Broker::Request)

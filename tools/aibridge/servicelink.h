#pragma once

#include "aiclient.h"

#include <QQueue>

/**
 * The one long connection to the service. It is made again whenever it ends, after pauses that grow from a
 * quarter of a second to five.
 *
 * Requests that the service runs one at a time wait here for each other, so that the question for the state
 * always finds a thread of the service free. A service that hasn't answered that question for the patience is
 * ended by SIGABRT: it leaves a dump, and whoever watches it starts it again.
 *
 * Threads: one.
 */
class ServiceLink : public QObject
{
    Q_OBJECT

public:
    /// @param patience milliseconds
    explicit ServiceLink(int patience, QObject *parent = nullptr);

    void start();
    bool isUp() const { return m_client.isConnected(); }
    /// The state and version that the service told last; -1 and empty without one.
    int state() const { return m_state; }
    QString version() const { return m_version; }

    /// Sends a request when its turn comes. The callback is called exactly once, also when the connection
    /// ends.
    void request(AiClient::Kind kind, uint code, const QVariant &data, const QString &requestID,
                 AiClient::Callback callback);
    void execute(uint code, const QVariant &data, const QString &requestID, AiClient::Callback callback)
    {
        request(AiClient::Execute, code, data, requestID, std::move(callback));
    }

signals:
    void up();
    void down(const QString &reason);
    void eventReceived(const AiEvent &event);
    /// The service has told its state; it may be the same as before.
    void stateTold();

private:
    struct Waiting
    {
        AiClient::Kind kind;
        uint code;
        QVariant data;
        QString requestID;
        AiClient::Callback callback;
    };

    void connectNow();
    void askForState();
    void endService();
    void sendNext();
    void lose(const QString &reason);

    const int m_patience;
    AiClient m_client;
    QTimer m_reconnect, m_heartbeat;
    int m_pause;
    QQueue<Waiting> m_waiting;
    bool m_busy = false;
    bool m_asking = false;
    bool m_aborted = false;   ///< this service was told to end already
    QElapsedTimer m_answered; ///< since the last answer, or the connection
    int m_state = -1;
    QString m_version;
};

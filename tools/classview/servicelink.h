#pragma once

#include "aiclient.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QQueue>
#include <QSet>
#include <QTimer>

#include <memory>

/// One line of the log: a request with its answer, or an event.
struct Exchange
{
    QDateTime time;
    bool isEvent = false;
    bool isFailure = false;
    QString title;       ///< for people
    QString text;        ///< one line
    QVariantMap content; ///< without pictures
};

/**
 * The viewer's one connection to the service, held for as long as it runs: a client that leaves ends all
 * analyses. When it is lost, it is made again.
 *
 * Execute requests go out one at a time, as the service asks for.
 *
 * Threads: one.
 */
class ServiceLink : public QObject
{
    Q_OBJECT

public:
    using Callback = std::function<void(const AiReply &)>;

    /// @param socketName empty for the bridge of the room or, without one, the service
    explicit ServiceLink(const QString &socketName, QObject *parent = nullptr);
    ~ServiceLink() override;

    void start();

    bool isConnected() const { return m_client.isConnected(); }
    /// In place of a state: the service is there and tells none.
    static constexpr int noAnswer = -2;
    /// An ai::State; -1 without a connection, and until the service has told; noAnswer.
    int state() const { return m_state; }
    QString version() const { return m_version; }

    /// Sends when those before it are answered. A failure is told by failed(), whatever the callback does.
    void send(AiClient::Kind kind, uint code, const QVariant &data = {}, Callback callback = {},
              const QString &requestID = {});
    void execute(ai::Command command, const QVariant &data = {}, Callback callback = {},
                 const QString &requestID = {})
    {
        send(AiClient::Execute, code(command), data, std::move(callback), requestID);
    }
    /// A request identifier like no other.
    QString newRequestID(const QString &purpose);
    bool isBusy() const { return m_waiting || !m_queue.isEmpty(); }
    /// What is being done; empty when nothing is.
    QString currentTitle() const { return m_currentTitle; }

signals:
    /// Connection, state, or what is being done.
    void changed();
    /// The connection was made or lost. With it went what ran.
    void connectionChanged(bool connected);
    void eventReceived(const AiEvent &event);
    void exchanged(const Exchange &exchange);
    /// In words, with what to do.
    void failed(const QString &title, const QString &advice);

private:
    struct Request
    {
        AiClient::Kind kind;
        uint code;
        QVariant data;
        Callback callback;
        QString requestID;
    };

    void tryToConnect();
    void askForState();
    void sendNext();
    void finish(const Request &request, const AiReply &reply);
    void setState(int state);

    AiClient m_client;
    const QString m_socketName;
    QTimer m_timer;
    QQueue<Request> m_queue;
    bool m_waiting = false;
    bool m_asking = false;
    QElapsedTimer m_asked; ///< for the state, the last time
    QString m_currentTitle;
    int m_state = -1;
    QString m_version;
    int m_lastID = 0;
};

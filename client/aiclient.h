#pragma once

#include "protocol.h"

#include <QDeadlineTimer>
#include <QLocalSocket>
#include <QMap>
#include <QObject>
#include <QTimer>
#include <QVariant>

#include <functional>

/// What became of one request.
struct AiReply
{
    enum Outcome
    {
        Answered,
        TimedOut,
        Disconnected
    };

    Outcome outcome = Disconnected;
    /// "rsp_error" of an answer: 0 for success, otherwise a negative code, see ai::Error.
    int error = 0;
    /// "rsp_error_detail" of an answer; for a request without one, why there is none.
    QString detail;
    /// "rsp_data" of an answer; invalid when the command has no result.
    QVariant data;
    /// The whole reply map as it came, without "rsp_id".
    QVariantMap map;

    /// True when the service answered, and with success.
    bool ok() const { return outcome == Answered && error == 0; }
    /// One line for a person: empty on success, otherwise code and detail.
    QString errorText() const;

    /// What stood in the way of a command that was refused with Error::WrongState.
    enum Refusal
    {
        NotOpen,
        NotInitialised,
        AlreadyStarted,
        NotStarted,
        OtherState
    };
    /// Read from the detail, as the code alone doesn't tell.
    Refusal refusal() const;
    /// What a value of "rsp_error" means, in a few words of English.
    static QString meaningOf(int error);
};

/// One event of the service. Payloads: docs/protocol.md, and as data messages.h.
struct AiEvent
{
    /// The code as an enumeration; a value that isn't listed there for a code that is none of this version.
    ai::Event event() const { return ai::Event{code}; }

    uint code = 0;
    QVariantMap info;
    /// "execute" for an event that belongs to a request, "service" for one that does not.
    QString type;
    /// "req_id" of the request that the event belongs to, "0" for an event of the service.
    QString requestID;
};
Q_DECLARE_METATYPE(AiEvent)

/**
 * A client of the vision service: one connection to its local socket.
 *
 * Any number of requests may be on their way at once; the service answers them in the order in which they
 * finish, and each answer finds its callback. Events come in between, from the moment of the connection.
 *
 * Threads: one. All calls, callbacks and signals belong to the thread that the object lives in. request()
 * needs that thread's event loop; call() and waitForMessages() do without one.
 *
 * Lifetime: a client that goes away, also by deletion, ends all analyses of the service, whoever started
 * them. Deleting the object drops the outstanding requests; their callbacks are not called. From inside a
 * callback or a receiver of its signals it is deleted with deleteLater() only.
 *
 * Trust: a message that is not a frame of the protocol ends the connection, with a reason. So does a reply
 * that answers nobody: the service sends it when it could not read a request, and nobody knows which.
 */
class AiClient : public QObject
{
    Q_OBJECT

public:
    /// Values of "req_code".
    enum Kind
    {
        Open = ai::code(ai::Kind::Open),
        Close = ai::code(ai::Kind::Close),
        Execute = ai::code(ai::Kind::Execute),
        Info = ai::code(ai::Kind::Info)
    };
    using Callback = std::function<void(const AiReply &)>;

    /// The time that a request is waited for when nothing else is told, in milliseconds. Loading the
    /// models is the slowest command.
    static constexpr int defaultTimeout = 60000;
    /// Name of the bridge's socket, in the folder of the service's own.
    static constexpr const char *bridgeName = "AIBridge";

    explicit AiClient(QObject *parent = nullptr);
    ~AiClient() override;

    /// Connects, waiting at most the given milliseconds. False, with errorString(), when no service
    /// listens there.
    /// @param name "AI", which lies in the temporary folder (TMPDIR) off Windows, or a full path
    bool connectToService(const QString &name = QStringLiteral("AI"), int timeout = 3000);
    /// Connects to the bridge of the room (aibridge) when one runs, else to the service itself. Through a
    /// bridge, leaving ends nobody's analyses.
    bool connectToRoom(int timeout = 3000);
    /// Ends the connection. Outstanding requests get their callback with the outcome Disconnected.
    void disconnectFromService();
    bool isConnected() const;
    /// The process at the other end, be it a bridge; 0 without a connection and where the system doesn't
    /// tell.
    qint64 serviceProcessId() const;
    /// Whether a bridge is at the other end.
    bool isThroughBridge() const;
    /// Why the last connection could not be made, or why it ended.
    QString errorString() const { return m_error; }

    /**
     * Sends a request and returns at once.
     *
     * @param code      "command_code", for the kinds Execute and Info
     * @param data      the command's parameters, as a rule a QVariantMap
     * @param requestID "req_id": labels the events of an analysis; "self-kill" with Close ends the service
     * @param callback  called exactly once, also on a time-out, a lost connection, and (then from inside
     *                  this call) without a connection; may be empty
     * @param timeout   milliseconds; 0 or less waits as long as the connection stands. The service is not
     *                  told of a time-out; the late answer is dropped.
     */
    void request(Kind kind, uint code, const QVariant &data, const QString &requestID, Callback callback,
                 int timeout = defaultTimeout);

    /// The same for a command.
    void request(ai::Command command, const QVariant &data, const QString &requestID, Callback callback,
                 int timeout = defaultTimeout)
    {
        request(Execute, code(command), data, requestID, std::move(callback), timeout);
    }

    /// The same, but waits for the answer. Signals and other callbacks are delivered from inside this call.
    AiReply call(Kind kind, uint code = 0, const QVariant &data = {}, const QString &requestID = {},
                 int timeout = defaultTimeout);

    AiReply call(ai::Command command, const QVariant &data = {}, const QString &requestID = {},
                 int timeout = defaultTimeout)
    {
        return call(Execute, code(command), data, requestID, timeout);
    }

    /// Waits at most the given milliseconds for something to arrive, and delivers it, and what has become of
    /// requests whose time is up, from inside this call. For programs without an event loop. False when
    /// nothing came, at once without a connection.
    bool waitForMessages(int timeout);

    /// How many requests wait for their answer.
    int pendingRequests() const { return m_pending.size(); }

signals:
    void eventReceived(const AiEvent &event);
    /// Once for each connection that ends; the reason is a text for a person.
    void disconnected(const QString &reason);

private:
    struct Pending
    {
        Callback callback;
        QDeadlineTimer deadline;
    };

    void readFrames();
    void handleMessage(QVariantMap message);
    void fail(qint64 id, AiReply::Outcome outcome, const QString &detail);
    void expire();
    void lose(const QString &reason);

    QLocalSocket m_socket;
    QTimer m_expiry;
    QMap<qint64, Pending> m_pending; // by "req_id2", so in the order of sending
    qint64 m_lastID = 0;
    QString m_error;
    bool m_connected = false; // until the end of the connection has been told
};

#pragma once

#include "aiclient.h"
#include "camerapicture.h"
#include "eventdrawing.h"

#include <QObject>

#include <memory>

/**
 * What the commands of aictl work with: the connection to the service, the output, and Ctrl-C.
 *
 * Standard output carries replies and events, one line each; standard error what went wrong. Waiting
 * operations return early on Ctrl-C once catchInterrupts() has been called.
 *
 * Threads: the main thread only.
 */
class Console : public QObject
{
    Q_OBJECT

public:
    /// How events are shown as they come.
    struct EventStyle
    {
        bool pretty = false;  ///< one readable line instead of JSON
        bool pictures = true; ///< JSON with the pictures in it
        QString drawFolder;   ///< when not empty, each event is also drawn into a file in there
        QList<uint> codes;    ///< when not empty, only these
    };

    /// @param socketName empty: the room's bridge when one runs, else the service
    Console(const QString &socketName, int timeout);
    ~Console() override;

    /// Connects unless that is done. False, with a complaint, when there is no service.
    bool connectToService();
    /// The same, without a complaint.
    bool tryToConnect();
    bool isConnected() const { return m_client.isConnected(); }
    /// 0 where it isn't told, as through a bridge.
    qint64 serviceProcessId() const { return m_client.isThroughBridge() ? 0 : m_client.serviceProcessId(); }
    QString socketName() const { return m_socketName; }

    /// Sends a request, waits for the answer, prints it, and complains when it is not a success.
    /// @param requestID empty for one of the console's own
    AiReply send(AiClient::Kind kind, uint code, const QVariant &data = {}, const QString &requestID = {});
    AiReply execute(ai::Command command, const QVariant &data = {}, const QString &requestID = {});

    /// Sends a request and waits for the answer, printing nothing.
    AiReply exchange(AiClient::Kind kind, uint code, const QVariant &data, const QString &requestID);

    /// Sends a request whose result comes as an event of the same request, and waits for both. The reply is
    /// printed only when it is a failure, the event not at all.
    /// @return false, with a complaint, on a failure
    bool executeForEvent(ai::Command command, const QVariant &data, ai::Event event, QVariantMap *info);

    /// Tells the service to end. An answer need not come; the connection goes.
    void sendSelfKill();

    /// A new request identifier: no other is like it among the clients of one machine.
    QString newRequestID();

    /// From now on, events are printed as they come.
    void showEvents(const EventStyle &style);
    /// How many events were shown since showEvents().
    int shownEvents() const { return m_shownEvents; }
    bool isShowingEvents() const { return m_showing; }

    /// Takes count events of the code that came since forgetEvents(), waiting for those that are missing.
    /// @return false on a time-out, on Ctrl-C and without a connection
    bool takeEvents(uint code, int count, int timeout);
    void forgetEvents() { m_unclaimed.clear(); }

    /// Runs the event loop until Ctrl-C, the end of the connection, or the condition.
    /// @param timeout milliseconds, 0 for no limit
    void runUntil(const std::function<bool()> &condition, int timeout = 0);

    /// From now on the first Ctrl-C (or SIGTERM) only sets a mark, and a second one ends the process.
    static void catchInterrupts();
    /// True after it, and once nobody reads the output any more.
    static bool interrupted();
    /// Forgets the first Ctrl-C, so that something can still be sent.
    static void clearInterrupt();

    /// True in a session: a command that starts an analysis returns as soon as it is answered.
    bool inSession() const { return m_inSession; }
    void setInSession(bool inSession) { m_inSession = inSession; }
    /// True once the service was told to end: the loss of the connection is what was asked for.
    bool isEndExpected() const { return m_endExpected; }

    /// Text that cannot be written is complained about and counts as a Ctrl-C, as does a closed pipe.
    static void print(const QString &text);
    /// Whether something could not be written.
    static bool outputLost();
    /// The payload of an event that was waited for, as one JSON line.
    static void printInfo(const QVariantMap &info);
    static void printJson(const QJsonObject &object);
    /// The command that complaints are about from now on.
    static void setCommand(const QString &name);
    /// Writes "aictl: ", the command and the text to standard error.
    static void complain(const QString &text);

signals:
    /// Makes runUntil() look at its condition at once.
    void changed();

private:
    void onEvent(const AiEvent &event);
    void show(const AiEvent &event);
    static void printReply(const AiReply &reply);

    AiClient m_client;
    const QString m_socketName;
    const int m_timeout;
    int m_lastID = 0;
    bool m_inSession = false;
    bool m_endExpected = false;

    bool m_showing = false;
    EventStyle m_style;
    int m_shownEvents = 0;
    std::unique_ptr<CameraPicture> m_camera;
    EventDrawing m_drawing;

    QMap<uint, int> m_unclaimed;
    // The event that executeForEvent() waits for.
    QString m_awaitedID;
    ai::Event m_awaitedEvent{};
    bool m_awaitedCame = false;
    QVariantMap m_awaitedInfo;
};

#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QLocalSocket>
#include <QMap>
#include <QMutex>
#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>
#include <QVariant>
#include <QVector>

#include <optional>
#include <set>

class IAsyncCommand;
class IService;
class QLocalServer;

/**
 * The door of the process: listens on a local socket under the service's name, runs each request that a
 * client sends as an IAsyncCommand on the global thread pool, and writes responses and events back. It does
 * not interpret requests. Only processes of the same user can connect.
 *
 * Threads: the constructor returns at once on the caller's thread; everything else happens on a thread of the
 * object's own, the server thread. That thread is blocked while the service's disconnectReset runs, and for
 * at most 30 seconds at a time by a client that does not read what is sent to it.
 *
 * Lifetimes: a connection is known by a serial number, because the address of a socket is used again.
 * Requests of a connection that has ended run to their end, and their responses are dropped. A process that
 * finds the name in use, or can't listen, says so in the log and stays up without being reachable.
 *
 * Writing: a message leaves at once when nothing else is on its way to the same client, behind what the
 * server thread has already to do; otherwise what gathers within 2 ms of the last write leaves together,
 * eight messages at the latest. Requests that have arrived together start together, up to 16 of them.
 *
 * Limits: none on connections, on the length of a frame, or on what waits in a queue. When a client has not
 * read for 30 seconds, what waits for it is dropped with a warning.
 */
class ServiceServer : public QObject
{
    Q_OBJECT

public:
    /// @param hosted the service that answers; not owned, lives longer than the server and all requests
    ServiceServer(QString name, IService *hosted, QObject *parent);
    /// Ends the connections, and waits for the requests that still run.
    ~ServiceServer() override;

signals:
    /// Starts the work on the server thread.
    void initSignal();

private slots:
    void initSlot();
    void newConnectionSlot();
    void flushSocket();

private:
    /// The address is there to be printed and to tell nothing else: the socket behind it may be gone.
    struct Connection
    {
        quint64 serial;
        const void *address;
    };

    bool start();
    bool listen();
    void listenAgain();
    void readSocket(Connection connection);
    void handleSocketRead(Connection connection);
    bool takeRequests(Connection connection, QVector<IAsyncCommand *> &commands);
    IAsyncCommand *makeCommand(Connection connection, const QVariantMap &request);
    void startCommands(QVector<IAsyncCommand *> &commands);
    void respond(Connection connection, const void *command, const QByteArray &payload);
    void handleSocketDisconnect(Connection connection);
    void handleSocketError(QLocalSocket::LocalSocketError error);
    void postMessage(unsigned int msg, const QVariant &eventInfo, const QString &type,
                     const QString &requestID);
    void sendResponseData(Connection connection, const QByteArray &payload);
    void awaitFlush(quint64 serial, int gathered);
    QList<QByteArray> takeResponses(quint64 serial);
    void writeResponses(QLocalSocket &socket, const QList<QByteArray> &responses);

    // All of this belongs to the server thread. The locks are never contended; they are kept on purpose.
    // socketMutex comes before queueMutex, and queueMutex is not held across a socket operation.
    QMap<quint64, QLocalSocket *> sockets; ///< the connected sockets, in order of connection
    QLocalServer *localServer = nullptr;
    QString serviceName;
    IService *service;
    QMap<quint64, std::optional<qint32>> frameSizes; ///< of the frames that connections are in the middle of
    QMap<quint64, QList<QByteArray>> responseQueues; ///< payloads to be written; one list per connection
    QVector<Connection> connections;                 ///< all there ever were; an event is logged for each
    QMap<quint64, int> runningRequests;              ///< of each connected socket
    QMap<quint64, qint64> flushTimes; ///< of the last write to each connected socket, by `clock`
    std::set<quint64> waiting;        ///< the connections whose queue isn't empty
    QMutex socketMutex;
    QMutex queueMutex;
    QTimer flushTimer; ///< runs while something gathers
    bool flushPosted = false;
    bool writing = false; ///< whether a flush is writing to a socket, which may emit its signals meanwhile
    QElapsedTimer clock;
    QThread *serverThread;
    quint64 lastSerial = 0;
    bool owningName = false; ///< whether this process has listened under the name
};

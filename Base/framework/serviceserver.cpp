#include "serviceserver.h"

#include "counters.h"
#include "iasynccommand.h"
#include "iservice.h"
#include "logline.h"
#include "wire.h"

#include <QDebug>
#include <QFile>
#include <QLocalServer>
#include <QThreadPool>

namespace {

constexpr int startedTogether = 16; // requests, at most
constexpr int flushedTogether = 8;  // messages, at least
constexpr int flushInterval = 2;    // milliseconds
constexpr int writeTimeout = 30000; // milliseconds
constexpr int probeTimeout = 10000; // milliseconds

qint64 bytesOf(const QList<QByteArray> &payloads)
{
    qint64 bytes = 0;
    for (const QByteArray &payload : payloads)
        bytes += payload.size();
    return bytes;
}

/// Counts messages that begin to wait, or with negative numbers, no longer do.
void countWaiting(qint64 messages, qint64 bytes)
{
    counters::Traffic &traffic = counters::page().traffic;
    traffic.waitingMessages.add(messages);
    traffic.waitingBytes.add(bytes);
}

void countWritten(const QList<QByteArray> &payloads, bool written)
{
    counters::Traffic &traffic = counters::page().traffic;
    if (!written) {
        traffic.droppedMessages.add(payloads.size());
        return;
    }
    traffic.sentMessages.add(payloads.size());
    traffic.sentBytes.add(bytesOf(payloads));
}

} // namespace

ServiceServer::ServiceServer(QString name, IService *hosted, QObject *parent)
    : QObject(parent), serviceName(std::move(name)), service(hosted), serverThread(new QThread(this))
{
    qInfo("ServiceServer::ServiceServer begin");
    moveToThread(serverThread);
    connect(this, &ServiceServer::initSignal, this, &ServiceServer::initSlot);
    connect(&flushTimer, &QTimer::timeout, this, &ServiceServer::flushSocket);
    connect(serverThread, &QThread::finished, &flushTimer, &QTimer::stop);
    flushTimer.moveToThread(serverThread);
    clock.start();
    serverThread->start(QThread::InheritPriority);
    emit initSignal();
    qInfo("ServiceServer::ServiceServer end");
}

ServiceServer::~ServiceServer()
{
    qInfo("ServiceServer::~ServiceServer begin");
    // Emitted on the thread itself, which deletes them before it ends.
    connect(
        serverThread, &QThread::finished, this,
        [this] {
            for (QLocalSocket *socket : qAsConst(sockets))
                socket->deleteLater();
            localServer->deleteLater();
        },
        Qt::DirectConnection);
    serverThread->quit();
    serverThread->wait();
    QThreadPool::globalInstance()->waitForDone(); // commands answer to this object from the pool's threads
    qInfo("ServiceServer::~ServiceServer end");
}

void ServiceServer::initSlot()
{
    qInfo("ServiceServer::initSlot begin");
    localServer = new QLocalServer;
    localServer->setSocketOptions(QLocalServer::UserAccessOption);
    connect(localServer, &QLocalServer::newConnection, this, &ServiceServer::newConnectionSlot);
    connect(service, &IService::serviceMessgeSignal, this, &ServiceServer::postMessage);
    start();
    qInfo("ServiceServer::initSlot end");
}

bool ServiceServer::start()
{
    qInfo("ServiceServer::start begin");
    QLocalSocket probe;
    probe.connectToServer(serviceName, QIODevice::ReadWrite);
    if (probe.waitForConnected(probeTimeout)) {
        // Garbled, and kept on purpose, as is the text of listen(): logs are searched for it.
        const QString text("ServiceServer::start end: service<%1> 宸茬粡鍦ㄨ繍琛?");
        qInfo().noquote() << text.arg(serviceName);
        return false;
    }
    if (!listen())
        return false;
    owningName = true;
    qInfo("ServiceServer::start end");
    return true;
}

bool ServiceServer::listen()
{
    QLocalServer::removeServer(serviceName);
    const bool listening = localServer->listen(serviceName);
    qInfo().noquote().nospace() << "start to listen >>" << localServer->serverName();
    if (!listening) {
        const QString text("ServiceServer::start end: service<%1> 鍚\uE21A姩鐩戝惉澶辫触.");
        qInfo().noquote() << text.arg(serviceName);
        qInfo().noquote() << localServer->errorString();
    }
    return listening;
}

/// A process that is out of file descriptors can't accept a connection, and QLocalServer then closes its
/// socket and removes the file, but says that it listens. Called when a connection has given one back.
void ServiceServer::listenAgain()
{
#ifndef Q_OS_WIN
    if (!owningName || QFile::exists(localServer->fullServerName()))
        return;
    localServer->close();
    listen();
#endif
}

void ServiceServer::newConnectionSlot()
{
    qInfo("ServiceServer connection new begin");
    QLocalSocket *socket = localServer->nextPendingConnection();
    if (!socket)
        return;
    const Connection connection{++lastSerial, socket};
    sockets.insert(connection.serial, socket);
    connect(socket, &QLocalSocket::readyRead, this, [this, connection] { readSocket(connection); });
    // Queued, because a socket emits this also from within a wait for its own writing.
    connect(
        socket, &QLocalSocket::disconnected, this, [this, connection] { handleSocketDisconnect(connection); },
        Qt::QueuedConnection);
    connect(socket, &QLocalSocket::errorOccurred, this, &ServiceServer::handleSocketError);
    connections.append(connection);
    counters::page().traffic.connections.add();
    counters::page().traffic.connectionsEver.add();
    {
        QMutexLocker lock(&queueMutex);
        responseQueues.insert(connection.serial, {});
    }
    qInfo("ServiceServer connection new end: socket=%p", connection.address);
}

/// A socket tells of bytes also from within a wait for its own writing. They are read after that.
void ServiceServer::readSocket(Connection connection)
{
    if (writing)
        QMetaObject::invokeMethod(
            this, [this, connection] { handleSocketRead(connection); }, Qt::QueuedConnection);
    else
        handleSocketRead(connection);
}

void ServiceServer::handleSocketRead(Connection connection)
{
    LOG_INFO("ServiceServer::handleSocketRead begin");
    QMutexLocker lock(&socketMutex);
    QVector<IAsyncCommand *> commands;
    const bool whole = takeRequests(connection, commands);
    startCommands(commands);
    lock.unlock();
    if (whole)
        LOG_INFO("ServiceServer::handleSocketRead end");
}

/// Makes a command of each request that has arrived. False when a part of a frame is left.
bool ServiceServer::takeRequests(Connection connection, QVector<IAsyncCommand *> &commands)
{
    QLocalSocket *socket = sockets.value(connection.serial);
    while (socket && socket->bytesAvailable() > wire::lengthFieldBytes) {
        std::optional<qint32> length = frameSizes.take(connection.serial);
        QByteArray payload;
        if (!wire::takePayload(*socket, length, payload)) {
            frameSizes.insert(connection.serial, length);
            return false;
        }
        QString refusal;
        const QVariantMap request = wire::decodePayload(payload, &refusal).toMap();
        if (!refusal.isEmpty())
            qWarning().noquote().nospace()
                << "request does not parse: " << refusal << ": socket=" << connection.address;
        commands.append(makeCommand(connection, request));
        if (commands.size() == startedTogether)
            startCommands(commands);
    }
    return true;
}

IAsyncCommand *ServiceServer::makeCommand(Connection connection, const QVariantMap &request)
{
    auto *command = new IAsyncCommand(service, request);
    const void *const address = command; // the pool deletes the command when it has run
    LOG_INFO("new IAsyncCommand=", address, ": data=", command->describe());
    // Encoded where it was made, on the pool's thread, since all that this thread does is done one by one.
    const auto respondEncoded = [this, connection, address](const QVariant &result) {
        QMetaObject::invokeMethod(
            this,
            [this, connection, address, payload = wire::encodePayload(result)] {
                respond(connection, address, payload);
            },
            Qt::QueuedConnection);
    };
    connect(command, &IAsyncCommand::finished, this, respondEncoded, Qt::DirectConnection);
    ++runningRequests[connection.serial];
    return command;
}

/// Those that have arrived together one right after the other: the pool's threads then wake up once for all
/// of them, while each waking would cost more than its request.
void ServiceServer::startCommands(QVector<IAsyncCommand *> &commands)
{
    for (IAsyncCommand *command : qAsConst(commands)) {
        const void *const address = command;
        QThreadPool::globalInstance()->start(command, 0);
        LOG_INFO("started IAsyncCommand=", address,
                 ": ThreadPool active count=", QThreadPool::globalInstance()->activeThreadCount());
    }
    commands.clear();
}

void ServiceServer::respond(Connection connection, const void *command, const QByteArray &payload)
{
    LOG_INFO("finished IAsyncCommand=", command,
             ": ThreadPool active count=", QThreadPool::globalInstance()->activeThreadCount());
    const auto running = runningRequests.find(connection.serial);
    if (running != runningRequests.end())
        --*running;
    sendResponseData(connection, payload);
    LOG_INFO("responsed IAsyncCommand=", command);
}

void ServiceServer::handleSocketDisconnect(Connection connection)
{
    qInfo("ServiceServer connection disconnect: socket=%p", connection.address);
    {
        QMutexLocker lock(&socketMutex);
        if (QLocalSocket *socket = sockets.take(connection.serial)) {
            counters::page().traffic.connections.add(-1);
            socket->deleteLater();
        }
        frameSizes.remove(connection.serial);
        runningRequests.remove(connection.serial);
        flushTimes.remove(connection.serial);
        waiting.erase(connection.serial);
        QMutexLocker queueLock(&queueMutex);
        const QList<QByteArray> unsent = responseQueues.take(connection.serial);
        countWaiting(-unsent.size(), -bytesOf(unsent));
        countWritten(unsent, false);
    }
    listenAgain();
    if (!service->disconnectReset())
        qCritical("failed to disconnectReset");
    qInfo("ServiceServer connection disconnect end");
}

void ServiceServer::handleSocketError(QLocalSocket::LocalSocketError error)
{
    qCritical() << "ServiceServer::handleSocketError error" << error;
}

/// To everybody. The message is the same for all, so it is encoded once.
void ServiceServer::postMessage(unsigned int msg, const QVariant &eventInfo, const QString &type,
                                const QString &requestID)
{
    counters::EventRow &counted = counters::find(counters::page().events, std::int64_t(msg));
    counted.events.add();
    counted.newest.set(counters::now());
    QByteArray payload;
    for (const Connection &connection : qAsConst(connections)) {
        LOG_INFO("ServiceServer::postMessage begin: socket=", connection.address);
        if (!sockets.contains(connection.serial)) {
            LOG_WARNING("ServiceServer::postMessage end: not found socket=", connection.address);
            continue;
        }
        if (payload.isNull())
            payload = wire::encodePayload(QVariantMap{{QStringLiteral("msg"), msg},
                                                      {QStringLiteral("event_info"), eventInfo},
                                                      {QStringLiteral("type"), code(ai::MessageType::Event)},
                                                      {QStringLiteral("event_type"), type},
                                                      {QStringLiteral("event_req_id"), requestID}});
        sendResponseData(connection, payload);
        LOG_INFO("ServiceServer::postMessage end");
    }
}

void ServiceServer::sendResponseData(Connection connection, const QByteArray &payload)
{
    int gathered = 0;
    {
        QMutexLocker lock(&queueMutex);
        const auto queue = responseQueues.find(connection.serial);
        if (queue == responseQueues.end())
            return;
        const int firstSize = queue->size();
        queue->append(payload);
        gathered = queue->size();
        countWaiting(1, payload.size());
        LOG_DEBUG("ServiceServer::sendResponseData: socket=", connection.address,
                  "queueFirstSize=", firstSize, ", queueLastSize=", gathered);
    }
    awaitFlush(connection.serial, gathered);
}

/// A client that waits for nothing else gets its message at once. One with further requests under way may get
/// it together with their responses, if it was written to within the interval and only a few have gathered
/// since: it reads those while the others are in the making.
void ServiceServer::awaitFlush(quint64 serial, int gathered)
{
    waiting.insert(serial);
    const auto flushed = flushTimes.constFind(serial);
    const bool quiet = flushed == flushTimes.cend() || clock.elapsed() - *flushed >= flushInterval;
    if (!quiet && runningRequests.value(serial) > 0 && gathered < flushedTogether) {
        if (!flushTimer.isActive())
            flushTimer.start(flushInterval);
        return;
    }
    if (flushPosted)
        return;
    flushPosted = true;
    QMetaObject::invokeMethod(this, &ServiceServer::flushSocket, Qt::QueuedConnection);
}

void ServiceServer::flushSocket()
{
    flushPosted = false;
    flushTimer.stop();
    QMutexLocker lock(&socketMutex);
    std::set<quint64> serials;
    serials.swap(waiting);
    for (const quint64 serial : serials) {
        // A socket that is closing has its end on the way, which takes what waits along.
        QLocalSocket *socket = sockets.value(serial);
        if (!socket || socket->state() != QLocalSocket::ConnectedState)
            continue;
        writeResponses(*socket, takeResponses(serial));
        flushTimes[serial] = clock.elapsed();
    }
}

QList<QByteArray> ServiceServer::takeResponses(quint64 serial)
{
    QMutexLocker lock(&queueMutex);
    const auto queue = responseQueues.find(serial);
    if (queue == responseQueues.end() || queue->isEmpty())
        return {};
    QList<QByteArray> responses;
    responses.swap(*queue);
    countWaiting(-responses.size(), -bytesOf(responses));
    return responses;
}

/// What the connection does not take at once stays in the socket, which sends it on from the event loop.
/// While there is such a rest the wait comes first, so that what a client that never reads costs in memory
/// does not grow.
void ServiceServer::writeResponses(QLocalSocket &socket, const QList<QByteArray> &responses)
{
    writing = true;
    const bool behind = socket.bytesToWrite() > 0;
    bool written = !behind || socket.waitForBytesWritten(writeTimeout);
    if (written) {
        for (const QByteArray &payload : responses) {
            const auto head = wire::frameHead(payload.size(), payload.size());
            socket.write(head.data(), qint64(head.size()));
            socket.write(payload);
        }
        written =
            behind || socket.flush() ||
            (socket.state() == QLocalSocket::ConnectedState && socket.waitForBytesWritten(writeTimeout));
    }
    writing = false;
    countWritten(responses, written);
    if (written) {
        LOG_DEBUG("ServiceServer::flushSocket written ok: socket=", static_cast<const void *>(&socket));
        return;
    }
    const QString text("ServiceServer::flushSocket: write response error <%1> <%2>");
    qWarning().noquote() << text.arg(socket.error()).arg(socket.errorString());
}

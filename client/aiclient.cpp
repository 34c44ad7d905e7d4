#include "aiclient.h"

#include "messages.h"
#include "wire.h"

#include <QDir>
#include <QFileInfo>
#include <QtEndian>

#ifdef Q_OS_LINUX
#include <sys/socket.h>
#endif

namespace {

constexpr int expiryInterval = 20;
constexpr int farewellTimeout = 1000;
constexpr int headerSize = 8;

QString connectError(const QLocalSocket &socket, const QString &name)
{
    const auto place = QDir::isAbsolutePath(name) ? name : QDir::temp().filePath(name);
    switch (socket.error()) {
    case QLocalSocket::ServerNotFoundError:
        return QStringLiteral("no service at %1: it is not running, or has another TMPDIR").arg(place);
    case QLocalSocket::ConnectionRefusedError:
        return QStringLiteral("nobody answers at %1: the service has ended without removing its socket")
            .arg(place);
    case QLocalSocket::SocketAccessError:
        return QStringLiteral("no permission for %1: the service belongs to another user").arg(place);
    default:
        return QStringLiteral("cannot connect to %1: %2").arg(place, socket.errorString());
    }
}

} // namespace

QString AiReply::errorText() const
{
    if (ok())
        return {};
    if (outcome != Answered)
        return detail;
    return detail.isEmpty() ? QStringLiteral("error %1").arg(error)
                            : QStringLiteral("error %1: %2").arg(error).arg(detail);
}

AiReply::Refusal AiReply::refusal() const
{
    static const std::pair<const char *, Refusal> signs[] = {{"not open", NotOpen},
                                                             {"not init", NotInitialised},
                                                             {"already start", AlreadyStarted},
                                                             {"not start", NotStarted}};
    for (const auto &[words, refusal] : signs) {
        if (detail.contains(QLatin1String(words)))
            return refusal;
    }
    return OtherState;
}

QString AiReply::meaningOf(int error)
{
    const ai::ErrorRow *row = ai::find(ai::Error{error});
    // What follows a colon is for the page of the protocol.
    return row ? QString(row->meaning).section(':', 0, 0)
               : QStringLiteral("an error that this client doesn't know");
}

AiClient::AiClient(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<AiEvent>();
    connect(&m_expiry, &QTimer::timeout, this, &AiClient::expire);
    connect(&m_socket, &QLocalSocket::readyRead, this, &AiClient::readFrames);
    connect(&m_socket, &QLocalSocket::disconnected, this,
            [this] { lose(QStringLiteral("the service has closed the connection")); });
}

AiClient::~AiClient()
{
    m_socket.disconnect(this);
    m_socket.abort();
}

bool AiClient::connectToService(const QString &name, int timeout)
{
    disconnectFromService();
    m_socket.connectToServer(name, QIODevice::ReadWrite);
    if (!m_socket.waitForConnected(timeout)) {
        m_error = connectError(m_socket, name);
        m_socket.abort();
        return false;
    }
    m_error.clear();
    m_connected = true;
    return true;
}

bool AiClient::connectToRoom(int timeout)
{
    return connectToService(QString::fromLatin1(bridgeName), timeout) ||
           connectToService(QStringLiteral("AI"), timeout);
}

void AiClient::disconnectFromService()
{
    if (!m_connected)
        return;
    while (m_socket.bytesToWrite() > 0 && m_socket.waitForBytesWritten(farewellTimeout)) {
    }
    lose(QStringLiteral("the client has closed the connection"));
}

bool AiClient::isConnected() const
{
    return m_connected;
}

qint64 AiClient::serviceProcessId() const
{
#ifdef Q_OS_LINUX
    ucred other = {};
    socklen_t size = sizeof other;
    if (m_connected &&
        getsockopt(int(m_socket.socketDescriptor()), SOL_SOCKET, SO_PEERCRED, &other, &size) == 0)
        return other.pid;
#endif
    return 0;
}

bool AiClient::isThroughBridge() const
{
    return m_connected && QFileInfo(m_socket.serverName()).fileName() == QLatin1String(bridgeName);
}

void AiClient::request(Kind kind, uint code, const QVariant &data, const QString &requestID,
                       Callback callback, int timeout)
{
    const auto id = ++m_lastID;
    QDeadlineTimer deadline(QDeadlineTimer::Forever);
    if (timeout > 0)
        deadline.setRemainingTime(timeout);
    m_pending.insert(id, {std::move(callback), deadline});
    if (!m_connected) {
        fail(id, AiReply::Disconnected, QStringLiteral("not connected to the service"));
        return;
    }
    if (!m_expiry.isActive())
        m_expiry.start(expiryInterval);

    QVariantMap message{{"req_code", int(kind)}, {"req_id", requestID}, {"req_id2", id}};
    if (kind == Execute || kind == Info)
        message["req_data"] = QVariantMap{{"command_code", int(code)}, {"data", data}};
    m_socket.write(wire::encodeRequest(message));
}

AiReply AiClient::call(Kind kind, uint code, const QVariant &data, const QString &requestID, int timeout)
{
    AiReply answer;
    bool done = false;
    request(
        kind, code, data, requestID,
        [&answer, &done](const AiReply &reply) {
            answer = reply;
            done = true;
        },
        timeout);
    while (!done)
        waitForMessages(expiryInterval);
    return answer;
}

bool AiClient::waitForMessages(int timeout)
{
    if (!m_connected)
        return false;
    const bool arrived = m_socket.waitForReadyRead(timeout);
    // Called from a receiver of readyRead, the wait does not emit it again.
    if (arrived)
        readFrames();
    expire();
    return arrived;
}

void AiClient::readFrames()
{
    while (m_connected && m_socket.bytesAvailable() >= headerSize) {
        char header[headerSize];
        m_socket.peek(header, headerSize);
        const auto size = qFromBigEndian<qint32>(static_cast<const void *>(header));
        if (size < 0 || qFromBigEndian<qint32>(static_cast<const void *>(header + 4)) != size) {
            lose(QStringLiteral("the service sent something that is not a frame"));
            return;
        }
        if (m_socket.bytesAvailable() < headerSize + qint64(size))
            return;
        m_socket.skip(headerSize);
        QString refusal;
        const auto message = wire::decodePayload(m_socket.read(size), &refusal);
        if (message.type() != QVariant::Map) {
            lose(QStringLiteral("the service sent a frame without a map: %1")
                     .arg(refusal.isEmpty() ? QStringLiteral("another value") : refusal));
            return;
        }
        handleMessage(message.toMap());
    }
}

void AiClient::handleMessage(QVariantMap message)
{
    if (message.value("type").toInt() == ai::code(ai::MessageType::Event)) {
        emit eventReceived({message.value("msg").toUInt(), message.value("event_info").toMap(),
                            message.value("event_type").toString(),
                            message.value("event_req_id").toString()});
        return;
    }
    const auto id = message.take("rsp_id");
    if (!id.isValid()) {
        lose(QStringLiteral(
            "the service has answered nobody: a request of this connection has reached it damaged"));
        return;
    }
    const auto pending = m_pending.find(id.toLongLong());
    if (pending == m_pending.end())
        return;
    const auto callback = pending->callback;
    m_pending.erase(pending);
    if (!callback)
        return;
    AiReply reply;
    reply.outcome = AiReply::Answered;
    reply.error = message.value("rsp_error").toInt();
    reply.detail = message.value("rsp_error_detail").toString();
    reply.data = message.value("rsp_data");
    reply.map = std::move(message);
    callback(reply);
}

void AiClient::fail(qint64 id, AiReply::Outcome outcome, const QString &detail)
{
    const auto callback = m_pending.take(id).callback;
    if (!callback)
        return;
    AiReply reply;
    reply.outcome = outcome;
    reply.detail = detail;
    callback(reply);
}

void AiClient::expire()
{
    const auto ids = m_pending.keys();
    for (const auto id : ids) {
        const auto pending = m_pending.constFind(id);
        if (pending != m_pending.constEnd() && pending->deadline.hasExpired())
            fail(id, AiReply::TimedOut, QStringLiteral("the service did not answer in time"));
    }
    if (m_pending.isEmpty())
        m_expiry.stop();
}

void AiClient::lose(const QString &reason)
{
    if (!m_connected)
        return;
    m_connected = false;
    m_error = reason;
    m_socket.abort();
    m_expiry.stop(); // now, since a callback may connect anew and send
    const auto ids = m_pending.keys();
    for (const auto id : ids)
        fail(id, AiReply::Disconnected, reason);
    emit disconnected(reason);
}

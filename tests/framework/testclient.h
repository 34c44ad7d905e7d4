#pragma once

#include "protocol.h"
#include "wire.h"

#include <QDeadlineTimer>
#include <QList>
#include <QLocalSocket>
#include <QtEndian>

#include <functional>

/// The request kinds, the values of "req_code".
enum class Kind
{
    open = ai::code(ai::Kind::Open),
    close = ai::code(ai::Kind::Close),
    execute = ai::code(ai::Kind::Execute),
    info = ai::code(ai::Kind::Info)
};

/// A request map as clients send it.
inline QVariantMap makeRequest(Kind kind, int code = 0, const QVariant &data = {},
                               const QString &requestID = {})
{
    return {{"req_code", static_cast<int>(kind)},
            {"req_id", requestID},
            {"req_data", QVariantMap{{"command_code", code}, {"data", data}}}};
}

/**
 * A client that is nothing but the bytes on the socket. Needs no event loop; each wait is bounded and ends
 * with an empty map or false.
 *
 * Not for two threads at once.
 */
class TestClient
{
public:
    /// @param path name of the socket below this process's temporary folder, or an absolute path
    explicit TestClient(const QString &path = "AI", int milliseconds = 10000)
    {
        socket.connectToServer(path);
        socket.waitForConnected(milliseconds);
    }

    bool isConnected() const { return socket.state() == QLocalSocket::ConnectedState; }

    /// Hands the bytes over to the system before it returns.
    bool sendBytes(const QByteArray &bytes)
    {
        const QDeadlineTimer deadline(10000);
        socket.write(bytes);
        while (socket.bytesToWrite() > 0) {
            if (!socket.waitForBytesWritten(int(deadline.remainingTime())))
                return false;
        }
        return true;
    }
    bool send(const QVariantMap &message) { return sendBytes(frame(message)); }
    static QByteArray frame(const QVariantMap &message) { return wire::encodeFrame(message); }

    /// The next message, response or event.
    QVariantMap receive(int milliseconds = 20000)
    {
        const QDeadlineTimer deadline(milliseconds);
        constexpr int lengthFields = 8;
        int end = lengthFields;
        while (true) {
            if (received.size() >= lengthFields)
                end = lengthFields + qFromBigEndian<qint32>(received.constData());
            if (received.size() >= end)
                break;
            if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(int(deadline.remainingTime())))
                return {};
            received += socket.readAll();
        }
        const QByteArray payload = received.mid(lengthFields, end - lengthFields);
        received.remove(0, end);
        const QVariantMap message = wire::decodePayload(payload).toMap();
        if (inspect && message.contains("msg"))
            inspect({}, message);
        return message;
    }

    /// Sends with an "req_id2" of its own and returns the response to it. Events that come meanwhile, and
    /// responses to other requests, wait in `others`.
    QVariantMap request(QVariantMap message, int milliseconds = 60000)
    {
        const QString mark = QString("request %1").arg(++lastRequest);
        message["req_id2"] = mark;
        const QVariantMap reply = send(message) ? next("rsp_id", mark, milliseconds) : QVariantMap();
        if (inspect && !reply.isEmpty())
            inspect(message, reply);
        return reply;
    }
    QVariantMap open() { return request(makeRequest(Kind::open)); }
    QVariantMap close() { return request(makeRequest(Kind::close)); }
    QVariantMap info(int code) { return request(makeRequest(Kind::info, code)); }
    QVariantMap execute(int code, const QVariant &data = {}, const QString &requestID = {})
    {
        return request(makeRequest(Kind::execute, code, data, requestID));
    }

    /// The next event of this code, among those that wait and those that come.
    QVariantMap event(unsigned int code, int milliseconds = 20000)
    {
        for (int i = 0; i < others.size(); ++i) {
            if (others[i]["msg"] == code)
                return others.takeAt(i);
        }
        return next("msg", code, milliseconds);
    }

    /// Whether the other side has ended the connection.
    bool waitForEnd() { return !isConnected() || socket.waitForDisconnected(10000); }

    QLocalSocket socket;
    QList<QVariantMap> others;
    /// Sees every event that is received, with an empty request, and every reply with its request.
    std::function<void(const QVariantMap &request, const QVariantMap &message)> inspect;

private:
    /// The next message with this value; what comes before it is kept for later.
    QVariantMap next(const QString &key, const QVariant &value, int milliseconds)
    {
        const QDeadlineTimer deadline(milliseconds);
        while (true) {
            const QVariantMap message = receive(int(deadline.remainingTime()));
            if (message.isEmpty() || message[key] == value)
                return message;
            others.append(message);
        }
    }

    QByteArray received;
    int lastRequest = 0;
};

#pragma once

#include "protocol.h"
#include "wire.h"

#include <QDeadlineTimer>
#include <QList>
#include <QLocalSocket>
#include <QtEndian>

#include <functional>

/// A request map as clients send it.
inline QVariantMap makeRequest(ai::Kind kind, int code = 0, const QVariant &data = {},
                               const QString &requestID = {})
{
    return {{"req_code", ai::code(kind)},
            {"req_id", requestID},
            {"req_data", QVariantMap{{"command_code", code}, {"data", data}}}};
}

/**
 * A client that is nothing but the bytes on the socket. Needs no event loop. A wait ends with what it waits
 * for, or with an empty map or false when the connection has ended or the time of the caller is over.
 *
 * Not for two threads at once.
 */
class TestClient
{
public:
    /// @param path name of the socket below this process's temporary folder, or an absolute path
    explicit TestClient(const QString &path = "AI")
    {
        socket.connectToServer(path);
        socket.waitForConnected(-1);
    }

    bool isConnected() const { return socket.state() == QLocalSocket::ConnectedState; }

    /// Hands the bytes over to the system before it returns.
    bool sendBytes(const QByteArray &bytes)
    {
        socket.write(bytes);
        while (socket.bytesToWrite() > 0) {
            if (!socket.waitForBytesWritten(-1))
                return false;
        }
        return true;
    }
    bool send(const QVariantMap &message) { return sendBytes(frame(message)); }
    static QByteArray frame(const QVariantMap &message) { return wire::encodeFrame(message); }

    /// The next message, response or event.
    QVariantMap receive(int milliseconds = -1)
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
    QVariantMap request(QVariantMap message)
    {
        const QString mark = QString("request %1").arg(++lastRequest);
        message["req_id2"] = mark;
        const QVariantMap reply = send(message) ? next("rsp_id", mark) : QVariantMap();
        if (inspect && !reply.isEmpty())
            inspect(message, reply);
        return reply;
    }
    QVariantMap open() { return request(makeRequest(ai::Kind::Open)); }
    QVariantMap close() { return request(makeRequest(ai::Kind::Close)); }
    QVariantMap info(int code) { return request(makeRequest(ai::Kind::Info, code)); }
    QVariantMap execute(int code, const QVariant &data = {}, const QString &requestID = {})
    {
        return request(makeRequest(ai::Kind::Execute, code, data, requestID));
    }

    /// The next event of this code, among those that wait and those that come.
    QVariantMap event(unsigned int code)
    {
        for (int i = 0; i < others.size(); ++i) {
            if (others[i]["msg"] == code)
                return others.takeAt(i);
        }
        return next("msg", code);
    }

    /// Whether the other side has ended the connection.
    bool waitForEnd() { return !isConnected() || socket.waitForDisconnected(-1); }

    QLocalSocket socket;
    QList<QVariantMap> others;
    /// Sees every event that is received, with an empty request, and every reply with its request.
    std::function<void(const QVariantMap &request, const QVariantMap &message)> inspect;

private:
    /// The next message with this value; what comes before it is kept for later.
    QVariantMap next(const QString &key, const QVariant &value)
    {
        while (true) {
            const QVariantMap message = receive();
            if (message.isEmpty() || message[key] == value)
                return message;
            others.append(message);
        }
    }

    QByteArray received;
    int lastRequest = 0;
};

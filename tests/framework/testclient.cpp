#include "testclient.h"

#include "wire.h"

#include <QElapsedTimer>
#include <QtEndian>

namespace {

/// What is left of a time, for the waits of a socket, to which a negative time is endless.
int left(const QElapsedTimer &clock, int milliseconds)
{
    return qMax(0, milliseconds - static_cast<int>(clock.elapsed()));
}

/// The next message with this value; what comes before it is kept for later.
QVariantMap next(TestClient &client, const QString &key, const QVariant &value, int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    while (true) {
        const QVariantMap message = client.receive(left(clock, milliseconds));
        if (message.isEmpty() || message[key] == value)
            return message;
        client.others.append(message);
    }
}

} // namespace

QVariantMap makeRequest(Kind kind, int code, const QVariant &data, const QString &requestID)
{
    return {{"req_code", static_cast<int>(kind)},
            {"req_id", requestID},
            {"req_data", QVariantMap{{"command_code", code}, {"data", data}}}};
}

TestClient::TestClient(const QString &path, int milliseconds)
{
    socket.connectToServer(path);
    socket.waitForConnected(milliseconds);
}

bool TestClient::sendBytes(const QByteArray &bytes, int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    socket.write(bytes);
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(left(clock, milliseconds)))
            return false;
    }
    return true;
}

QByteArray TestClient::frame(const QVariantMap &message)
{
    return wire::encodeFrame(message);
}

QVariantMap TestClient::receive(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    QVariantMap message;
    while (!takeMessage(message)) {
        if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(left(clock, milliseconds)))
            return {};
        received += socket.readAll();
    }
    return message;
}

QVariantMap TestClient::request(QVariantMap message, int milliseconds)
{
    const QString mark = QString("request %1").arg(++lastRequest);
    message["req_id2"] = mark;
    if (!send(message))
        return {};
    return next(*this, "rsp_id", mark, milliseconds);
}

QVariantMap TestClient::execute(int code, const QVariant &data, const QString &requestID)
{
    return request(makeRequest(Kind::execute, code, data, requestID));
}

QVariantMap TestClient::event(unsigned int code, int milliseconds)
{
    for (int i = 0; i < others.size(); ++i) {
        if (others[i]["msg"] == code)
            return others.takeAt(i);
    }
    return next(*this, "msg", code, milliseconds);
}

bool TestClient::waitForEnd(int milliseconds)
{
    return !isConnected() || socket.waitForDisconnected(milliseconds);
}

bool TestClient::takeMessage(QVariantMap &message)
{
    constexpr int lengthFields = 8;
    if (received.size() < lengthFields)
        return false;
    const auto length = qFromBigEndian<qint32>(received.constData());
    if (received.size() - lengthFields < length)
        return false;
    message = wire::decodePayload(received.mid(lengthFields, length)).toMap();
    received.remove(0, lengthFields + length);
    return true;
}

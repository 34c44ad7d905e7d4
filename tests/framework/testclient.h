#pragma once

#include <QList>
#include <QLocalSocket>
#include <QVariant>

/// The request kinds, the values of "req_code".
enum class Kind
{
    open = 1,
    close = 2,
    execute = 3,
    info = 4
};

/// A request map as clients send it.
QVariantMap makeRequest(Kind kind, int code = 0, const QVariant &data = {}, const QString &requestID = {});

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
    explicit TestClient(const QString &path = "AI", int milliseconds = 10000);

    bool isConnected() const { return socket.state() == QLocalSocket::ConnectedState; }

    /// Hands the bytes over to the system before it returns.
    bool sendBytes(const QByteArray &bytes, int milliseconds = 10000);
    bool send(const QVariantMap &message) { return sendBytes(frame(message)); }
    static QByteArray frame(const QVariantMap &message);

    /// The next message, response or event.
    QVariantMap receive(int milliseconds = 20000);

    /// Sends with an "req_id2" of its own and returns the response to it. Events that come meanwhile, and
    /// responses to other requests, wait in `others`.
    QVariantMap request(QVariantMap message, int milliseconds = 60000);
    QVariantMap open() { return request(makeRequest(Kind::open)); }
    QVariantMap close(const QString &requestID = {})
    {
        return request(makeRequest(Kind::close, 0, {}, requestID));
    }
    QVariantMap execute(int code, const QVariant &data = {}, const QString &requestID = {});
    QVariantMap info(int code) { return request(makeRequest(Kind::info, code)); }

    /// The next event of this code, among those that wait and those that come.
    QVariantMap event(unsigned int code, int milliseconds = 20000);

    /// Whether the other side has ended the connection.
    bool waitForEnd(int milliseconds = 10000);

    QLocalSocket socket;
    QList<QVariantMap> others;

private:
    bool takeMessage(QVariantMap &message);

    QByteArray received;
    int lastRequest = 0;
};

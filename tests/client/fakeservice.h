#pragma once

#include "wire.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>
#include <QVariant>

#include <functional>
#include <memory>

/**
 * A service that answers as a test tells it, on the socket "AI" of the test's temporary folder.
 *
 * It runs on a thread of its own, so that a client may wait for it. The answer function is called there, and
 * returns the messages to send, in order; "rsp_id" and "type" of replies are filled in.
 */
class FakeService
{
public:
    using Answer = std::function<QVariantList(const QVariantMap &request)>;

    explicit FakeService(Answer answer);
    ~FakeService();

    /// The requests so far.
    QList<QVariantMap> requests() const;
    /// Sends raw bytes to all clients.
    void sendBytes(const QByteArray &bytes);
    /// Sends a message to all clients.
    void send(const QVariantMap &message) { sendBytes(wire::encodeFrame(message)); }
    void dropClients();
    int clientCount() const;

    static QVariantMap reply(int error = 0, const QString &detail = {}, const QVariant &data = {});
    static QVariantMap event(uint code, const QVariantMap &info, const QString &requestID = "0");

private:
    void accept();
    void readFrom(QLocalSocket *socket);
    void onThread(const std::function<void()> &work) const;

    const Answer m_answer;
    QThread m_thread;
    std::unique_ptr<QObject> m_context; // lives on the thread
    // The rest is only touched on the thread.
    QLocalServer *m_server = nullptr;
    QList<QLocalSocket *> m_sockets;
    QList<QVariantMap> m_requests;
};

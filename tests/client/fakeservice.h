#pragma once

#include "protocol.h"
#include "wire.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <functional>

/**
 * A service that answers as a test tells it, on the socket "AI" of the test's temporary folder.
 *
 * It runs on a thread of its own, so that a client may wait for it. The answer function is called there, and
 * returns the messages to send, in order; "rsp_id" and "type" of replies are filled in. The first one tells
 * of success.
 */
class FakeService
{
public:
    using Answer = std::function<QVariantList(const QVariantMap &request)>;

    FakeService()
    {
        m_answer = [](const QVariantMap &) { return QVariantList{reply()}; };
        QLocalServer::removeServer("AI");
        if (!m_server->listen("AI"))
            qFatal("the fake service cannot listen");
        QObject::connect(m_server, &QLocalServer::newConnection, m_server, [this] { accept(); });
        QObject::connect(&m_thread, &QThread::finished, m_server, &QObject::deleteLater);
        m_server->moveToThread(&m_thread);
        m_thread.start();
    }
    ~FakeService()
    {
        m_thread.quit();
        m_thread.wait();
    }

    void setAnswer(const Answer &answer)
    {
        onThread([&] { m_answer = answer; });
    }
    /// The requests so far.
    QList<QVariantMap> requests() const
    {
        QList<QVariantMap> requests;
        onThread([&] { requests = m_requests; });
        return requests;
    }
    /// Sends raw bytes to all clients.
    void sendBytes(const QByteArray &bytes) const
    {
        onThread([&] {
            for (auto *socket : sockets())
                socket->write(bytes);
        });
    }
    /// Sends a message to all clients.
    void send(const QVariantMap &message) const { sendBytes(wire::encodeFrame(message)); }
    void dropClients() const
    {
        onThread([this] {
            for (auto *socket : sockets())
                socket->disconnectFromServer();
        });
    }
    int clientCount() const
    {
        int count = 0;
        onThread([&] { count = sockets().size(); });
        return count;
    }

    static QVariantMap reply(int error = 0, const QString &detail = {}, const QVariant &data = {})
    {
        return {{"rsp_error", error}, {"rsp_error_detail", detail}, {"rsp_data", data}};
    }
    static QVariantMap event(uint code, const QVariantMap &info, const QString &requestID = "0")
    {
        return {{"type", ai::code(ai::MessageType::Event)},
                {"msg", code},
                {"event_info", info},
                {"event_type", requestID == "0" ? "service" : "execute"},
                {"event_req_id", requestID}};
    }

private:
    void onThread(const std::function<void()> &work) const
    {
        if (QThread::currentThread() == &m_thread)
            work(); // called from the answer function
        else
            QMetaObject::invokeMethod(m_server, work, Qt::BlockingQueuedConnection);
    }
    QList<QLocalSocket *> sockets() const { return m_server->findChildren<QLocalSocket *>(); }
    void accept()
    {
        auto *const socket = m_server->nextPendingConnection();
        QObject::connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QLocalSocket::readyRead, socket, [this, socket] { readFrom(*socket); });
    }
    void readFrom(QLocalSocket &socket)
    {
        QDataStream stream(&socket);
        while (socket.bytesAvailable() > 0) {
            qint32 length = 0;
            QByteArray payload;
            stream.startTransaction();
            stream >> length >> payload;
            if (!stream.commitTransaction())
                return;
            if (length != payload.size() + 4) { // the real one may take such a frame in parts
                socket.abort();
                return;
            }
            const auto request = wire::decodePayload(payload).toMap();
            m_requests.append(request);
            for (const auto &value : m_answer(request)) {
                auto message = value.toMap();
                if (!message.contains("type")) {
                    message["type"] = ai::code(ai::MessageType::Reply);
                    message.insert("rsp_id", message.value("rsp_id", request["req_id2"]));
                }
                socket.write(wire::encodeFrame(message));
            }
        }
    }

    QThread m_thread;
    QLocalServer *const m_server = new QLocalServer; // only touched on the thread, as is what follows
    Answer m_answer;
    QList<QVariantMap> m_requests;
};

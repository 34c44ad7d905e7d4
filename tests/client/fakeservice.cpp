#include "fakeservice.h"

#include <QtEndian>

FakeService::FakeService(Answer answer) : m_answer(std::move(answer)), m_context(new QObject)
{
    m_context->moveToThread(&m_thread);
    m_thread.start();
    onThread([this] {
        m_server = new QLocalServer;
        QLocalServer::removeServer("AI");
        if (!m_server->listen("AI"))
            qFatal("the fake service cannot listen");
        QObject::connect(m_server, &QLocalServer::newConnection, m_context.get(), [this] { accept(); });
    });
}

FakeService::~FakeService()
{
    onThread([this] {
        m_server->disconnect();
        delete m_server; // its sockets with it
    });
    m_thread.quit();
    m_thread.wait();
}

void FakeService::onThread(const std::function<void()> &work) const
{
    if (QThread::currentThread() == &m_thread)
        work(); // called from the answer function
    else
        QMetaObject::invokeMethod(m_context.get(), work, Qt::BlockingQueuedConnection);
}

void FakeService::accept()
{
    auto *socket = m_server->nextPendingConnection();
    m_sockets.append(socket);
    QObject::connect(socket, &QLocalSocket::readyRead, m_context.get(), [this, socket] { readFrom(socket); });
    QObject::connect(socket, &QLocalSocket::disconnected, m_context.get(),
                     [this, socket] { m_sockets.removeAll(socket); });
}

void FakeService::readFrom(QLocalSocket *socket)
{
    while (socket->bytesAvailable() >= 8) {
        const auto size = qFromBigEndian<qint32>(socket->peek(4).constData());
        if (socket->bytesAvailable() < size + 8)
            return;
        const auto request = wire::decodePayload(socket->read(size + 8).mid(8)).toMap();
        m_requests.append(request);
        for (const auto &value : m_answer(request)) {
            auto message = value.toMap();
            if (!message.contains("type")) {
                message["type"] = 1;
                message.insert("rsp_id", message.value("rsp_id", request["req_id2"]));
            }
            socket->write(wire::encodeFrame(message));
        }
    }
}

QList<QVariantMap> FakeService::requests() const
{
    QList<QVariantMap> requests;
    onThread([&] { requests = m_requests; });
    return requests;
}

void FakeService::sendBytes(const QByteArray &bytes)
{
    onThread([&] {
        for (auto *socket : qAsConst(m_sockets)) {
            socket->write(bytes);
            socket->flush();
        }
    });
}

void FakeService::dropClients()
{
    onThread([this] {
        const auto sockets = m_sockets;
        for (auto *socket : sockets)
            socket->disconnectFromServer();
    });
}

int FakeService::clientCount() const
{
    int count = 0;
    onThread([&] { count = m_sockets.size(); });
    return count;
}

QVariantMap FakeService::reply(int error, const QString &detail, const QVariant &data)
{
    return {{"rsp_error", error}, {"rsp_error_detail", detail}, {"rsp_data", data}};
}

QVariantMap FakeService::event(uint code, const QVariantMap &info, const QString &requestID)
{
    return {{"type", 2},
            {"msg", code},
            {"event_info", info},
            {"event_type", requestID == "0" ? "service" : "execute"},
            {"event_req_id", requestID}};
}

#include "lookers.h"

#include "report.h"
#include "wire.h"

namespace {

constexpr qint64 longestQueue = 64 << 20; // bytes

} // namespace

Lookers::Lookers(ServiceLink &service, Keeper &keeper, QObject *parent)
    : QObject(parent), m_service(service), m_keeper(keeper)
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, &Lookers::accept);
    connect(&service, &ServiceLink::up, this, &Lookers::listen);
    connect(&service, &ServiceLink::down, this, &Lookers::close);
    connect(&service, &ServiceLink::eventReceived, this, &Lookers::sendEvent);
}

void Lookers::listen()
{
    const QString name = QString::fromLatin1(AiClient::bridgeName);
    QLocalServer::removeServer(name);
    if (!m_server.listen(name))
        report(QStringLiteral("cannot listen for others: %1").arg(m_server.errorString()));
}

void Lookers::close()
{
    m_server.close();
    const auto serials = m_lookers.keys();
    for (const quint64 serial : serials)
        remove(serial);
}

void Lookers::accept()
{
    while (QLocalSocket *socket = m_server.nextPendingConnection()) {
        const quint64 serial = ++m_lastSerial;
        m_lookers.insert(serial, {socket, {}});
        connect(
            socket, &QLocalSocket::readyRead, this, [this, serial] { read(serial); }, Qt::QueuedConnection);
        connect(
            socket, &QLocalSocket::disconnected, this, [this, serial] { remove(serial); },
            Qt::QueuedConnection);
        read(serial);
    }
}

void Lookers::remove(quint64 serial)
{
    const auto looker = m_lookers.find(serial);
    if (looker == m_lookers.end())
        return;
    QLocalSocket *const socket = looker->socket;
    m_lookers.erase(looker);
    socket->flush();
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
}

void Lookers::read(quint64 serial)
{
    auto looker = m_lookers.find(serial);
    while (looker != m_lookers.end() && looker->socket->bytesAvailable() > wire::lengthFieldBytes) {
        QByteArray payload;
        if (!wire::takePayload(*looker->socket, looker->length, payload))
            return;
        looker->length.reset();
        pass(serial, wire::decodePayload(payload).toMap());
        looker = m_lookers.find(serial);
    }
}

void Lookers::pass(quint64 serial, const QVariantMap &request)
{
    const auto kind = AiClient::Kind(request.value("req_code").toInt());
    const QVariantMap data = request.value("req_data").toMap();
    const uint code = data.value("command_code").toUInt();
    const QVariant id = request.value("req_id2");
    if (m_keeper.keeps(kind, code)) {
        send(serial, wire::encodeFrame(QVariantMap{{"type", ai::code(ai::MessageType::Reply)},
                                                   {"rsp_id", id},
                                                   {"rsp_error", 0},
                                                   {"rsp_error_detail", "kept running by the bridge"},
                                                   {"rsp_data", QVariantMap{{"command_code", code}}}}));
        return;
    }
    m_service.request(kind, code, data.value("data"), request.value("req_id").toString(),
                      [this, serial, id, kind, code](const AiReply &reply) {
                          if (reply.outcome != AiReply::Answered)
                              return;
                          QVariantMap answer = reply.map;
                          answer.insert("rsp_id", id);
                          send(serial, wire::encodeFrame(answer));
                          if (reply.ok() && kind != AiClient::Info)
                              m_keeper.noticeRequest(kind, code);
                      });
}

void Lookers::sendEvent(const AiEvent &event)
{
    if (m_lookers.isEmpty() || Keeper::isOwnCount(event))
        return;
    const QByteArray frame = wire::encodeFrame(QVariantMap{{"type", ai::code(ai::MessageType::Event)},
                                                           {"msg", event.code},
                                                           {"event_info", event.info},
                                                           {"event_type", event.type},
                                                           {"event_req_id", event.requestID}});
    const auto serials = m_lookers.keys();
    for (const quint64 serial : serials)
        send(serial, frame);
}

void Lookers::send(quint64 serial, const QByteArray &frame)
{
    const auto looker = m_lookers.constFind(serial);
    if (looker == m_lookers.constEnd())
        return;
    if (looker->socket->bytesToWrite() > longestQueue) {
        report(QStringLiteral("a client that does not read is let go of"));
        remove(serial);
        return;
    }
    looker->socket->write(frame);
}

#include "servicelink.h"

#include "eventtext.h"
#include "json.h"
#include "picture.h"
#include "words.h"

#include <QCoreApplication>
#include <QDateTime>

namespace {

constexpr int connectInterval = 1000; // milliseconds
constexpr int stateInterval = 2000;
constexpr int connectTimeout = 200;
/// Even a busy service tells its state at once.
constexpr int longestAnswer = 5000;
/// Closing finishes a video file, loading takes long on a slow disk.
constexpr int requestTimeout = 180000;

} // namespace

ServiceLink::ServiceLink(const QString &socketName, QObject *parent)
    : QObject(parent), m_socketName(socketName)
{
    connect(&m_timer, &QTimer::timeout, this, [this] {
        if (m_client.isConnected())
            askForState();
        else
            tryToConnect();
    });
    connect(&m_client, &AiClient::disconnected, this, [this] {
        m_timer.start(connectInterval);
        m_queue.clear();
        m_asking = false;
        setState(-1);
        emit connectionChanged(false);
    });
    connect(&m_client, &AiClient::eventReceived, this, [this](const AiEvent &event) {
        emit eventReceived(event);
        const QVariantMap content = picture::withoutPictures(event.info).toMap();
        emit exchanged({QDateTime::currentDateTime(), true, false, words::event(event.code), eventText(event),
                        QVariantMap{{"msg", event.code},
                                    {"event_type", event.type},
                                    {"event_req_id", event.requestID},
                                    {"event_info", content}}});
    });
}

ServiceLink::~ServiceLink()
{
    m_client.disconnect(this);
}

void ServiceLink::start()
{
    m_timer.start(connectInterval);
    tryToConnect();
}

void ServiceLink::tryToConnect()
{
    const bool isConnected = m_socketName.isEmpty() ? m_client.connectToRoom(connectTimeout)
                                                    : m_client.connectToService(m_socketName, connectTimeout);
    if (!isConnected)
        return;
    m_timer.start(stateInterval);
    emit connectionChanged(true);
    askForState();
}

void ServiceLink::askForState()
{
    if (m_asking) {
        if (m_asked.hasExpired(longestAnswer))
            setState(noAnswer);
        return;
    }
    m_asking = true;
    m_asked.start();
    m_client.request(AiClient::Info, code(ai::Question::Status), {}, "viewer-state",
                     [this](const AiReply &reply) {
                         m_asking = false;
                         if (!reply.ok())
                             return;
                         const auto data = reply.data.toMap();
                         m_version = data["version"].toString();
                         setState(data["status"].toInt());
                     });
}

void ServiceLink::setState(int state)
{
    if (state == m_state)
        return;
    m_state = state;
    emit changed();
}

QString ServiceLink::newRequestID(const QString &purpose)
{
    return QStringLiteral("%1-%2-%3").arg(purpose).arg(QCoreApplication::applicationPid()).arg(++m_lastID);
}

void ServiceLink::send(AiClient::Kind kind, uint code, const QVariant &data, Callback callback,
                       const QString &requestID)
{
    m_queue.enqueue({kind, code, data, std::move(callback),
                     requestID.isEmpty() ? newRequestID(QStringLiteral("viewer")) : requestID});
    sendNext();
}

void ServiceLink::sendNext()
{
    if (m_waiting || m_queue.isEmpty())
        return;
    const Request request = m_queue.dequeue();
    m_waiting = true;
    m_currentTitle = words::command(request.kind, request.code);
    emit changed();
    m_client.request(
        request.kind, request.code, request.data, request.requestID,
        [this, request](const AiReply &reply) { finish(request, reply); }, requestTimeout);
}

void ServiceLink::finish(const Request &request, const AiReply &reply)
{
    m_waiting = false;
    const QString title = m_currentTitle;
    m_currentTitle.clear();
    QVariantMap content{{"req_code", int(request.kind)},
                        {"req_id", request.requestID},
                        {"data", picture::withoutPictures(request.data)},
                        {"reply", picture::withoutPictures(reply.map)}};
    if (request.kind == AiClient::Execute)
        content["command_code"] = request.code;
    emit exchanged({QDateTime::currentDateTime(), false, !reply.ok(), title,
                    reply.ok() ? tr("done") : reply.errorText(), content});
    const QString advice = words::failure(request.kind, request.code, reply);
    if (!advice.isEmpty())
        emit failed(title, advice);
    if (request.callback)
        request.callback(reply);
    if (m_client.isConnected())
        askForState();
    emit changed();
    sendNext();
}

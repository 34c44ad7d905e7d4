#include "servicelink.h"

#include "report.h"

#include <algorithm>
#include <csignal>
#include <utility>

namespace {

constexpr int firstPause = 250;         // milliseconds
constexpr int longestPause = 5000;      // milliseconds
constexpr int heartbeatInterval = 1000; // milliseconds
constexpr int connectTimeout = 1000;    // milliseconds
constexpr int noTimeout = 0;

} // namespace

ServiceLink::ServiceLink(int patience, QObject *parent)
    : QObject(parent), m_patience(patience), m_pause(firstPause)
{
    m_reconnect.setSingleShot(true);
    m_heartbeat.setInterval(heartbeatInterval);
    connect(&m_reconnect, &QTimer::timeout, this, &ServiceLink::connectNow);
    connect(&m_heartbeat, &QTimer::timeout, this, &ServiceLink::askForState);
    connect(&m_client, &AiClient::disconnected, this, &ServiceLink::lose);
    connect(&m_client, &AiClient::eventReceived, this, &ServiceLink::eventReceived);
}

void ServiceLink::start()
{
    m_reconnect.start(0);
}

void ServiceLink::connectNow()
{
    if (!m_client.connectToService(QStringLiteral("AI"), connectTimeout)) {
        lose(m_client.errorString());
        return;
    }
    m_pause = firstPause;
    m_busy = m_asking = m_aborted = false;
    m_answered.start();
    m_heartbeat.start();
    emit up();
    askForState();
}

void ServiceLink::lose(const QString &reason)
{
    m_heartbeat.stop();
    m_state = -1;
    m_version.clear();
    m_busy = false;
    for (const Waiting &waiting : std::exchange(m_waiting, {})) {
        AiReply reply;
        reply.detail = reason;
        if (waiting.callback)
            waiting.callback(reply);
    }
    emit down(reason);
    m_reconnect.start(m_pause);
    m_pause = std::min(2 * m_pause, longestPause);
}

void ServiceLink::askForState()
{
    if (m_answered.elapsed() > m_patience) {
        endService();
        return;
    }
    if (m_asking || !isUp())
        return;
    m_asking = true;
    m_client.request(
        AiClient::Info, code(ai::Question::Status), {}, QStringLiteral("bridge-status"),
        [this](const AiReply &reply) {
            m_asking = false;
            if (reply.outcome != AiReply::Answered)
                return;
            m_answered.start();
            const QVariantMap data = reply.data.toMap();
            m_state = data.value("status").toInt();
            m_version = data.value("version").toString();
            emit stateTold();
        },
        noTimeout);
}

void ServiceLink::endService()
{
    m_answered.start();
#ifdef Q_OS_UNIX
    const qint64 process = m_client.serviceProcessId();
    if (process <= 0)
        return;
    report(
        m_aborted
            ? QStringLiteral("the service does not even end; it is killed")
            : QStringLiteral("the service has not answered for %1 s; it is ended").arg(m_patience / 1000.0));
    ::kill(pid_t(process), m_aborted ? SIGKILL : SIGABRT);
    m_aborted = true;
#endif
}

void ServiceLink::request(AiClient::Kind kind, uint code, const QVariant &data, const QString &requestID,
                          AiClient::Callback callback)
{
    if (kind == AiClient::Info || !isUp()) {
        m_client.request(kind, code, data, requestID, std::move(callback), noTimeout);
        return;
    }
    m_waiting.enqueue({kind, code, data, requestID, std::move(callback)});
    sendNext();
}

void ServiceLink::sendNext()
{
    if (m_busy || m_waiting.isEmpty() || !isUp())
        return;
    m_busy = true;
    const Waiting next = m_waiting.dequeue();
    m_client.request(
        next.kind, next.code, next.data, next.requestID,
        [this, callback = next.callback](const AiReply &reply) {
            m_busy = false;
            if (callback)
                callback(reply);
            sendNext();
        },
        noTimeout);
}

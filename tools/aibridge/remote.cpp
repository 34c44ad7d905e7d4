#include "remote.h"

#include "codes.h"
#include "json.h"
#include "privacy.h"
#include "report.h"

#include <QJsonDocument>

namespace {

constexpr int mostRunning = 8;
constexpr int deepest = 16; // containers within each other
constexpr int notAllowed = -1;
constexpr int unusable = ai::code(ai::Error::BadParameters);

int depthOf(const QByteArray &text)
{
    int depth = 0, most = 0;
    for (const char c : text) {
        depth += c == '{' || c == '[' ? 1 : c == '}' || c == ']' ? -1 : 0;
        most = qMax(most, depth);
    }
    return most;
}

} // namespace

Remote::Remote(const Settings &settings, Broker &broker, ServiceLink &service, Keeper &keeper,
               QObject *parent)
    : QObject(parent), m_settings(settings), m_broker(broker), m_service(service), m_keeper(keeper)
{
    connect(&broker, &Broker::requested, this, &Remote::take);
}

QString Remote::subscription(const Settings &settings)
{
    return settings.commands.isEmpty() ? QString() : settings.topicBase() + "/command/+";
}

void Remote::take(const Broker::Request &request)
{
    if (!request.responseTopic.startsWith(m_settings.topicBase() + "/reply/") ||
        request.responseTopic.contains('+') || request.responseTopic.contains('#')) {
        report(QStringLiteral("a request without a response topic below %1/reply/ is dropped")
                   .arg(m_settings.topicBase()));
        return;
    }
    const QString word = request.topic.section('/', -1);
    if (!m_settings.commands.contains(word)) {
        answer(request, notAllowed, QStringLiteral("not allowed by the room's configuration"));
        return;
    }
    QJsonParseError problem;
    const QByteArray text = request.payload.trimmed();
    const QJsonDocument parameters = depthOf(text) > deepest
                                         ? QJsonDocument()
                                         : QJsonDocument::fromJson(text.isEmpty() ? "{}" : text, &problem);
    if (!parameters.isObject()) {
        answer(request, unusable, QStringLiteral("the payload is not a JSON object"));
        return;
    }
    if (m_running >= mostRunning) {
        answer(request, notAllowed, QStringLiteral("too many requests at once"));
        return;
    }
    if (!m_service.isUp()) {
        answer(request, notAllowed, QStringLiteral("the service is away"));
        return;
    }
    const bool isStatus = word == "status";
    const uint code = isStatus ? ai::code(ai::Question::Status) : ai::code(codes::commandWords().value(word));
    if (m_keeper.keeps(AiClient::Execute, code) && !isStatus) {
        answer(request, 0, QStringLiteral("kept running by the bridge"));
        return;
    }
    ++m_running;
    m_service.request(isStatus ? AiClient::Info : AiClient::Execute, code,
                      json::toVariant(parameters.object()), QStringLiteral("remote-%1").arg(++m_lastID),
                      [this, request, code, isStatus](const AiReply &reply) {
                          --m_running;
                          if (reply.ok() && !isStatus)
                              m_keeper.noticeRequest(AiClient::Execute, code);
                          answer(request, reply);
                      });
}

void Remote::answer(const Broker::Request &request, const AiReply &reply)
{
    if (reply.outcome == AiReply::Answered)
        answer(request, reply.error, reply.detail, reply.data);
    else
        answer(request, notAllowed, QStringLiteral("the service went away before it answered"));
}

void Remote::answer(const Broker::Request &request, int error, const QString &detail, const QVariant &data)
{
    const QJsonObject object{{"error", error},
                             {"words", error == notAllowed ? detail : AiReply::meaningOf(error)},
                             {"detail", detail},
                             {"data", privacy::outgoing(data.toMap(), m_settings.privacy)}};
    m_broker.publish(request.responseTopic, json::line(object).toUtf8(), false, request.correlation);
}

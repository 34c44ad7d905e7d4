#include "bridge.h"

#include "codes.h"
#include "json.h"
#include "privacy.h"
#include "report.h"

#include <QDateTime>
#include <QJsonArray>

#include <cmath>

namespace {

constexpr int tickInterval = 250;    // milliseconds
constexpr int stateInterval = 10000; // milliseconds, when only ages have changed
constexpr int minute = 60000;        // milliseconds

QString now()
{
    return QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
}

QJsonValue seconds(qint64 milliseconds)
{
    return milliseconds < 0 ? QJsonValue() : QJsonValue(std::floor(double(milliseconds) / 100) / 10);
}

QString stateWord(int state)
{
    switch (ai::State{state}) {
    case ai::State::Closed:
        return QStringLiteral("closed");
    case ai::State::Open:
        return QStringLiteral("open");
    case ai::State::Initialised:
        return QStringLiteral("initialised");
    default:
        return QStringLiteral("away");
    }
}

} // namespace

Bridge::Bridge(const Settings &settings, QObject *parent)
    : QObject(parent),
      m_settings(settings),
      m_service(settings.run.patience),
      m_keeper(settings, m_service, m_camera),
      m_lookers(m_service, m_keeper),
      m_outbox(settings.broker.storeCount, settings.broker.storeBytes),
      m_begin(now())
{
    m_clock.start();
    connect(&m_service, &ServiceLink::eventReceived, this, &Bridge::onEvent);
    connect(&m_service, &ServiceLink::up, this, [this] {
        m_serviceProblem.clear();
        report(QStringLiteral("the service is there"));
    });
    connect(&m_service, &ServiceLink::down, this, [this](const QString &reason) {
        if (reason != m_serviceProblem)
            report(QStringLiteral("waiting for the service: %1").arg(reason));
        m_serviceProblem = reason;
    });
    connect(&m_tick, &QTimer::timeout, this, &Bridge::tick);
    if (settings.broker.host.isEmpty())
        return;
    m_broker =
        std::make_unique<Broker>(settings.broker, "aibridge-" + settings.school + '-' + settings.room,
                                 settings.topicBase() + "/availability", Remote::subscription(settings));
    m_remote = std::make_unique<Remote>(settings, *m_broker, m_service, m_keeper);
    connect(m_broker.get(), &Broker::connected, this, &Bridge::onConnected);
    connect(m_broker.get(), &Broker::disconnected, this, &Bridge::onDisconnected);
    connect(m_broker.get(), &Broker::acknowledged, this, [this](int number) {
        m_outbox.acknowledged(number, m_clock.elapsed());
        flush();
    });
}

Bridge::~Bridge()
{
    if (m_broker)
        m_broker->publish(m_settings.topicBase() + "/availability", "offline", true);
}

void Bridge::start()
{
    m_service.start();
    if (m_settings.metricsPort != 0)
        m_metrics = std::make_unique<MetricsServer>(m_settings.metricsPort);
    if (m_broker)
        m_broker->start();
    m_tick.start(tickInterval);
}

void Bridge::onConnected()
{
    m_brokerProblem.clear();
    report(QStringLiteral("the broker is there, %1 messages wait").arg(m_outbox.waiting()));
    // It may have been killed, and have lost what is retained.
    m_retained.clear();
    m_stateSent = {};
    retain("availability", "online");
    tick();
}

void Bridge::onDisconnected(const QString &reason, bool wasConnected)
{
    if (wasConnected)
        m_outbox.sendAgain(m_clock.elapsed());
    if (reason != m_brokerProblem || wasConnected)
        report(QStringLiteral("waiting for the broker: %1").arg(reason));
    m_brokerProblem = reason;
}

void Bridge::onEvent(const AiEvent &event)
{
    if (m_keeper.isOwnCount(event))
        return;
    m_lastEvent.start();
    m_summary.add(event);
    if (!m_broker)
        return;
    send("event/" + codes::eventWord(event.code),
         {{"msg", int(event.code)},
          {"event_type", event.type},
          {"event_req_id",
           privacy::outgoingRequestID(event.requestID, Keeper::requestPrefix, m_settings.privacy)},
          {"event_info", privacy::outgoing(event.info, m_settings.privacy)}});
}

void Bridge::send(const QString &topic, QJsonObject object)
{
    object.insert("time", now());
    object.insert("begin", m_begin);
    object.insert("sequence", double(++m_sequence));
    m_outbox.add({m_settings.topicBase() + '/' + topic, json::line(object).toUtf8()});
    flush();
}

void Bridge::flush()
{
    while (const OutgoingMessage *message = m_outbox.next()) {
        const int number = m_broker->publish(message->topic, message->payload, false);
        if (number == 0)
            return;
        m_outbox.handedOver(number);
    }
}

void Bridge::retain(const QString &topic, const QByteArray &payload)
{
    if (m_retained.value(topic) == payload)
        return;
    if (m_broker->publish(m_settings.topicBase() + '/' + topic, payload, true) != 0)
        m_retained.insert(topic, payload);
}

void Bridge::tick()
{
    if (m_metrics)
        m_metrics->update(ownMetrics());
    const qint64 thisMinute = m_clock.elapsed() / minute;
    if (m_minute >= 0 && thisMinute != m_minute) {
        const QJsonObject object = m_summary.take();
        if (m_broker)
            send("summary", object);
    }
    m_minute = thisMinute;
    if (!m_broker)
        return;
    m_outbox.forget(m_clock.elapsed());
    if (!m_broker->isConnected())
        return;
    publishState();
    retain("dropped", json::line({{"count", double(m_outbox.dropped())}, {"begin", m_begin}}).toUtf8());
    flush();
}

Metrics::Own Bridge::ownMetrics() const
{
    Metrics::Own own;
    own.hasService = m_service.isUp();
    own.dropped = m_outbox.dropped();
    own.waiting = m_outbox.waiting() + m_outbox.unacknowledged();
    if (m_broker) {
        own.hasBroker = m_broker->isConnected();
        own.sentMessages = m_broker->sentMessages();
        own.sentBytes = m_broker->sentBytes();
    }
    return own;
}

QJsonObject Bridge::stateNow() const
{
    return {{"service", stateWord(m_service.state())},
            {"version", m_service.version()},
            {"camera", m_settings.camera},
            {"video", m_camera.isAlive()},
            {"running", QJsonArray::fromStringList(m_keeper.running())},
            {"wanted", QJsonArray::fromStringList(m_keeper.wanted())},
            {"recording", m_keeper.isRecording()},
            {"students", m_keeper.students() < 0 ? QJsonValue() : QJsonValue(m_keeper.students())},
            {"problem", m_keeper.problem()}};
}

void Bridge::publishState()
{
    const QJsonObject state = stateNow();
    if (state == m_stateSent && m_stateTold.elapsed() < stateInterval)
        return;
    m_stateSent = state;
    m_stateTold.start();
    QJsonObject object = state;
    object.insert("time", now());
    object.insert("frame_age", seconds(m_camera.age()));
    object.insert("event_age", seconds(m_lastEvent.isValid() ? m_lastEvent.elapsed() : -1));
    retain("state", json::line(object).toUtf8());
}

#include "broker.h"

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <cstdlib>

namespace {

constexpr int firstPause = 500;       // milliseconds
constexpr int longestPause = 10000;   // milliseconds
constexpr int steadyAfter = 20000;    // milliseconds of connection, after which pauses begin anew
constexpr int acceptTimeout = 15000;  // milliseconds
constexpr int loopInterval = 100;     // milliseconds
constexpr int farewellTimeout = 2000; // milliseconds
constexpr int largestRequest = 1 << 20;
constexpr int qos = 1;

const char *textOrNull(const QByteArray &text)
{
    return text.isEmpty() ? nullptr : text.constData();
}

/// What a code of libmosquitto means; its own table leaves this one out.
QString meaningOf(int code)
{
    return code == MOSQ_ERR_KEEPALIVE ? QStringLiteral("the broker has stopped answering")
                                      : QString::fromUtf8(mosquitto_strerror(code));
}

} // namespace

/// What libmosquitto calls, on the broker's thread.
struct Broker::Calls
{
    static void onConnect(mosquitto *client, void *object, int code, int, const mosquitto_property *)
    {
        auto *broker = static_cast<Broker *>(object);
        if (code != 0) {
            broker->m_refusal = QStringLiteral("the broker refuses: %1")
                                    .arg(QString::fromUtf8(mosquitto_reason_string(code)));
            return;
        }
        broker->m_accepted = true;
        if (!broker->m_subscription.isEmpty())
            mosquitto_subscribe(client, nullptr, broker->m_subscription.constData(), qos);
        {
            std::lock_guard<std::mutex> lock(broker->m_mutex);
            broker->m_client = client;
        }
        QMetaObject::invokeMethod(
            broker,
            [broker] {
                broker->m_connected = true;
                emit broker->connected();
            },
            Qt::QueuedConnection);
    }

    static void onDisconnect(mosquitto *, void *object, int code, const mosquitto_property *)
    {
        auto *broker = static_cast<Broker *>(object);
        broker->m_closed = true;
        if (code != 0 && broker->m_refusal.isEmpty())
            broker->m_refusal =
                code < 128 ? meaningOf(code) : QString::fromUtf8(mosquitto_reason_string(code));
    }

    static void onPublish(mosquitto *, void *object, int number, int, const mosquitto_property *)
    {
        auto *broker = static_cast<Broker *>(object);
        QMetaObject::invokeMethod(
            broker, [broker, number] { emit broker->acknowledged(number); }, Qt::QueuedConnection);
    }

    static void onMessage(mosquitto *, void *object, const mosquitto_message *message,
                          const mosquitto_property *properties)
    {
        auto *broker = static_cast<Broker *>(object);
        // A retained request is an old one that was not meant for now.
        if (message->retain || message->payloadlen > largestRequest)
            return;
        Request request{QString::fromUtf8(message->topic),
                        QByteArray(static_cast<const char *>(message->payload), message->payloadlen),
                        {},
                        {}};
        char *responseTopic = nullptr;
        void *correlation = nullptr;
        uint16_t length = 0;
        if (mosquitto_property_read_string(properties, MQTT_PROP_RESPONSE_TOPIC, &responseTopic, false))
            request.responseTopic = QString::fromUtf8(responseTopic);
        if (mosquitto_property_read_binary(properties, MQTT_PROP_CORRELATION_DATA, &correlation, &length,
                                           false))
            request.correlation = QByteArray(static_cast<const char *>(correlation), length);
        std::free(responseTopic);
        std::free(correlation);
        QMetaObject::invokeMethod(
            broker, [broker, request] { emit broker->requested(request); }, Qt::QueuedConnection);
    }
};

Broker::Broker(const Settings::Broker &settings, const QString &clientID, const QString &will,
               const QString &subscription, QObject *parent)
    : QObject(parent),
      m_settings(settings),
      m_clientID(clientID.toUtf8()),
      m_will(will.toUtf8()),
      m_subscription(subscription.toUtf8())
{
    mosquitto_lib_init();
}

Broker::~Broker()
{
    if (!m_thread.joinable())
        return;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_ending = true;
        if (m_client)
            mosquitto_disconnect_v5(m_client, 0, nullptr);
        m_wake.notify_all();
        m_wake.wait_for(lock, std::chrono::milliseconds(farewellTimeout), [this] { return m_ended.load(); });
    }
    // Inside a look-up it can't be called back: the process ends without it.
    if (m_ended)
        m_thread.join();
    else
        std::_Exit(EXIT_SUCCESS);
}

void Broker::start()
{
    m_thread = std::thread([this] { run(); });
}

void Broker::run()
{
    int pause = firstPause;
    while (!m_ending) {
        QElapsedTimer clock;
        clock.start();
        m_accepted = false;
        const QString reason = serve();
        if (m_accepted && clock.elapsed() > steadyAfter)
            pause = firstPause;
        tell(reason, m_accepted);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait_for(lock, std::chrono::milliseconds(pause), [this] { return m_ending.load(); });
        pause = std::min(2 * pause, longestPause);
    }
    std::lock_guard<std::mutex> lock(m_mutex);
    m_ended = true;
    m_wake.notify_all();
}

void Broker::tell(const QString &reason, bool wasConnected)
{
    QMetaObject::invokeMethod(
        this,
        [this, reason, wasConnected] {
            m_connected = false;
            emit disconnected(reason, wasConnected);
        },
        Qt::QueuedConnection);
}

QString Broker::serve()
{
    m_closed = false;
    m_refusal.clear();
    const std::unique_ptr<mosquitto, void (*)(mosquitto *)> client(
        mosquitto_new(m_clientID.constData(), true, this), mosquitto_destroy);
    if (!client)
        return QStringLiteral("no memory for a connection");
    mosquitto_threaded_set(client.get(), true);
    mosquitto_int_option(client.get(), MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V5);
    mosquitto_connect_v5_callback_set(client.get(), Calls::onConnect);
    mosquitto_disconnect_v5_callback_set(client.get(), Calls::onDisconnect);
    mosquitto_publish_v5_callback_set(client.get(), Calls::onPublish);
    mosquitto_message_v5_callback_set(client.get(), Calls::onMessage);

    const QByteArray offline("offline");
    int code =
        mosquitto_will_set(client.get(), m_will.constData(), offline.size(), offline.constData(), qos, true);
    if (code == MOSQ_ERR_SUCCESS && !m_settings.user.isEmpty())
        code = mosquitto_username_pw_set(client.get(), m_settings.user.toUtf8().constData(),
                                         m_settings.password.toUtf8().constData());
    if (code == MOSQ_ERR_SUCCESS && !m_settings.caFile.isEmpty())
        code = mosquitto_tls_set(client.get(), textOrNull(m_settings.caFile.toLocal8Bit()), nullptr,
                                 textOrNull(m_settings.certificateFile.toLocal8Bit()),
                                 textOrNull(m_settings.keyFile.toLocal8Bit()), nullptr);
    if (code == MOSQ_ERR_SUCCESS)
        code = mosquitto_connect_async(client.get(), m_settings.host.toUtf8().constData(), m_settings.port,
                                       m_settings.keepalive);
    QElapsedTimer clock;
    clock.start();
    while (code == MOSQ_ERR_SUCCESS && !m_closed && m_refusal.isEmpty()) {
        code = mosquitto_loop(client.get(), loopInterval, 1);
        if (!m_accepted && (m_ending || clock.elapsed() > acceptTimeout)) {
            m_refusal = QStringLiteral("the broker does not answer");
            break;
        }
    }
    const QString reason = code == MOSQ_ERR_ERRNO ? qt_error_string() : meaningOf(code);
    std::lock_guard<std::mutex> lock(m_mutex);
    m_client = nullptr;
    return m_refusal.isEmpty() ? reason : m_refusal;
}

int Broker::publish(const QString &topic, const QByteArray &payload, bool retain,
                    const QByteArray &correlation)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_client || !m_connected)
        return 0;
    mosquitto_property *properties = nullptr;
    if (!correlation.isEmpty())
        mosquitto_property_add_binary(&properties, MQTT_PROP_CORRELATION_DATA, correlation.constData(),
                                      uint16_t(correlation.size()));
    int number = 0;
    const int code = mosquitto_publish_v5(m_client, &number, topic.toUtf8().constData(), payload.size(),
                                          payload.constData(), qos, retain, properties);
    mosquitto_property_free_all(&properties);
    if (code != MOSQ_ERR_SUCCESS)
        return 0;
    ++m_sentMessages;
    m_sentBytes += quint64(payload.size());
    return number;
}

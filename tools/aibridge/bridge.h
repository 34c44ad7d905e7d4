#pragma once

#include "broker.h"
#include "camerawatch.h"
#include "keeper.h"
#include "lookers.h"
#include "metrics.h"
#include "outbox.h"
#include "remote.h"
#include "servicelink.h"
#include "summary.h"

#include <memory>

/**
 * The bridge of a room: keeps the service as it is configured, lets others look, and tells a broker what
 * happens.
 *
 * Threads: one; the broker's connection has another.
 */
class Bridge : public QObject
{
    Q_OBJECT

public:
    explicit Bridge(const Settings &settings, QObject *parent = nullptr);
    /// Says that it goes, when there is a broker.
    ~Bridge() override;

    void start();

private:
    void onConnected();
    void onDisconnected(const QString &reason, bool wasConnected);
    void onEvent(const AiEvent &event);
    void tick();
    /// Adds what every message has that must come once: time, the bridge's start, and a number.
    void send(const QString &topic, QJsonObject object);
    void flush();
    /// Publishes a retained topic when it differs from what the broker has.
    void retain(const QString &topic, const QByteArray &payload);
    QJsonObject stateNow() const;
    void publishState();
    Metrics::Own ownMetrics() const;

    const Settings &m_settings;
    CameraWatch m_camera;
    ServiceLink m_service;
    Keeper m_keeper;
    Lookers m_lookers;
    std::unique_ptr<Broker> m_broker; // null without one
    std::unique_ptr<Remote> m_remote;
    std::unique_ptr<MetricsServer> m_metrics; // null without a port
    Outbox m_outbox;
    Summary m_summary;
    QTimer m_tick;
    QElapsedTimer m_clock, m_lastEvent, m_stateTold;
    const QString m_begin; ///< time of the start: sequence numbers count from it
    quint64 m_sequence = 0;
    qint64 m_minute = -1;
    QJsonObject m_stateSent; ///< without what changes all the time
    QMap<QString, QByteArray> m_retained;
    QString m_serviceProblem, m_brokerProblem;
};

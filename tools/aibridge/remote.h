#pragma once

#include "broker.h"
#include "keeper.h"
#include "servicelink.h"

/**
 * Commands that come over the broker: MQTT 5 requests with a response topic, at <base>/command/<word>, with
 * the parameters of the command as a JSON object. Only words that the configuration allows; the answer goes
 * to a topic below <base>/reply/, so that a room can't be made to write elsewhere.
 *
 * Threads: one.
 */
class Remote : public QObject
{
    Q_OBJECT

public:
    Remote(const Settings &settings, Broker &broker, ServiceLink &service, Keeper &keeper,
           QObject *parent = nullptr);

    /// The topics of requests; empty when no command is allowed.
    static QString subscription(const Settings &settings);

private:
    void take(const Broker::Request &request);
    void answer(const Broker::Request &request, int error, const QString &detail, const QVariant &data = {});
    void answer(const Broker::Request &request, const AiReply &reply);

    const Settings &m_settings;
    Broker &m_broker;
    ServiceLink &m_service;
    Keeper &m_keeper;
    int m_running = 0;
    quint64 m_lastID = 0;
};

#pragma once

#include <QElapsedTimer>
#include <QString>

#include <memory>
#include <mutex>
#include <prometheus/collectable.h>

namespace prometheus {
class Exposer;
}

/**
 * The numbers of a room for Prometheus: those of the service's page of counters, memory and processor time of
 * camera, service and bridge, and the bridge's own. Nobody's name and nothing of a picture is among them.
 *
 * Threads: Collect on threads of the web server, tell on the bridge's.
 */
class Metrics : public prometheus::Collectable
{
public:
    /// What the bridge knows by itself.
    struct Own
    {
        quint64 sentMessages = 0, sentBytes = 0; ///< handed to the broker's connection
        quint64 dropped = 0;                     ///< because the store was full
        int waiting = 0;                         ///< messages that the broker has not acknowledged
        bool hasService = false, hasBroker = false;
    };

    void tell(const Own &own);

    /// Reads everything anew.
    std::vector<prometheus::MetricFamily> Collect() const override;

private:
    mutable std::mutex m_mutex;
    Own m_own;
};

/**
 * Serves them over HTTP on the loopback, path /metrics, by two threads of its own. A port that is taken is
 * tried again every few seconds: the room runs without it.
 *
 * Threads: one.
 */
class MetricsServer
{
public:
    explicit MetricsServer(int port);
    ~MetricsServer();

    void update(const Metrics::Own &own);

private:
    void listen();

    const int m_port;
    const std::shared_ptr<Metrics> m_metrics;
    std::unique_ptr<prometheus::Exposer> m_exposer;
    QElapsedTimer m_tried;
    QString m_problem;
};

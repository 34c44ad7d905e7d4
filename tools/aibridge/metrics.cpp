#include "metrics.h"

#include "cameralockfile.h"
#include "counterfields.h"
#include "countersreader.h"
#include "processusage.h"
#include "report.h"

#include <QCoreApplication>
#include <QLockFile>

#include <cmath>
#include <map>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

constexpr int retryInterval = 5000; // milliseconds
constexpr double millisecondsPerSecond = 1000;

/// Samples by the name of their metric, as the format wants them.
class Families
{
public:
    void add(MetricType type, const char *name, const char *help, double value, Labels labels = {})
    {
        MetricFamily &family = m_families[name];
        family.name = name;
        family.help = help;
        family.type = type;
        ClientMetric metric;
        metric.label = std::move(labels);
        (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
        family.metric.push_back(std::move(metric));
    }
    void total(const char *name, const char *help, double value, Labels labels = {})
    {
        add(MetricType::Counter, name, help, value, std::move(labels));
    }
    void gauge(const char *name, const char *help, double value, Labels labels = {})
    {
        add(MetricType::Gauge, name, help, value, std::move(labels));
    }

    std::vector<MetricFamily> take()
    {
        std::vector<MetricFamily> families;
        for (auto &entry : m_families)
            families.push_back(std::move(entry.second));
        return families;
    }

private:
    std::map<std::string, MetricFamily> m_families;
};

MetricType typeOf(counters::Unit unit)
{
    const bool counts = unit == counters::Unit::Total || unit == counters::Unit::Time;
    return counts ? MetricType::Counter : MetricType::Gauge;
}

void addProcess(Families &families, const char *name, qint64 process)
{
    const auto usage = counters::usageOf(process);
    if (!usage)
        return;
    families.total("aiservice_process_cpu_seconds_total", "Processor time of a process of the room",
                   usage->processorSeconds, {{"process", name}});
    families.gauge("aiservice_process_resident_memory_bytes", "Memory that a process of the room holds",
                   double(usage->residentBytes), {{"process", name}});
}

/// 0 for a camera program that leaves no lock file.
qint64 cameraProcess()
{
    qint64 process = 0;
    QString host;
    QString program;
    return QLockFile(cameraLockFile(QStringLiteral("Camera"))).getLockInfo(&process, &host, &program)
               ? process
               : 0;
}

/// Of a service that is gone only what tells so: its last numbers are no news.
void addService(Families &families)
{
    QString problem;
    const auto page = counters::read(QDir::temp(), problem);
    const bool counts = page && counters::writerOf(*page) == counters::Writer::Counts;
    families.gauge("aiservice_up", "Whether the service runs and counts", counts ? 1 : 0);
    if (!page)
        return;
    families.total("aiservice_restarts_total", "Services that ran before this one in the same folder",
                   double(page->restarts));
    families.total("aiservice_crashes_total", "Services before this one that did not end in order",
                   double(page->crashes));
    if (!counts)
        return;
    families.gauge("aiservice_start_time_seconds", "When the service was started, since 1970",
                   double(page->startTime) / millisecondsPerSecond);
    addProcess(families, "service", page->process);

    const std::int64_t now = counters::now();
    counters::forEach(
        *page, [&](const counters::Place &place, const auto &field, const counters::Counter &counter) {
            const double value = counters::shown(field.unit, counter, now);
            if (std::isnan(value))
                return;
            Labels labels;
            if (place.row)
                labels.push_back({place.label, counters::nameOf(*place.row).toStdString()});
            if (const unsigned code = place.code())
                labels.push_back({"code", std::to_string(code)});
            if (field.reason)
                labels.push_back({"reason", field.reason});
            families.add(typeOf(field.unit), field.metric, field.meaning, value, std::move(labels));
        });
}

} // namespace

void Metrics::tell(const Own &own)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_own = own;
}

std::vector<MetricFamily> Metrics::Collect() const
{
    Own own;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        own = m_own;
    }
    Families families;
    families.total("aibridge_sent_messages_total", "Messages handed to the broker, repeats included",
                   double(own.sentMessages));
    families.total("aibridge_sent_bytes_total", "Bytes of the messages handed to the broker",
                   double(own.sentBytes));
    families.total("aibridge_dropped_messages_total", "Messages lost because the store was full",
                   double(own.dropped));
    families.gauge("aibridge_waiting_messages", "Messages that the broker has not acknowledged", own.waiting);
    families.gauge("aibridge_broker_connected", "Whether the broker is there", own.hasBroker ? 1 : 0);
    families.gauge("aibridge_service_connected", "Whether the bridge has its connection to the service",
                   own.hasService ? 1 : 0);
    addProcess(families, "bridge", QCoreApplication::applicationPid());
    addProcess(families, "camera", cameraProcess());
    addService(families);
    return families.take();
}

MetricsServer::MetricsServer(int port) : m_port(port), m_metrics(std::make_shared<Metrics>())
{
    listen();
}

MetricsServer::~MetricsServer() = default;

void MetricsServer::update(const Metrics::Own &own)
{
    m_metrics->tell(own);
    if (!m_exposer && m_tried.elapsed() >= retryInterval)
        listen();
}

void MetricsServer::listen()
{
    m_tried.start();
    const std::string address = "127.0.0.1:" + std::to_string(m_port);
    try {
        m_exposer = std::make_unique<prometheus::Exposer>(std::vector<std::string>{
            "listening_ports", address, "num_threads", "2", "request_timeout_ms", "2000"});
        m_exposer->RegisterCollectable(m_metrics);
        report(QStringLiteral("metrics are at http://%1/metrics").arg(QString::fromStdString(address)));
    } catch (const std::exception &error) {
        const QString problem = QStringLiteral("cannot serve metrics on %1: %2")
                                    .arg(QString::fromStdString(address), QString::fromUtf8(error.what()));
        if (problem != m_problem)
            report(problem);
        m_problem = problem;
    }
}

// Requests over the real socket, one at a time and with several of them in flight: the real service with its
// log, and a bare socket that gives each frame back. And what the real service costs while nobody asks
// anything.
#include "benchlog.h"
#include "benchmain.h"
#include "protocol.h"
#include "serviceprocess.h"

#include <QDataStream>
#include <QLocalServer>
#include <QThread>

#include <chrono>
#include <memory>
#include <pthread.h>
#include <thread>
#include <vector>

namespace {

constexpr int status = ai::code(ai::Question::Status);

/// Gives each frame back as soon as it is there, with nothing in between.
class Mirror
{
public:
    Mirror()
    {
        server.moveToThread(&thread);
        QObject::connect(&thread, &QThread::started, &server, [this] {
            pthread_getcpuclockid(pthread_self(), &clock);
            server.listen("mirror");
        });
        QObject::connect(
            &thread, &QThread::finished, &server, [this] { server.close(); }, Qt::DirectConnection);
        QObject::connect(&server, &QLocalServer::newConnection, &server, [this] {
            QLocalSocket *socket = server.nextPendingConnection();
            QObject::connect(socket, &QLocalSocket::readyRead, socket, [socket] { giveBack(*socket); });
        });
        thread.start();
    }

    ~Mirror()
    {
        thread.quit();
        thread.wait();
    }

    clockid_t clock = 0; ///< of the thread, as soon as a client is connected

private:
    static void giveBack(QLocalSocket &socket)
    {
        QDataStream stream(&socket);
        while (socket.bytesAvailable() > 0) {
            qint32 length = 0;
            QByteArray payload;
            stream.startTransaction();
            stream >> length >> payload;
            if (!stream.commitTransaction())
                return;
            stream << length << payload;
        }
    }

    QThread thread;
    QLocalServer server;
};

/// Keeps so many requests on their way. Tells the median of a reply's time and what each request costs the
/// server, whose time `server` counts.
void converse(benchmark::State &state, TestClient &client, clockid_t server)
{
    const auto inFlight = state.range(0);
    const QByteArray frame = TestClient::frame(makeRequest(ai::Kind::Info, status));
    for (int i = 1; i < inFlight; ++i)
        client.sendBytes(frame);
    std::vector<double> waits;
    const double used = processorSeconds(server);
    const auto begin = std::chrono::steady_clock::now();
    auto sent = begin;
    while (state.KeepRunning()) {
        client.sendBytes(frame);
        if (client.receive().isEmpty())
            state.SkipWithError("no answer");
        const auto answered = std::chrono::steady_clock::now();
        waits.push_back(std::chrono::duration<double, std::micro>(answered - sent).count());
        sent = answered;
    }
    const double perRequest = 1e6 / double(waits.size());
    state.counters["us"] = std::chrono::duration<double>(sent - begin).count() * perRequest;
    state.counters["cpu_us"] = (processorSeconds(server) - used) * perRequest;
    std::nth_element(waits.begin(), waits.begin() + waits.size() / 2, waits.end());
    state.counters["median_us"] = waits[waits.size() / 2];
    for (int i = 1; i < inFlight; ++i)
        client.receive();
}

/// The service's process and its clock; fails the benchmark when it does not start.
bool start(benchmark::State &state, ServiceProcess &service, clockid_t &clock)
{
    if (service.start() && clock_getcpuclockid(static_cast<pid_t>(service.processId()), &clock) == 0)
        return true;
    state.SkipWithError("the service does not start");
    return false;
}

void realService(benchmark::State &state)
{
    ServiceProcess service;
    clockid_t clock = 0;
    if (!start(state, service, clock))
        return;
    TestClient client(service.socketPath());
    converse(state, client, clock);
}

void bareSocket(benchmark::State &state)
{
    Mirror mirror;
    std::unique_ptr<TestClient> client;
    do
        client = std::make_unique<TestClient>("mirror");
    while (!client->isConnected());
    converse(state, *client, mirror.clock);
}

/// Hundredths of a core that the open service takes without a camera, with so many clients that say nothing.
void idleService(benchmark::State &state)
{
    ServiceProcess service;
    clockid_t clock = 0;
    if (!start(state, service, clock))
        return;
    {
        TestClient client(service.socketPath());
        client.open();
    }
    std::vector<std::unique_ptr<TestClient>> clients;
    for (int i = 0; i < state.range(0); ++i) {
        clients.push_back(std::make_unique<TestClient>(service.socketPath()));
        clients.back()->info(status);
    }
    while (state.KeepRunning()) {
        std::this_thread::sleep_for(std::chrono::seconds(1)); // until the last of the connecting is done
        const double used = processorSeconds(clock);
        const auto begin = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(std::chrono::seconds(10));
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - begin;
        state.counters["percent"] = 100 * (processorSeconds(clock) - used) / passed.count();
    }
}

/// A long conversation: what its last tenth of requests takes beside the first, and kilobytes that the
/// service has grown by.
void longConversation(benchmark::State &state)
{
    ServiceProcess service;
    clockid_t clock = 0;
    if (!start(state, service, clock))
        return;
    TestClient client(service.socketPath());
    const int tenth = static_cast<int>(state.range(0)) / 10;
    const auto secondsOfATenth = [&] {
        const double used = processorSeconds(clock);
        for (int i = 0; i < tenth; ++i)
            client.info(status);
        return processorSeconds(clock) - used;
    };
    while (state.KeepRunning()) {
        const double first = secondsOfATenth();
        const qint64 memory = service.residentKilobytes();
        for (int i = 0; i < 8; ++i)
            secondsOfATenth();
        state.counters["ratio"] = secondsOfATenth() / first;
        state.counters["kilobytes"] = double(service.residentKilobytes() - memory);
    }
}

BENCHMARK(realService)->Arg(1)->Arg(32)->Arg(256)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(bareSocket)->Arg(1)->Arg(32)->Arg(256)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(idleService)->Arg(0)->Arg(500)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(longConversation)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    return runBenchmarks(argc, argv);
}

// Requests per second with several of them in flight, over the real socket: the real service with its log,
// the host alone without a log, and a bare socket that gives each frame back.
#include "benchmain.h"
#include "iservice.h"
#include "serviceprocess.h"
#include "serviceserver.h"

#include <QDataStream>
#include <QLocalServer>
#include <QThread>

#include <memory>

namespace {

constexpr int status = 1001;

class StatusService : public IService
{
public:
    StatusService() : IService("bench", false) {}
    QVariantMap open(const QString &) override { return makeResponse(0, ""); }
    QVariantMap close(const QString &) override { return makeResponse(0, ""); }
    QVariantMap execute(unsigned int, const QVariant &, const QString &) override
    {
        return makeResponse(0, "");
    }
    bool disconnectReset() override { return true; }
    QVariantMap info(unsigned int code, const QVariant &, const QString &) override
    {
        return makeResponse(0, QVariantMap{{"status", 0}, {"version", "0.8"}, {"command_code", code}}, "");
    }
};

/// Gives each frame back as soon as it is there, with nothing in between.
class Mirror
{
public:
    Mirror()
    {
        server.moveToThread(&thread);
        QObject::connect(&thread, &QThread::started, &server, [this] { server.listen("mirror"); });
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

/// Keeps `inFlight` requests on their way, and counts those that are answered.
void keepInFlight(benchmark::State &state, TestClient &client)
{
    const auto inFlight = state.range(0);
    const QByteArray frame = TestClient::frame(makeRequest(Kind::info, status));
    for (int i = 1; i < inFlight; ++i)
        client.sendBytes(frame);
    while (state.KeepRunning()) {
        client.sendBytes(frame);
        if (client.receive().isEmpty())
            state.SkipWithError("no answer");
    }
    for (int i = 1; i < inFlight; ++i)
        client.receive();
    state.SetItemsProcessed(state.iterations());
}

void realService(benchmark::State &state)
{
    ServiceProcess service;
    if (!service.start()) {
        state.SkipWithError("the service does not start");
        return;
    }
    TestClient client(service.socketPath());
    keepInFlight(state, client);
}

void hostAlone(benchmark::State &state)
{
    StatusService service;
    ServiceServer server("host", &service, nullptr);
    std::unique_ptr<TestClient> client;
    do
        client = std::make_unique<TestClient>("host");
    while (!client->isConnected());
    keepInFlight(state, *client);
}

void bareSocket(benchmark::State &state)
{
    Mirror mirror;
    std::unique_ptr<TestClient> client;
    do
        client = std::make_unique<TestClient>("mirror");
    while (!client->isConnected());
    keepInFlight(state, *client);
}

BENCHMARK(realService)->Arg(1)->Arg(32)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(hostAlone)->Arg(1)->Arg(32)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(bareSocket)->Arg(1)->Arg(32)->UseRealTime()->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char **argv)
{
    return runBenchmarks(argc, argv);
}

// What the event of a whole frame costs: the frame is JPEG-encoded once and sent to every client. Beside it,
// in the same run, the bare steps: the encoder, base64, and one pass of a stream over the event for each
// client. Times are processor times. What the clients do does not count, and what goes to writing to their
// sockets is told apart.
//
// And the way of a small event with the log as in the service: to one client, beside a bare socket; to many
// clients; and after many that have come and gone.
#include "benchlog.h"
#include "benchmain.h"
#include "heap.h"
#include "imageutil.h"
#include "iservice.h"
#include "protocol.h"
#include "serviceserver.h"
#include "wire.h"

#include <opencv2/imgproc.hpp>

#include <QBuffer>
#include <QDataStream>
#include <QImage>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned int galleryEvent = code(ai::Event::Faces);

class SilentService : public IService
{
public:
    SilentService() : IService("AI", false) {}
    QVariantMap open(const QString &) override { return {}; }
    QVariantMap close(const QString &) override { return {}; }
    QVariantMap info(unsigned int, const QVariant &, const QString &) override { return {}; }
    QVariantMap execute(unsigned int, const QVariant &, const QString &) override { return {}; }
    bool disconnectReset() override { return true; }
};

/// Clients that take in bytes and look at none of them.
class Clients
{
public:
    explicit Clients(int count)
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const QByteArray path = qgetenv("TMPDIR") + "/AI";
        std::memcpy(address.sun_path, path.constData(), static_cast<std::size_t>(path.size()));
        while (int(sockets.size()) < count) {
            const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
            if (connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
                sockets.push_back({socket, POLLIN, 0});
            else
                ::close(socket);
        }
        reader = std::thread([this] { read(); });
    }

    ~Clients()
    {
        ending = true;
        reader.join();
        for (const pollfd &socket : sockets)
            ::close(socket.fd);
    }

    std::atomic<qint64> received{0};

private:
    void read()
    {
        std::vector<char> scratch(1 << 20);
        while (!ending) {
            poll(sockets.data(), sockets.size(), 10);
            for (const pollfd &socket : sockets) {
                if (socket.revents & POLLIN)
                    received += qMax<ssize_t>(0, recv(socket.fd, scratch.data(), scratch.size(), 0));
            }
        }
    }

    std::vector<pollfd> sockets;
    std::atomic<bool> ending{false};
    std::thread reader;
};

// What the server thread spends on making messages, between two lines of its log; the rest goes to the
// sockets.
double messageStart = 0;
double messageSeconds = 0;

void noteMessages(QtMsgType, const QMessageLogContext &, const QString &line)
{
    if (line.startsWith("ServiceServer::postMessage begin"))
        messageStart = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    else if (line.startsWith("ServiceServer::postMessage end"))
        messageSeconds += processorSeconds(CLOCK_THREAD_CPUTIME_ID) - messageStart;
}

/// A frame of 1920 by 1080 with the detail of a photograph: soft shapes and some noise.
cv::Mat frame()
{
    cv::Mat small(68, 120, CV_8UC3);
    cv::randu(small, 0, 255);
    cv::Mat picture;
    cv::resize(small, picture, {1920, 1080}, 0, 0, cv::INTER_CUBIC);
    cv::Mat noise(picture.size(), CV_8UC3);
    cv::randn(noise, 8, 4);
    return picture + noise;
}

QVariantMap eventOf(const QString &image)
{
    return {{"image", image}, {"faces", QVariantList{QVariantMap{{"x", 1}, {"y", 2}}}}};
}

void bareSteps(const QImage &picture, int clients)
{
    QBuffer file;
    file.open(QIODevice::WriteOnly);
    picture.save(&file, "JPG");
    const QString image = "data:image/jpg;base64," + QString::fromLatin1(file.data().toBase64());
    const QVariant event = QVariantMap{{"msg", galleryEvent}, {"event_info", eventOf(image)}};
    for (int i = 0; i < clients; ++i) {
        QByteArray payload;
        QDataStream stream(&payload, QIODevice::WriteOnly);
        stream.setVersion(wire::streamVersion);
        stream << event;
        benchmark::DoNotOptimize(payload.data());
    }
}

void eventOfAFrame(benchmark::State &state)
{
    const int count = static_cast<int>(state.range(0));
    SilentService service;
    ServiceServer server("AI", &service, nullptr);
    Clients clients(count);
    clockid_t serverClock = 0;
    QMetaObject::invokeMethod(
        &server, [&] { pthread_getcpuclockid(pthread_self(), &serverClock); }, Qt::BlockingQueuedConnection);

    const cv::Mat picture = frame();
    const QImage readyPicture = QImage(picture.data, picture.cols, picture.rows,
                                       static_cast<int>(picture.step), QImage::Format_BGR888)
                                    .convertToFormat(QImage::Format_RGB888);
    const auto send = [&] {
        const QVariantMap event = eventOf(ai_image::convertMat2Base64(picture));
        service.sendServiceMessage(galleryEvent, event);
        return event;
    };
    const QVariant whole = QVariantMap{{"msg", galleryEvent},
                                       {"event_info", send()},
                                       {"type", 2},
                                       {"event_type", "service"},
                                       {"event_req_id", "0"}};
    const qint64 bytes = wire::encodeFrame(whole).size();
    qint64 awaited = bytes * count;
    const auto allReceived = [&] {
        while (clients.received < awaited)
            std::this_thread::yield();
        awaited += bytes * count;
    };
    allReceived();

    double encoding = 0;
    double serving = 0;
    double bare = 0;
    messageSeconds = 0;
    while (state.KeepRunning()) {
        const double serverStart = processorSeconds(serverClock);
        const double start = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
        send();
        const double sent = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
        allReceived();
        encoding += sent - start;
        serving += processorSeconds(serverClock) - serverStart;

        const double bareStart = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
        bareSteps(readyPicture, count);
        bare += processorSeconds(CLOCK_THREAD_CPUTIME_ID) - bareStart;
    }
    state.counters["MB"] = double(bytes) / 1e6;
    const double perEvent = 1000 / double(state.iterations());
    state.counters["bare_ms"] = bare * perEvent;
    state.counters["ours_ms"] = (encoding + messageSeconds) * perEvent;
    state.counters["sockets_ms"] = (serving - messageSeconds) * perEvent;
    state.counters["ratio"] = (encoding + messageSeconds) / bare;
}
BENCHMARK(eventOfAFrame)->Arg(1)->Arg(4)->Arg(16)->UseRealTime()->Unit(benchmark::kMillisecond);

clockid_t clockOf(QObject &object)
{
    clockid_t clock = 0;
    QMetaObject::invokeMethod(
        &object, [&] { pthread_getcpuclockid(pthread_self(), &clock); }, Qt::BlockingQueuedConnection);
    return clock;
}

double median(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

QVariantMap smallEvent()
{
    return {{"students", QString(450, 'x')}};
}

/// Of the whole message, with frame.
qint64 smallEventBytes()
{
    return wire::encodeFrame(QVariantMap{{"msg", galleryEvent},
                                         {"event_info", smallEvent()},
                                         {"type", 2},
                                         {"event_type", "service"},
                                         {"event_req_id", "0"}})
        .size();
}

/// Returns when every client is known to the server: an event that is sent then reaches them all.
void awaitClients(SilentService &service, const Clients &clients, qint64 bytesForAll)
{
    qint64 before = 0;
    do {
        before = clients.received;
        service.sendServiceMessage(galleryEvent, smallEvent());
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    } while (clients.received - before != bytesForAll);
}

/// The median of the times until an event of a kilobyte is with its one client.
template <class Send>
double medianWait(benchmark::State &state, const Clients &client, qint64 bytes, Send send)
{
    std::vector<double> waits;
    qint64 awaited = client.received;
    while (state.KeepRunning()) {
        awaited += bytes;
        const auto begin = std::chrono::steady_clock::now();
        send();
        while (client.received < awaited)
            std::this_thread::yield();
        const std::chrono::duration<double, std::micro> wait = std::chrono::steady_clock::now() - begin;
        waits.push_back(wait.count());
    }
    return median(waits);
}

void smallEventToOne(benchmark::State &state)
{
    LogAsInTheService log;
    SilentService service;
    ServiceServer server("AI", &service, nullptr);
    Clients client(1);
    awaitClients(service, client, smallEventBytes());
    const double wait = medianWait(state, client, smallEventBytes(),
                                   [&] { service.sendServiceMessage(galleryEvent, smallEvent()); });
    state.counters["median_us"] = wait;
}

/// The same bytes, from a thread that does nothing else.
void smallEventBare(benchmark::State &state)
{
    QThread thread;
    QLocalServer server;
    QLocalSocket *socket = nullptr;
    server.moveToThread(&thread);
    QObject::connect(&thread, &QThread::started, &server, [&server] { server.listen("AI"); });
    QObject::connect(&server, &QLocalServer::newConnection, &server,
                     [&] { socket = server.nextPendingConnection(); });
    QObject::connect(
        &thread, &QThread::finished, &server, [&server] { server.close(); }, Qt::DirectConnection);
    thread.start();
    Clients client(1);
    bool connected = false;
    while (!connected)
        QMetaObject::invokeMethod(
            &server, [&] { connected = socket; }, Qt::BlockingQueuedConnection);
    const QByteArray bytes(static_cast<int>(smallEventBytes()), 'x');
    const double wait = medianWait(state, client, bytes.size(), [&] {
        QMetaObject::invokeMethod(
            &server,
            [socket, bytes] {
                socket->write(bytes);
                socket->flush();
            },
            Qt::QueuedConnection);
    });
    thread.quit();
    thread.wait();
    state.counters["median_us"] = wait;
}

/// What the server thread takes for a small event to so many clients, after so many others.
void smallEventToMany(benchmark::State &state)
{
    LogAsInTheService log;
    SilentService service;
    ServiceServer server("AI", &service, nullptr);
    for (auto former = state.range(1); former > 0; former -= 100)
        Clients gone(100);
    Clients clients(static_cast<int>(state.range(0)));
    const clockid_t clock = clockOf(server);
    const qint64 bytes = smallEventBytes() * state.range(0);
    awaitClients(service, clients, bytes);
    qint64 awaited = clients.received;
    const auto send = [&] {
        service.sendServiceMessage(galleryEvent, smallEvent());
        awaited += bytes;
        while (clients.received < awaited)
            std::this_thread::yield();
    };
    const double used = processorSeconds(clock);
    while (state.KeepRunning())
        send();
    state.counters["ms"] = 1000 * (processorSeconds(clock) - used) / double(state.iterations());
}

BENCHMARK(smallEventToOne)->Unit(benchmark::kMicrosecond)->Iterations(3000)->UseRealTime();
BENCHMARK(smallEventBare)->Unit(benchmark::kMicrosecond)->Iterations(3000)->UseRealTime();
BENCHMARK(smallEventToMany)
    ->Args({1, 0})
    ->Args({50, 0})
    ->Args({500, 0})
    ->Args({1, 5000})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(100)
    ->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    heap::keepFreed(); // as the service does
    return runBenchmarks(argc, argv, noteMessages);
}

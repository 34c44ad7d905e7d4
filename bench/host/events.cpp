// What the event of a whole frame costs: the frame is JPEG-encoded once and sent to every client. Beside it,
// in the same run, the bare steps: the encoder, base64, and one pass of a stream over the event for each
// client. Times are processor times. What the clients do does not count, and what goes to writing to their
// sockets is told apart.
#include "benchmain.h"
#include "imageutil.h"
#include "iservice.h"
#include "serviceserver.h"
#include "wire.h"

#include <QBuffer>
#include <QDataStream>
#include <QImage>

#include <opencv2/imgproc.hpp>

#include <atomic>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned int galleryEvent = 1011;

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

double processorSeconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

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

} // namespace

int main(int argc, char **argv)
{
    // As the service does, so that the heap is not given back and faulted in again for each event.
    mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 256 * 1024 * 1024);
    return runBenchmarks(argc, argv, noteMessages);
}

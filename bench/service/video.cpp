// What the real service costs while video runs and nothing is analysed: its processor time in hundredths of
// one core, without the copy of each frame out of the segment, which is measured beside it.
#include "benchlog.h"
#include "benchmain.h"
#include "eventually.h"
#include "imagereader.h"
#include "protocol.h"
#include "serviceprocess.h"

#include <QFile>

#include <chrono>
#include <cstring>
#include <ctime>
#include <vector>

namespace {

constexpr std::size_t frameSize = 1920 * 1080 * 3;
constexpr int initialise = ai::code(ai::Command::Initialise);

double now()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// Of a frame that lies in no cache near the processor: the copies go round in more frames than fit there.
double secondsOfACopy()
{
    constexpr std::size_t blocks = 8;
    constexpr int rounds = 10;
    std::vector<char> segment(blocks * frameSize, 1);
    std::vector<char> buffers(blocks * frameSize, 2);
    const double start = processorSeconds(CLOCK_THREAD_CPUTIME_ID);
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t block = 0; block < blocks; ++block) {
            std::memcpy(&buffers[block * frameSize], &segment[block * frameSize], frameSize);
            benchmark::ClobberMemory();
        }
    }
    return (processorSeconds(CLOCK_THREAD_CPUTIME_ID) - start) / (rounds * double(blocks));
}

/// Ten seconds of video at so many frames a second, with the models loaded.
void videoWithoutAnalysis(benchmark::State &state)
{
    const int rate = static_cast<int>(state.range(0));
    ServiceProcess service;
    QFile pixels(service.filePath("pixels"));
    if (!service.start() || !pixels.open(QIODevice::WriteOnly)) {
        state.SkipWithError("the service does not start");
        return;
    }
    pixels.write(QByteArray(static_cast<int>(frameSize), '\x50'));
    pixels.close();
    FrameSource camera(service.home());
    camera.start(1000 / rate, pixels.fileName());
    TestClient client(service.socketPath());
    client.open();
    client.execute(initialise, QVariantMap{{"faceMtcnn", true}, {"faceid", true}, {"ssd", true}});

    // The frames are counted as they pass.
    qputenv("TMPDIR", service.home().toLocal8Bit());
    std::atomic<int> frames{0};
    ImageReader reader("Camera");
    QObject::connect(
        &reader, &ImageReader::newImageBlockSignal, &reader, [&frames](ImageBlock) { ++frames; },
        Qt::DirectConnection);
    clockid_t clock = 0;
    if (!reader.startToRead() || clock_getcpuclockid(static_cast<pid_t>(service.processId()), &clock) != 0 ||
        !eventually([&] { return frames > rate; })) {
        state.SkipWithError("there is no video");
        return;
    }

    while (state.KeepRunning()) {
        const int before = frames;
        const double used = processorSeconds(clock);
        const double start = now();
        if (!eventually([&] { return frames >= before + 10 * rate; }, 40000))
            state.SkipWithError("the video stopped");
        const double spent = processorSeconds(clock) - used;
        const double seconds = now() - start;
        const int seen = frames - before;
        const double copies = seen * secondsOfACopy();
        state.counters["frames_per_second"] = seen / seconds;
        state.counters["copy_percent"] = 100 * copies / seconds;
        state.counters["percent"] = 100 * (spent - copies) / seconds;
    }
    reader.stopToRead();
}
BENCHMARK(videoWithoutAnalysis)->Arg(30)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

int main(int argc, char **argv)
{
    return runBenchmarks(argc, argv);
}

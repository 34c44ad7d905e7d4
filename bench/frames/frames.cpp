// What a frame costs on its way out of the segment, against a memcpy of its bytes from the same segment
// into a buffer of the same size. Both are measured in turn; the counter "ratio" is their quotient.
#include "imagereader.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QSystemSemaphore>

#include <chrono>

namespace {

constexpr int frameSize = 1920 * 1080 * 3;
constexpr int stride = frameSize + int(sizeof(ImageBlock));
constexpr int capacity = 3;

template <class Work>
double secondsOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A full ring, into which one frame after the other is put by rewriting identifiers only.
class Ring
{
public:
    explicit Ring(const QString &key) : m_memory(key)
    {
        m_header.totalSize = int(sizeof m_header) + capacity * stride;
        m_header.stride = stride;
        m_header.used = capacity;
        m_header.capacity = capacity;
        if (m_memory.create(m_header.totalSize))
            std::memset(m_memory.data(), 1, std::size_t(m_header.totalSize));
    }

    bool isValid() const { return m_memory.isAttached(); }

    const char *pixels(int block) const
    {
        return static_cast<const char *>(m_memory.constData()) + sizeof m_header +
               std::size_t(block) * stride + sizeof(ImageBlock);
    }

    /// Puts a new frame into the ring and tells its block.
    int turn()
    {
        const int block = m_header.writeIndex;
        ImageBlock record;
        record.size = frameSize;
        std::snprintf(record.id, sizeof record.id, "{%036d}", ++m_count);
        std::memcpy(const_cast<char *>(pixels(block)) - sizeof record, &record, sizeof record);

        m_header.writeIndex = m_header.readIndex = (block + 1) % capacity;
        std::snprintf(m_header.changeID, sizeof m_header.changeID, "{%036d}", m_count);
        std::memcpy(m_memory.data(), &m_header, sizeof m_header);
        return block;
    }

private:
    QSharedMemory m_memory;
    ShmHeader m_header;
    int m_count = 0;
};

void frameOutOfTheSegment(benchmark::State &state)
{
    const QString key = QString("frames-%1").arg(QCoreApplication::applicationPid());
    Ring ring(key);
    ImageReader reader(key);
    int delivered = 0;
    QObject::connect(
        &reader, &ImageReader::newImageBlockSignal, &reader, [&delivered](ImageBlock) { ++delivered; },
        Qt::DirectConnection);
    if (!ring.isValid() || !reader.startToRead()) {
        state.SkipWithError("no shared memory");
        return;
    }
    auto *const thread = reader.findChild<QThread *>();
    thread->quit();
    thread->wait();

    const std::unique_ptr<char[]> buffer(new char[stride]);
    for (int i = 0; i < capacity; ++i)
        ring.turn();
    reader.readDataSlot();
    std::memset(buffer.get(), 0, stride);
    delivered = 0;

    double read = 0;
    double copied = 0;
    bool readFirst = false;
    while (state.KeepRunning()) {
        const int block = ring.turn();
        const auto copy = [&] {
            std::memcpy(buffer.get(), ring.pixels(block), frameSize);
            benchmark::DoNotOptimize(buffer.get());
            benchmark::ClobberMemory();
        };
        // Whoever comes second finds the frame in the cache, so they take turns.
        readFirst = !readFirst;
        if (!readFirst)
            copied += secondsOf(copy);
        const double seconds = secondsOf([&] { reader.readDataSlot(); });
        if (readFirst)
            copied += secondsOf(copy);
        state.SetIterationTime(seconds);
        read += seconds;
    }
    if (delivered != int(state.iterations()))
        state.SkipWithError("not each frame was delivered once");
    state.counters["memcpy_ms"] = copied / double(state.iterations()) * 1000;
    state.counters["ratio"] = read / copied;
}
BENCHMARK(frameOutOfTheSegment)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(500);

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

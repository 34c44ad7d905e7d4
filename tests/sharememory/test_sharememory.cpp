#include "eventually.h"
#include "imagereader.h"
#include "imagewritter.h"
#include "logcapture.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QSharedMemory>
#include <QSystemSemaphore>

#include <future>
#include <limits>
#include <sys/sem.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr int frameSize = 64;
constexpr int stride = frameSize + 136;

/// Stops the timer thread of a reader or a writer, so that a test alone tells when it polls or copies.
void takeOverTimer(QObject &object)
{
    auto *const thread = object.findChild<QThread *>();
    thread->quit();
    thread->wait();
}

/// Calls this on the reader's thread with each frame.
template <class Function>
void onFrame(ImageReader &reader, Function function)
{
    QObject::connect(&reader, &ImageReader::newImageBlockSignal, &reader, function, Qt::DirectConnection);
}

/// Every byte of a frame is its number.
void write(ImageWritter &writer, int number, int size = frameSize)
{
    QByteArray pixels(frameSize + 1, char(number));
    ImageBlock ib;
    ib.size = size;
    ib.width = number;
    ib.data = pixels.data();
    EXPECT_TRUE(writer.writeImageBlock(ib));
}

/// A segment of a test, removed with its semaphore at the end: System V keys come from the inode of a
/// file in the temporary folder, and the next test may get the same one.
class SegmentTest : public ::testing::Test
{
protected:
    SegmentTest()
    {
        remove();
        onFrame(m_reader, [this](const ImageBlock &ib) { keep(ib); });
    }
    ~SegmentTest() override
    {
        m_reader.stopToRead();
        remove();
    }

    void remove()
    {
        const QSystemSemaphore semaphore(m_key, 1, QSystemSemaphore::Create);
        QSharedMemory left(m_key);
        left.attach();
    }

    void startReader()
    {
        EXPECT_TRUE(m_reader.startToRead());
        takeOverTimer(m_reader);
    }

    /// A number of the segment's semaphore: its value, or how many wait for it.
    int semaphore(int command) const
    {
        const QStringList files = QDir::temp().entryList({"qipc_systemsem_segmenttest*"}, QDir::AllEntries);
        EXPECT_EQ(files.size(), 1);
        const QByteArray file = QDir::temp().filePath(files.value(0)).toLocal8Bit();
        return semctl(semget(ftok(file.constData(), 'Q'), 0, 0), 0, command);
    }

    /// Notes the number of a delivered frame, -1 for one with wrong bytes.
    void keep(const ImageBlock &ib)
    {
        const QByteArray expected(ib.size, char(ib.width));
        const bool intact = std::memcmp(ib.data, expected.constData(), std::size_t(ib.size)) == 0;
        m_frames.append(intact ? ib.width : -1);
    }

    /// The frames that a poll delivers.
    QList<int> poll()
    {
        m_frames.clear();
        m_reader.readDataSlot();
        return m_frames;
    }

    const QString m_key = "segmenttest";
    QList<int> m_frames;
    ImageReader m_reader{m_key};
};

class FramesTest : public SegmentTest
{
protected:
    FramesTest()
    {
        takeOverTimer(m_writer);
        startReader();
    }

    QList<int> copyAndPoll()
    {
        m_writer.copyDataToShm();
        return poll();
    }

    ImageWritter m_writer{m_key, 3, frameSize};
};

TEST_F(FramesTest, ComeOnceAndOldestFirstWhileTheRingTurns)
{
    int number = 0;
    for (int batch : {1, 2, 3, 1, 3, 2}) {
        QList<int> expected;
        for (int i = 0; i < batch; ++i) {
            write(m_writer, ++number);
            expected.append(number);
        }
        EXPECT_EQ(copyAndPoll(), expected);
    }
    QSharedMemory memory(m_key);
    ASSERT_TRUE(memory.attach(QSharedMemory::ReadOnly));
    ShmHeader ring;
    std::memcpy(&ring, memory.constData(), sizeof ring);
    EXPECT_EQ(copyAndPoll(), QList<int>());
    EXPECT_EQ(std::memcmp(&ring, memory.constData(), sizeof ring), 0) << "nothing came, nothing is written";
    EXPECT_EQ(ring.totalSize, 124 + 3 * stride);
    EXPECT_EQ(ring.used, 3);
    EXPECT_EQ(ring.writeIndex, number % 3);
    EXPECT_EQ(ring.readIndex, ring.writeIndex);
    EXPECT_EQ(ring.changeText().size(), 38);
}

TEST_F(FramesTest, TheOldestAreLostWhenReaderOrWriterIsLate)
{
    for (int number = 1; number <= 5; ++number) {
        write(m_writer, number);
        m_writer.copyDataToShm();
    }
    EXPECT_EQ(poll(), (QList<int>{3, 4, 5}));
    for (int number = 6; number <= 12; ++number)
        write(m_writer, number);
    EXPECT_EQ(copyAndPoll(), (QList<int>{10, 11, 12}));
}

TEST_F(FramesTest, AreDeliveredWhileOthersMayLockTheSegment)
{
    write(m_writer, 1);
    m_writer.copyDataToShm();
    const int value = semaphore(GETVAL);
    int delivered = 0;
    onFrame(m_reader, [&] { delivered = semaphore(GETVAL); });
    poll();
    EXPECT_EQ(delivered, value);
}

TEST_F(FramesTest, RestartDeliversNoFrameTwice)
{
    write(m_writer, 1);
    EXPECT_EQ(copyAndPoll(), QList<int>{1});
    EXPECT_TRUE(m_reader.stopToRead());
    write(m_writer, 2);
    EXPECT_EQ(copyAndPoll(), QList<int>());
    startReader();
    EXPECT_EQ(poll(), QList<int>{2});
}

/// A frame that is being delivered is through before a start or a stop returns.
TEST_F(FramesTest, StartAndStopWaitForARunningPoll)
{
    write(m_writer, 1);
    m_writer.copyDataToShm();
    QSemaphore begun;
    std::atomic<int> returned{0};
    std::future<void> calls[2];
    onFrame(m_reader, [&] {
        for (const auto call : {&ImageReader::startToRead, &ImageReader::stopToRead})
            calls[call == &ImageReader::stopToRead] = std::async(std::launch::async, [&, call] {
                begun.release();
                (m_reader.*call)();
                ++returned;
            });
        begun.acquire(2);
        // Time enough for one that does not wait; no time is too long for one that does.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(returned, 0);
    });
    EXPECT_EQ(poll(), QList<int>{1});
}

TEST_F(FramesTest, WriterDropsWhatIsNoFrame)
{
    ImageBlock ib;
    ib.size = frameSize; // and no data
    EXPECT_TRUE(m_writer.writeImageBlock(ib));
    for (int size : {frameSize + 1, 0, -1, lowest, highest})
        write(m_writer, 2, size);
    for (int count : {0, -1, highest})
        write(*std::make_unique<ImageWritter>("none", count, frameSize), 2);
    write(m_writer, 1);
    EXPECT_EQ(copyAndPoll(), QList<int>{1});
}

// The second one goes on with indices of its own.
TEST_F(FramesTest, TwoWritersOfOneKeyAreBothRead)
{
    ImageWritter second(m_key, 3, frameSize);
    takeOverTimer(second);
    for (int number = 1; number <= 8; number += 2) {
        write(m_writer, number);
        EXPECT_TRUE(copyAndPoll().contains(number));
        write(second, number + 1);
        second.copyDataToShm();
        EXPECT_TRUE(poll().contains(number + 1));
    }
}

TEST_F(SegmentTest, WriterAndReaderNeedNoEventLoopOfOthers)
{
    LogCapture log;
    {
        ImageWritter writer(m_key, 3, frameSize);
        ImageReader reader(m_key);
        QSemaphore come;
        onFrame(reader, [&] { come.release(); });
        ASSERT_TRUE(reader.startToRead());
        for (int number = 1; come.available() < 20; ++number)
            write(writer, number % 100);
        takeOverTimer(reader);
    }
    EXPECT_EQ(log.takeLines().filter("warning"), QStringList());
}

TEST_F(SegmentTest, ALargerLayoutReplacesTheSegmentOfADeadWriterOnly)
{
    const auto dieAttached = [this] {
        const ImageWritter small(m_key, 1, 16);
        _exit(0);
    };
    EXPECT_EXIT(dieAttached(), testing::ExitedWithCode(0), "");
    ImageWritter larger(m_key, 3, frameSize);
    takeOverTimer(larger);
    startReader();
    write(larger, 1);
    larger.copyDataToShm();
    EXPECT_EQ(poll(), QList<int>{1});
    EXPECT_FALSE(ImageWritter(m_key, 5, frameSize).isAttached());
}

/// A writer that stands still with the lock of the segment, while the reader polls by its timer.
class StillWriterTest : public SegmentTest
{
protected:
    StillWriterTest() { takeOverTimer(m_writer); }
    ~StillWriterTest() override
    {
        for (; m_taken > 0; --m_taken)
            m_lock.release();
    }

    /// Takes the lock, with all that makes it less than exclusive.
    void standStill()
    {
        do {
            EXPECT_TRUE(m_lock.acquire());
            ++m_taken;
        } while (semaphore(GETVAL) > 0);
    }

    ImageWritter m_writer{m_key, 3, frameSize};
    QSystemSemaphore m_lock{m_key, 1};
    int m_taken = 0;
};

TEST_F(StillWriterTest, AStopEndsTheWaitOfThePoll)
{
    for (const bool byDestroying : {false, true}) {
        auto reader = std::make_unique<ImageReader>(m_key);
        ASSERT_TRUE(reader->startToRead());
        EXPECT_TRUE(eventually([this] {
            if (semaphore(GETVAL) > 0) // a poll may have had the lock for a moment
                standStill();
            return semaphore(GETNCNT) == 1;
        }));
        if (byDestroying)
            reader.reset();
        else
            EXPECT_TRUE(reader->stopToRead());
        EXPECT_EQ(semaphore(GETVAL), 1) << "released once";
        EXPECT_EQ(semaphore(GETNCNT), 0);
    }
}

TEST_F(StillWriterTest, AStopOfAReaderThatDoesNotPollEndsItsOwnWait)
{
    startReader();
    standStill();
    QElapsedTimer waiting;
    waiting.start();
    EXPECT_TRUE(m_reader.stopToRead());
    EXPECT_GE(waiting.elapsed(), 1000) << "who has the lock for less is not disturbed";
    EXPECT_EQ(semaphore(GETVAL), 1) << "released once";
}

TEST_F(StillWriterTest, TheEndOfAnotherWriterWaitsForNobody)
{
    ImageWritter other(m_key, 3, frameSize);
    standStill();
    write(other, 1);
    EXPECT_TRUE(eventually([this] { return semaphore(GETNCNT) == 1; }));
}

TEST_F(StillWriterTest, StartsAndStopsWithoutAWaitReleaseNothingMore)
{
    startReader();
    const int value = semaphore(GETVAL);
    EXPECT_TRUE(m_reader.stopToRead());
    EXPECT_TRUE(m_reader.stopToRead());
    EXPECT_EQ(semaphore(GETVAL), value);
    standStill();
    EXPECT_TRUE(m_reader.startToRead()) << "which takes no lock to attach";
    EXPECT_EQ(semaphore(GETVAL), 1);
}

/// A segment whose content the test writes byte by byte, as a foreign or damaged writer would.
class HostileSegmentTest : public SegmentTest
{
protected:
    HostileSegmentTest()
    {
        EXPECT_TRUE(m_memory.create(124 + 3 * stride));
        startReader();
    }

    char *at(int offset) { return static_cast<char *>(m_memory.data()) + offset; }
    void put(int offset, std::int32_t value) { std::memcpy(at(offset), &value, sizeof value); }
    void putText(int offset, const QByteArray &text) { qstrcpy(at(offset), text.constData()); }

    /// One good frame in block 0, and a header that says so.
    void putGoodFrame(int number)
    {
        const std::int32_t header[] = {m_memory.size(), stride, 1, 3, 1, 0};
        std::memcpy(at(0), header, sizeof header);
        putText(24, "change" + QByteArray::number(number));
        put(124, frameSize);
        put(128, number);
        putText(124 + 32, "frame" + QByteArray::number(number));
        std::memset(at(124 + 136), number, frameSize);
    }

    QSharedMemory m_memory{m_key};
};

TEST_F(HostileSegmentTest, HeadersOfAnyContentDoNoHarmBeforeAndAfterAGoodFrame)
{
    // Whether the frame is held back, and what is wrong.
    const std::tuple<bool, const char *, int, QList<std::int32_t>> damages[] = {
        {true, "stride", 4, {lowest, -136, -1, 0, 135, 136, 201, 1 << 30, highest}},
        {true, "used, none", 8, {lowest, -1, 0}},
        {true, "capacity", 12, {lowest, -3, -1, 0, 4, 1 << 29, highest}},
        {true, "read index, negative", 20, {lowest, -1, -3}},
        {true, "frame size", 124, {lowest, -1, 0, frameSize + 1, stride, 1 << 30, highest}},
        {false, "used, too many", 8, {4, 1 << 30, highest}},
        {false, "read index, beyond the ring", 20, {3, 300, highest / 3 * 3}},
        {false, "total size, not looked at", 0, {lowest, -1, 0, 123, highest}},
        {false, "write index, not looked at", 16, {lowest, -1, 3, highest}},
    };
    int number = 0;
    for (int round = 0; round < 2; ++round) {
        for (const auto &[blocksFrame, name, offset, values] : damages) {
            for (std::int32_t value : values) {
                putGoodFrame(++number);
                put(offset, value);
                EXPECT_EQ(poll().isEmpty(), blocksFrame) << name << " " << value;
            }
        }
        putGoodFrame(++number);
        EXPECT_EQ(poll().size(), 1) << "the second round finds the buffers allocated";
    }
}

TEST_F(HostileSegmentTest, TextsWithoutAnEndStopWithTheirField)
{
    putGoodFrame(1);
    std::memset(at(24), 'c', 100);
    std::memset(at(124 + 32), 'i', 104);
    EXPECT_EQ(poll(), QList<int>{1});
    putText(24, "other");
    EXPECT_EQ(poll(), QList<int>()) << "the same identifier again";
}

TEST_F(HostileSegmentTest, OnlyUsedBlocksAreReadAndEachIdentifierOnce)
{
    putGoodFrame(1);
    put(8, 2);
    for (int block = 1; block < 3; ++block)
        std::memcpy(at(124 + block * stride), at(124), stride);
    EXPECT_EQ(poll(), QList<int>{1});
    putText(124 + stride + 32, "second");
    putText(124 + 2 * stride + 32, "third");
    putText(24, "two");
    EXPECT_EQ(poll(), QList<int>{1});
    put(8, 3);
    putText(24, "three");
    EXPECT_EQ(poll(), QList<int>{1});
    putText(24, "all are known");
    EXPECT_EQ(poll(), QList<int>());
}

TEST_F(HostileSegmentTest, ALaterLayoutIsHeldAgainstTheFirstBuffers)
{
    putGoodFrame(1);
    EXPECT_EQ(poll(), QList<int>{1});

    // One block of all bytes now: its frame would not fit.
    putGoodFrame(2);
    put(4, 3 * stride);
    put(12, 1);
    put(124, frameSize + 1);
    EXPECT_EQ(poll(), QList<int>());

    // More blocks than buffers.
    putGoodFrame(3);
    put(4, 137);
    put(8, 4);
    put(12, 4);
    put(124, 1);
    put(124 + 3 * 137, 1);
    putText(124 + 3 * 137 + 32, "beyond");
    EXPECT_EQ(poll(), QList<int>{3});
}

} // namespace

#include "imagereader.h"
#include "imagewritter.h"
#include "program.h"
#include "segmentpeek.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSystemSemaphore>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <limits>
#include <optional>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>

namespace {

bool isWhole(const uchar *bytes, std::size_t size)
{
    return size > 0 &&
           std::all_of(bytes, bytes + size, [first = *bytes](uchar byte) { return byte == first; });
}

bool isWhole(const VideoFrame &frame)
{
    return isWhole(frame.bits(frame.planes()[0]), std::size_t(frame.planes()[0].stride) * 1080);
}

/// The segment "Camera" of this program's temporary folder, which is removed with its semaphore at the end.
class SegmentPeekTest : public ::testing::Test
{
protected:
    ~SegmentPeekTest() override
    {
        camera.reset();
        peek.detach();
        const QSystemSemaphore semaphore("Camera", 1, QSystemSemaphore::Create);
        QSharedMemory left("Camera");
        left.attach();
    }

    void startCamera(int interval)
    {
        camera.emplace(PLAINCAMERA, QStringList(QString::number(interval)));
        ASSERT_TRUE(camera->hasLines(1));
    }
    /// GETVAL, GETPID (who changed it last) or GETNCNT (who waits) of the lock.
    static int semaphore(int command)
    {
        QString name = QSharedMemory("Camera").nativeKey();
        name.replace("qipc_sharedmemory_", "qipc_systemsem_");
        return semctl(semget(ftok(QFile::encodeName(name).constData(), 'Q'), 0, 0), 0, command);
    }
    /// Looks until there is a new frame. A call that waits for the camera never returns.
    VideoFrame newFrame()
    {
        VideoFrame frame;
        EXPECT_TRUE(eventually([&] { return peek.look(&frame, &error) == SegmentPeek::NewFrame; }))
            << error.toStdString();
        return frame;
    }

    std::optional<Program> camera;
    SegmentPeek peek{"Camera"};
    QString error;
};

TEST_F(SegmentPeekTest, NobodyNoticesItAlsoWhileTheCameraIsStoppedInsideACopy)
{
    startCamera(20);
    ASSERT_TRUE(isWhole(newFrame()));
    EXPECT_NE(semaphore(GETPID), getpid());
    peek.detach();

    // Until the stopped process is found holding the lock.
    const pid_t process = camera->processId();
    ASSERT_TRUE(eventually([&] {
        kill(process, SIGSTOP);
        waitpid(process, nullptr, WUNTRACED); // until all its threads stand
        if (semaphore(GETVAL) == 0)
            return true;
        kill(process, SIGCONT);
        return false;
    }));
    VideoFrame frame;
    SegmentPeek other("Camera");
    EXPECT_EQ(other.look(&frame, &error), SegmentPeek::NewFrame);
    EXPECT_TRUE(isWhole(frame));
    EXPECT_EQ(other.look(&frame, &error), SegmentPeek::Unchanged);
    other.detach();
    EXPECT_EQ(semaphore(GETVAL), 0);
    EXPECT_NE(semaphore(GETPID), getpid());
    kill(process, SIGCONT);
    EXPECT_TRUE(isWhole(newFrame())) << "the camera goes on";
}

TEST_F(SegmentPeekTest, FramesOfTheServicesReaderAndOfThePeekAreWhole)
{
    startCamera(8);
    ImageReader reader("Camera");
    std::atomic<int> read{0}, torn{0};
    QObject::connect(
        &reader, &ImageReader::newImageBlockSignal, &reader,
        [&](const ImageBlock &block) {
            ++read;
            torn += !isWhole(reinterpret_cast<const uchar *>(block.data), std::size_t(block.size));
        },
        Qt::DirectConnection);
    ASSERT_TRUE(reader.startToRead());
    bool isExclusive = true; // a reader that waits for a second on a busy machine lets itself in
    for (int frames = 0; frames < 60; ++frames) {
        ASSERT_TRUE(isWhole(newFrame())) << frames;
        isExclusive &= semaphore(GETVAL) <= 1;
    }
    EXPECT_TRUE(eventually([&] { return read >= 60; }));
    reader.stopToRead();
    EXPECT_TRUE(torn == 0 || !isExclusive);
}

TEST_F(SegmentPeekTest, NoSegmentAnEmptyOneAndAHostileOne)
{
    VideoFrame frame;
    EXPECT_EQ(peek.look(&frame, &error), SegmentPeek::NoSegment);
    QSharedMemory memory("Camera");
    const int stride = 12 + int(sizeof(ImageBlock));
    ASSERT_TRUE(memory.create(int(sizeof(ShmHeader)) + 3 * stride));
    EXPECT_EQ(peek.look(&frame, &error), SegmentPeek::Empty);

    auto *const header = static_cast<ShmHeader *>(memory.data());
    auto *const block =
        reinterpret_cast<ImageBlock *>(static_cast<char *>(memory.data()) + sizeof *header + stride);
    int number = 0;
    const auto putGoodFrame = [&] {
        *header = {memory.size(), stride, 3, 3, 2, 2, {}};
        std::snprintf(header->changeID, sizeof header->changeID, "change%d", ++number);
        ImageBlock record;
        record.size = 12;
        record.width = record.height = 2;
        record.format = RGB;
        std::snprintf(record.id, sizeof record.id, "frame%d", number);
        std::memcpy(static_cast<void *>(block), &record, sizeof record);
    };
    constexpr auto lowest = std::numeric_limits<std::int32_t>::min(),
                   highest = std::numeric_limits<std::int32_t>::max();
    for (std::int32_t *const field : {&header->stride, &header->capacity, &header->writeIndex, &block->size,
                                      &block->width, &block->height, &block->format, &header->used}) {
        for (const std::int32_t value : {lowest, -1, 0, 1 << 29, highest}) {
            putGoodFrame();
            const bool isHarmless =
                (field == &header->used && value > 0) || (field == &header->writeIndex && value == 0);
            *field = value;
            EXPECT_TRUE(isHarmless || peek.look(&frame, &error) != SegmentPeek::NewFrame)
                << number << " " << value;
        }
    }
    putGoodFrame();
    std::memset(header->changeID, 'c', sizeof header->changeID);
    std::memset(block->id, 'i', sizeof block->id);
    EXPECT_EQ(peek.look(&frame, &error), SegmentPeek::NewFrame);
    EXPECT_EQ(frame.size(), QSize(2, 2));
    std::snprintf(header->changeID, sizeof header->changeID, "other");
    EXPECT_EQ(peek.look(&frame, &error), SegmentPeek::Unchanged) << "the same frame again";
}

} // namespace

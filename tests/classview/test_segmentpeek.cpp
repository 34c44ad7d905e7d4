#include "imagewritter.h"
#include "program.h"
#include "segmentpeek.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSystemSemaphore>

#include <algorithm>
#include <atomic>
#include <future>
#include <limits>
#include <sys/sem.h>

namespace {

/// The segment "Camera" of this program's temporary folder, which is removed with its semaphore at the end.
class SegmentPeekTest : public ::testing::Test
{
protected:
    ~SegmentPeekTest() override
    {
        peek.detach();
        const QSystemSemaphore semaphore("Camera", 1, QSystemSemaphore::Create);
        QSharedMemory left("Camera");
        left.attach();
    }

    /// GETVAL or GETPID (who changed it last) of the lock.
    static int semaphore(int command)
    {
        QString name = QSharedMemory("Camera").nativeKey();
        name.replace("qipc_sharedmemory_", "qipc_systemsem_");
        return semctl(semget(ftok(QFile::encodeName(name).constData(), 'Q'), 0, 0), 0, command);
    }
    /// Writes a frame whose bytes have this value, and looks until there is a new one, which is to be this.
    void expectShown(ImageWritter &writer, char value)
    {
        std::vector<char> pixels(1920 * 1080 * 3, value);
        ImageBlock block;
        block.size = int(pixels.size());
        block.width = 1920;
        block.height = 1080;
        block.format = RGB;
        block.data = pixels.data();
        writer.writeImageBlock(block);
        EXPECT_TRUE(eventually([&] { return peek.look(&frame, &error) == SegmentPeek::NewFrame; }));
        EXPECT_TRUE(isFilledWith(value)) << int(value);
    }
    bool isFilledWith(char value) const
    {
        const uchar *const bytes = frame.bits(frame.planes()[0]);
        return std::count(bytes, bytes + 1920 * 1080 * 3, uchar(value)) == 1920 * 1080 * 3;
    }

    SegmentPeek peek{"Camera"};
    VideoFrame frame;
    QString error;
};

/// A call that waits for the camera never returns.
TEST_F(SegmentPeekTest, NobodyNoticesItAlsoWhileACameraIsStoppedInsideACopy)
{
    ImageWritter writer("Camera", 8, 1920 * 1080 * 3);
    for (char value = 1; value <= 12; ++value)
        expectShown(writer, value);
    peek.detach();
    {
        // Half of another block is overwritten.
        Program stopped(FRAMESOURCE_BINARY, {"0", "stop"});
        ASSERT_TRUE(stopped.hasLines(1));
        SegmentPeek other("Camera");
        EXPECT_EQ(other.look(&frame, &error), SegmentPeek::NewFrame);
        EXPECT_TRUE(isFilledWith(12));
        EXPECT_EQ(other.look(&frame, &error), SegmentPeek::Unchanged);
        other.detach();
        EXPECT_EQ(semaphore(GETVAL), 0);
        EXPECT_EQ(semaphore(GETPID), stopped.processId());
    }
    SegmentPeek other("Camera");
    EXPECT_EQ(other.look(&frame, &error), SegmentPeek::NewFrame);
    other.detach();
    EXPECT_EQ(semaphore(GETVAL), 1);
    EXPECT_NE(semaphore(GETPID), getpid()) << "nor while the lock is free";
    expectShown(writer, 13);
}

/// Under a camera that never rests.
TEST_F(SegmentPeekTest, WhatIsOverwrittenWhileItIsCopiedIsNoFrame)
{
    constexpr int side = 256, bytes = side * side * 3, stride = bytes + int(sizeof(ImageBlock)), blocks = 3;
    QSharedMemory memory("Camera");
    ASSERT_TRUE(memory.create(int(sizeof(ShmHeader)) + blocks * stride));
    std::atomic<bool> isEnough{false};
    const auto camera = std::async(std::launch::async, [&] {
        char *const header = static_cast<char *>(memory.data());
        for (int number = 0; !isEnough; ++number) {
            char *const block = header + sizeof(ShmHeader) + number % blocks * stride;
            ImageBlock record{bytes, side, side, 0, 0, RGB, nullptr, {}};
            std::snprintf(record.id, sizeof record.id, "%d", number);
            std::memcpy(block, &record, sizeof record);
            std::memset(block + sizeof record, number, bytes);
            ShmHeader ring{memory.size(), stride, blocks, blocks, (number + 1) % blocks, 0, {}};
            std::memcpy(ring.changeID, record.id, sizeof ring.changeID);
            std::memcpy(header, &ring, sizeof ring);
        }
    });
    for (int frames = 0; frames < 200;) {
        if (peek.look(&frame, &error) != SegmentPeek::NewFrame)
            continue;
        ++frames;
        const uchar *const first = frame.bits(frame.planes()[0]);
        EXPECT_EQ(std::count(first, first + bytes, *first), bytes) << frames;
    }
    isEnough = true;
}

TEST_F(SegmentPeekTest, NoSegmentAnEmptyOneAndAHostileOne)
{
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

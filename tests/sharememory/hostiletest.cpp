#include "segment.h"

#include <atomic>
#include <limits>
#include <random>
#include <thread>

namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

/// A segment whose content the test writes byte by byte, as a foreign or damaged writer would.
class HostileSegmentTest : public SegmentTest
{
protected:
    HostileSegmentTest()
    {
        EXPECT_TRUE(m_memory.create(124 + 3 * m_stride));
        collect(m_reader);
        EXPECT_TRUE(m_reader.startToRead());
        takeOverTimer(m_reader);
    }

    void put(int offset, std::int32_t value)
    {
        std::memcpy(static_cast<char *>(m_memory.data()) + offset, &value, sizeof value);
    }

    void putText(int offset, const QByteArray &text)
    {
        std::memcpy(static_cast<char *>(m_memory.data()) + offset, text.constData(),
                    std::size_t(text.size()) + 1);
    }

    /// One good frame in block 0, and a header that says so.
    void putGoodFrame(int number)
    {
        const std::int32_t header[] = {m_memory.size(), m_stride, 1, 3, 1, 0};
        std::memcpy(m_memory.data(), header, sizeof header);
        putText(24, "change" + QByteArray::number(number));
        put(124, m_frameSize);
        put(128, number);
        putText(124 + 32, "frame" + QByteArray::number(number));
        std::memset(static_cast<char *>(m_memory.data()) + 124 + 136, number, m_frameSize);
    }

    QList<int> poll()
    {
        m_reader.readDataSlot();
        return frames();
    }

    static constexpr int m_stride = m_frameSize + 136;
    QSharedMemory m_memory{m_key};
    ImageReader m_reader{m_key};
};

TEST_F(HostileSegmentTest, HeadersOfAnyContentDoNoHarmBeforeAndAfterAGoodFrame)
{
    // Whether the frame is held back, and what is wrong.
    const std::tuple<bool, const char *, int, QList<std::int32_t>> damages[] = {
        {true, "stride", 4, {lowest, -136, -1, 0, 135, 136, 201, 1 << 30, highest}},
        {true, "used, none", 8, {lowest, -1, 0}},
        {true, "capacity", 12, {lowest, -3, -1, 0, 4, 1 << 29, highest}},
        {true, "read index, negative", 20, {lowest, -1, -3}},
        {true, "frame size", 124, {lowest, -1, 0, m_frameSize + 1, m_stride, 1 << 30, highest}},
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
    std::memset(static_cast<char *>(m_memory.data()) + 24, 'c', 100);
    std::memset(static_cast<char *>(m_memory.data()) + 124 + 32, 'i', 104);
    EXPECT_EQ(poll(), QList<int>{1});
    putText(24, "other");
    EXPECT_EQ(poll(), QList<int>()) << "the same identifier again";
}

TEST_F(HostileSegmentTest, LaterLayoutIsHeldAgainstTheFirstBuffers)
{
    putGoodFrame(1);
    EXPECT_EQ(poll(), QList<int>{1});

    // One block of all bytes now: its frame would not fit the buffers allocated for the first layout.
    putGoodFrame(2);
    put(4, 3 * m_stride);
    put(12, 1);
    put(124, m_frameSize + 1);
    EXPECT_EQ(poll(), QList<int>());
    putText(24, "smaller");
    put(124, m_frameSize);
    EXPECT_EQ(poll(), QList<int>{2});

    // More blocks than buffers.
    putGoodFrame(3);
    put(4, 137);
    put(8, 4);
    put(12, 4);
    put(124, 1);
    EXPECT_EQ(poll(), QList<int>{3});
}

TEST_F(HostileSegmentTest, ContentThatChangesDuringThePollDoesNoHarm)
{
    std::atomic<bool> done{false};
    std::thread scribbler([&] {
        std::minstd_rand random(7);
        const std::int32_t values[] = {lowest, -1, 0, 1, 3, 137, m_stride, m_stride + 1, 1 << 20, highest};
        const int offsets[] = {4, 8, 12, 20, 124, 124 + m_stride, 124 + 2 * m_stride};
        for (int i = 0; !done; ++i) {
            putGoodFrame(i % 100);
            for (int k = 0; k < 3; ++k)
                put(offsets[random() % std::size(offsets)], values[random() % std::size(values)]);
        }
    });
    for (int i = 0; i < 20000; ++i)
        m_reader.readDataSlot();
    done = true;
    scribbler.join();
    frames();
    putGoodFrame(101);
    EXPECT_EQ(poll(), QList<int>{101});
}

} // namespace

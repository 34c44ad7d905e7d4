#include "segment.h"

namespace {

/// A writer and a reader whose polls and copies the test calls itself.
class FramesTest : public SegmentTest
{
protected:
    FramesTest()
    {
        takeOverTimer(m_writer);
        collect(m_reader);
        EXPECT_TRUE(m_reader.startToRead());
        takeOverTimer(m_reader);
    }

    void write(int number)
    {
        QByteArray pixels(m_frameSize, char(number));
        ImageBlock ib;
        ib.size = pixels.size();
        ib.width = number;
        ib.data = pixels.data();
        EXPECT_TRUE(m_writer.writeImageBlock(ib));
    }

    QList<int> poll()
    {
        m_reader.readDataSlot();
        return frames();
    }

    QList<int> copyAndPoll()
    {
        m_writer.copyDataToShm();
        return poll();
    }

    ShmHeader header()
    {
        QSharedMemory memory(m_key);
        EXPECT_TRUE(memory.attach(QSharedMemory::ReadOnly));
        ShmHeader copy;
        std::memcpy(&copy, memory.constData(), sizeof copy);
        return copy;
    }

    ImageWritter m_writer{m_key, 3, m_frameSize};
    ImageReader m_reader{m_key};
};

TEST_F(FramesTest, ComeOnceAndOldestFirstWhileTheRingTurns)
{
    int number = 0;
    for (int batch : {1, 2, 3, 1, 3, 2}) {
        QList<int> expected;
        for (int i = 0; i < batch; ++i) {
            write(++number);
            expected.append(number);
        }
        EXPECT_EQ(copyAndPoll(), expected);
        EXPECT_EQ(copyAndPoll(), QList<int>());
    }
    const ShmHeader ring = header();
    EXPECT_EQ(ring.totalSize, 124 + 3 * (m_frameSize + 136));
    EXPECT_EQ(ring.used, 3);
    EXPECT_EQ(ring.writeIndex, number % 3);
    EXPECT_EQ(ring.readIndex, ring.writeIndex);
    EXPECT_EQ(ring.changeText().size(), 38);
}

TEST_F(FramesTest, TheOldestAreLostWhenReaderOrWriterIsLate)
{
    for (int number = 1; number <= 5; ++number) {
        write(number);
        m_writer.copyDataToShm();
    }
    EXPECT_EQ(poll(), (QList<int>{3, 4, 5}));
    for (int number = 6; number <= 12; ++number)
        write(number);
    EXPECT_EQ(copyAndPoll(), (QList<int>{10, 11, 12}));
}

TEST_F(FramesTest, RestartDeliversNoFrameTwice)
{
    write(1);
    EXPECT_EQ(copyAndPoll(), QList<int>{1});
    EXPECT_TRUE(m_reader.stopToRead());
    write(2);
    EXPECT_EQ(copyAndPoll(), QList<int>());
    EXPECT_TRUE(m_reader.startToRead());
    takeOverTimer(m_reader);
    EXPECT_EQ(poll(), QList<int>{2});
}

TEST_F(FramesTest, WriterDropsWhatIsNoFrame)
{
    QByteArray pixels(m_frameSize + 1, 'x');
    ImageBlock ib;
    ib.size = m_frameSize; // and no data
    EXPECT_TRUE(m_writer.writeImageBlock(ib));
    ib.data = pixels.data();
    for (int size : {m_frameSize + 1, 0, -1, INT32_MIN, INT32_MAX}) {
        ib.size = size;
        EXPECT_TRUE(m_writer.writeImageBlock(ib));
    }
    write(1);
    EXPECT_EQ(copyAndPoll(), QList<int>{1});
}

TEST_F(SegmentTest, WritersThatFitNoSegmentTakeFramesAndLive)
{
    for (const auto &[blocks, size] : {std::pair{0, 64u}, {-1, 64u}, {3, 4294967295u}, {2147483647, 64u}}) {
        ImageWritter writer(m_key, blocks, size);
        takeOverTimer(writer);
        char pixel = 0;
        ImageBlock ib;
        ib.size = 1;
        ib.data = &pixel;
        EXPECT_TRUE(writer.writeImageBlock(ib));
        writer.copyDataToShm();
    }
    ImageWritter small(m_key, 1, 16);
    ImageWritter large(m_key, 3, m_frameSize);
    EXPECT_TRUE(small.isAttached());
    EXPECT_FALSE(large.isAttached());
}

} // namespace

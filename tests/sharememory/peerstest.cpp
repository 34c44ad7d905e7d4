#include "eventually.h"
#include "segment.h"

#include <QProcess>

#include <gmock/gmock.h>

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Not;

/// One shmpeer process.
class Peer
{
public:
    explicit Peer(const QStringList &arguments)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(SHMPEER, arguments);
    }

    ~Peer()
    {
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(5000))
            m_process.kill();
        m_process.waitForFinished(5000);
    }

    /// Waits for the one line that tells of its start.
    bool tells(const QByteArray &line)
    {
        return m_process.waitForReadyRead(10000) && m_process.readLine().trimmed() == line;
    }

    void writes(int number) { m_process.write(QByteArray::number(number) + "\n"); }

    void dies()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }

private:
    QProcess m_process;
};

class PeersTest : public SegmentTest
{
protected:
    QStringList writerArguments() const { return {"write", m_key, "3", QString::number(m_frameSize)}; }

    /// Lets the peer write a frame and waits for it; returns all that was delivered up to then.
    QList<int> passes(Peer &writer, int number)
    {
        writer.writes(number);
        eventually([&] {
            QMutexLocker locker(&m_mutex);
            return m_frames.contains(number);
        });
        return frames();
    }
};

TEST_F(PeersTest, FramesFlowAgainAfterAPeerDiedWithTheLock)
{
    Peer writer(writerArguments());
    ASSERT_TRUE(writer.tells("attached"));
    ImageReader reader(m_key);
    collect(reader);
    ASSERT_TRUE(reader.startToRead());
    EXPECT_EQ(passes(writer, 1), QList<int>{1});

    Peer holder({"hold", m_key});
    ASSERT_TRUE(holder.tells("locked"));
    holder.dies();
    EXPECT_TRUE(reader.startToRead());
    EXPECT_EQ(passes(writer, 2), QList<int>{2});
}

TEST_F(PeersTest, NewWriterTakesOverTheSegmentOfAKilledOne)
{
    ImageReader reader(m_key);
    collect(reader);
    EXPECT_FALSE(reader.startToRead()) << "there is no writer yet";
    for (int number = 1; number <= 3; ++number) {
        Peer writer(writerArguments());
        ASSERT_TRUE(writer.tells("attached"));
        ASSERT_TRUE(reader.startToRead());
        EXPECT_EQ(passes(writer, number), QList<int>{number});
        writer.dies();
    }
    EXPECT_TRUE(reader.stopToRead());

    // Nobody is attached now, so that a larger layout finds room for itself.
    Peer larger({"write", m_key, "5", QString::number(4 * m_frameSize)});
    EXPECT_TRUE(larger.tells("attached"));
}

// Each writer goes on with indices of its own, so that a block may come again; none is lost.
TEST_F(PeersTest, TwoWritersOfOneKeyAreBothRead)
{
    Peer first(writerArguments());
    ASSERT_TRUE(first.tells("attached"));
    Peer second(writerArguments());
    ASSERT_TRUE(second.tells("attached"));
    ImageReader reader(m_key);
    collect(reader);
    ASSERT_TRUE(reader.startToRead());
    for (int number = 1; number <= 8; number += 2) {
        EXPECT_THAT(passes(first, number), AllOf(Contains(number), Not(Contains(-1))));
        EXPECT_THAT(passes(second, number + 1), AllOf(Contains(number + 1), Not(Contains(-1))));
    }
}

} // namespace

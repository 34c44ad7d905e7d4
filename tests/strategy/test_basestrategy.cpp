#include "basestrategy.h"
#include "heap.h"
#include "logcapture.h"

#include <gtest/gtest.h>

#include <QEventLoop>
#include <QFile>
#include <QSemaphore>
#include <QThread>

#include <thread>

namespace {

/// Notes what it handles and can hold up its thread.
class Probe : public BaseStrategy
{
public:
    Probe() : BaseStrategy("Probe", "7") {}

    void handleFrame(const cv::Mat &mat) override
    {
        entered.release();
        gate.acquire();
        gate.release();
        EXPECT_EQ(mat.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 255));
        handled.push_back(m_seenFrames);
    }
    void onStart() override { steps += "start "; }
    void onStop() override { steps += "stop "; }

    using BaseStrategy::m_frameInterval;
    QString steps;
    std::vector<int> handled;
    QSemaphore entered;
    QSemaphore gate{1};
};

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which have heaps of their own

TEST(StrategiesMemory, GoesBackWithTheLastOfThem)
{
    const auto resident = [] { // in megabytes
        QFile file("/proc/self/statm");
        return file.open(QFile::ReadOnly) ? file.readAll().split(' ').value(1).toInt() / 256 : 0;
    };
    heap::keepFreed();
    BaseStrategy *const first = new Probe;
    BaseStrategy *const last = new Probe;
    QByteArray(30 << 20, 'x').clear();
    const int kept = resident();
    BaseStrategy::release(first);
    EXPECT_GT(resident(), kept - 10);
    BaseStrategy::release(last);
    EXPECT_LT(resident(), kept - 20);
}

#endif

class BaseStrategyTest : public ::testing::Test
{
protected:
    /// Strategies are made on threads that have no event loop and don't last.
    BaseStrategyTest()
    {
        std::thread([this] { strategy = new Probe; }).join();
    }
    void SetUp() override
    {
        frame.fill(Qt::red);
        strategy->countIn(counted);
        QObject::connect(
            strategy, &BaseStrategy::finished, strategy, [this] { ++finished; }, Qt::DirectConnection);
    }
    void TearDown() override
    {
        QEventLoop loop; // until its thread has gone as well
        QObject::connect(strategy->thread(), &QObject::destroyed, &loop, &QEventLoop::quit);
        BaseStrategy::release(strategy);
        loop.exec();
        // Each frame has ended somewhere, those that went with the object, too.
        EXPECT_EQ(counted.queued.value(), 0);
        EXPECT_EQ(counted.offered.value(), counted.handled.value() + counted.skippedInterval.value() +
                                               counted.skippedQueue.value() + counted.skippedStopped.value() +
                                               counted.skippedUnusable.value());
    }

    /// Offers a frame so often and waits until the strategy has taken all of them.
    void offer(int count)
    {
        for (int i = 0; i < count; ++i)
            strategy->offerFrame(frame);
        QSemaphore done;
        QMetaObject::invokeMethod(
            strategy, [&] { done.release(); }, Qt::QueuedConnection);
        done.acquire();
    }

    QImage frame{64, 48, QImage::Format_RGB888};
    counters::AnalysisRow counted{};
    Probe *strategy = nullptr;
    std::atomic<int> finished{0};
};

TEST_F(BaseStrategyTest, EveryNthFrameFromTheFirstOn)
{
    strategy->m_frameInterval = 30;
    ASSERT_TRUE(strategy->start());
    EXPECT_FALSE(strategy->start());
    offer(61);
    EXPECT_EQ(strategy->handled, std::vector<int>({1, 31, 61}));
    strategy->stop();
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(counted.handled.value(), 3);
    EXPECT_EQ(counted.skippedInterval.value(), 58);
    offer(1);
    EXPECT_EQ(counted.skippedStopped.value(), 1);
    EXPECT_EQ(strategy->handled.size(), 3U);
    EXPECT_FALSE(strategy->start()); // once ended, for good
    EXPECT_FALSE(strategy->startWithinFrames(1));
    offer(1);
    EXPECT_EQ(strategy->handled.size(), 3U);
    EXPECT_EQ(strategy->steps, "start stop ");
}

TEST_F(BaseStrategyTest, ABudgetEndsTheRun)
{
    ASSERT_TRUE(strategy->startWithinFrames(2));
    EXPECT_FALSE(strategy->startWithinFrames(5));                // the budget stays
    strategy->offerFrame(QImage(64, 48, QImage::Format_ARGB32)); // costs nothing of it
    offer(5);
    EXPECT_EQ(strategy->handled.size(), 2U);
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(counted.skippedUnusable.value(), 1);
    EXPECT_EQ(strategy->steps, "stop ");
}

TEST_F(BaseStrategyTest, NoFramesAreOneAsABudgetAndNoneAsAnInterval)
{
    LogCapture log;
    strategy->m_frameInterval = 0;
    ASSERT_TRUE(strategy->startWithinFrames(0));
    EXPECT_FALSE(strategy->startWithinFrames(1));
    EXPECT_EQ(log.takeLines().filter("param error").size(), 1);
    offer(1);
    EXPECT_EQ(counted.skippedUnusable.value(), 1);
    strategy->m_frameInterval = 1;
    offer(2);
    EXPECT_EQ(strategy->handled.size(), 1U);
}

/// It never runs, and takes the frames along that wait for it.
TEST_F(BaseStrategyTest, FramesThatNobodyTakesAreCounted)
{
    for (int i = 0; i < 10; ++i)
        strategy->offerFrame(frame);
    EXPECT_EQ(counted.queued.value(), 10);
    EXPECT_EQ(&FrameBacklog().counted(), &counters::page().analyses.rows[0])
        << "the row of all that have none";
}

TEST_F(BaseStrategyTest, ABacklogIsBoundedAndDroppedFramesAreNotCounted)
{
    ASSERT_TRUE(strategy->start());
    strategy->gate.acquire();
    strategy->offerFrame(frame);
    strategy->entered.acquire();
    const int before = BaseStrategy::frameCount();
    for (int i = 0; i < 1000; ++i)
        strategy->offerFrame(frame);
    strategy->gate.release();
    offer(0);
    EXPECT_EQ(strategy->handled.size(), 1U + 64U);
    EXPECT_EQ(BaseStrategy::frameCount() - before, 64);
    EXPECT_EQ(counted.skippedQueue.value(), 1000 - 64);
    EXPECT_GT(counted.longest.value(), 0);
    EXPECT_GE(counted.time.value(), counted.longest.value());
}

} // namespace

#include "basestrategy.h"
#include "eventually.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QSemaphore>
#include <QThread>

#include <mutex>

using ::testing::ElementsAre;

namespace {

const QImage frame = [] {
    QImage image(64, 48, QImage::Format_RGB888);
    image.fill(Qt::red);
    return image;
}();

/// Counts what it handles and can hold up its thread.
class Probe : public BaseStrategy
{
public:
    explicit Probe(int interval) : BaseStrategy("Probe", "7") { m_frameInterval = interval; }
    ~Probe() override { ++destroyed; }

    void handleFrame(const cv::Mat &mat) override
    {
        entered.release();
        gate.acquire();
        gate.release();
        EXPECT_EQ(mat.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 255));
        handled.push_back(m_seenFrames);
        if (stopItself)
            stop();
    }

    static std::atomic<int> destroyed;
    std::vector<int> handled;
    QSemaphore entered;
    QSemaphore gate{1};
    bool stopItself = false;
};

std::atomic<int> Probe::destroyed{0};

/// Keeps a strategy for a test and releases it as the registry does.
struct Holder
{
    explicit Holder(int interval) : probe(new Probe(interval))
    {
        QObject::connect(
            probe, &BaseStrategy::finished, probe, [this] { ++finished; }, Qt::DirectConnection);
    }
    ~Holder()
    {
        const int before = Probe::destroyed;
        BaseStrategy::release(probe);
        EXPECT_TRUE(eventually([&] { return Probe::destroyed == before + 1; }));
    }
    Probe *operator->() const { return probe; }

    Probe *probe;
    std::atomic<int> finished{0};
};

/// Waits until the strategy has taken everything that was offered to it.
void drain(const Holder &holder)
{
    QSemaphore done;
    QMetaObject::invokeMethod(
        holder.probe, [&] { done.release(); }, Qt::QueuedConnection);
    ASSERT_TRUE(done.tryAcquire(1, 10000));
}

TEST(BaseStrategyTest, EveryNthFrameFromTheFirstOn)
{
    Holder strategy(30);
    ASSERT_TRUE(strategy->start());
    EXPECT_FALSE(strategy->start());
    const int before = BaseStrategy::frameCount();
    for (int i = 0; i < 61; ++i)
        strategy->offerFrame(frame);
    drain(strategy);
    EXPECT_THAT(strategy->handled, ElementsAre(1, 31, 61));
    strategy->stop();
    EXPECT_EQ(strategy.finished, 1);
    strategy->offerFrame(frame);
    drain(strategy);
    EXPECT_EQ(strategy->handled.size(), 3U);
    EXPECT_EQ(BaseStrategy::frameCount() - before, 62);
}

TEST(BaseStrategyTest, ABudgetEndsTheRun)
{
    Holder strategy(1);
    ASSERT_TRUE(strategy->startWithinFrames(2));
    EXPECT_FALSE(strategy->startWithinFrames(5)); // the budget stays
    QImage unknown(64, 48, QImage::Format_ARGB32);
    strategy->offerFrame(unknown); // costs nothing of it
    for (int i = 0; i < 5; ++i)
        strategy->offerFrame(frame);
    drain(strategy);
    EXPECT_EQ(strategy->handled.size(), 2U);
    EXPECT_EQ(strategy.finished, 1);
}

TEST(BaseStrategyTest, ABudgetBelowOneIsOneAndTwoStopsAreTwoSignals)
{
    Holder strategy(1);
    strategy->stopItself = true;
    ASSERT_TRUE(strategy->startWithinFrames(0));
    strategy->offerFrame(frame);
    strategy->offerFrame(frame);
    drain(strategy);
    EXPECT_EQ(strategy->handled.size(), 1U);
    EXPECT_EQ(strategy.finished, 2);
}

TEST(BaseStrategyTest, AnIntervalBelowOneHandlesNothing)
{
    Holder strategy(0);
    ASSERT_TRUE(strategy->start());
    strategy->offerFrame(frame);
    drain(strategy);
    EXPECT_TRUE(strategy->handled.empty());
}

TEST(BaseStrategyTest, ABacklogIsBoundedAndDroppedFramesAreNotCounted)
{
    Holder strategy(1);
    ASSERT_TRUE(strategy->start());
    strategy->gate.acquire();
    strategy->offerFrame(frame);
    ASSERT_TRUE(strategy->entered.tryAcquire(1, 10000));
    const int before = BaseStrategy::frameCount();
    for (int i = 0; i < 1000; ++i)
        strategy->offerFrame(frame);
    strategy->gate.release();
    drain(strategy);
    EXPECT_EQ(strategy->handled.size(), 1U + BaseStrategy::frameBacklog);
    EXPECT_EQ(BaseStrategy::frameCount() - before, BaseStrategy::frameBacklog);
}

TEST(BaseStrategyTest, AStrategyThatNeverRanIsReleasedAtOnce)
{
    const int before = Probe::destroyed;
    auto *probe = new Probe(1);
    BaseStrategy::release(probe);
    EXPECT_EQ(Probe::destroyed, before + 1);
}

TEST(BaseStrategyTest, ReleasedFromInsideItsOwnFrameItEndsAfterIt)
{
    const int before = Probe::destroyed;
    auto *probe = new Probe(1);
    probe->stopItself = true;
    QObject::connect(
        probe, &BaseStrategy::finished, probe, [probe] { BaseStrategy::release(probe); },
        Qt::DirectConnection);
    probe->start();
    probe->offerFrame(frame);
    EXPECT_TRUE(eventually([&] { return Probe::destroyed == before + 1; }));
}

TEST(StrategyFactory, KnowsItsNamesLetterForLetter)
{
    for (const char *name : {"GalleryStrategy", "GalleryStrategyNew", "ConcerntrationStrategy",
                             "CMUHandupStrategy", "TrackingStrategy", "HandupPickStrategy",
                             "FunctionGameStrategy", "AttributeStrategy", "FaceEmotionStrategy"}) {
        BaseStrategy *strategy = BaseStrategy::createNewStrategy(name, "1");
        ASSERT_TRUE(strategy) << name;
        BaseStrategy::release(strategy);
    }
    EXPECT_FALSE(BaseStrategy::createNewStrategy("handuppickstrategy", "1"));
    EXPECT_FALSE(BaseStrategy::createNewStrategy("", "1"));
}

} // namespace

// Commands that meet a strategy which ends by itself. This program's factory stands in for the service's own.

#include "basestrategy.h"
#include "fixture.h"

#include <QSemaphore>

namespace {

constexpr unsigned int handledEvent = 9000;

QSemaphore ended;    ///< strategies that have ended and are still in the registry
QSemaphore mayLeave; ///< each of them takes one to leave it
QSemaphore gone;     ///< strategies that were destroyed

/// Tells of each frame, ends with its frame budget, and then waits before it leaves the registry.
class LingeringStrategy : public BaseStrategy
{
public:
    explicit LingeringStrategy(const QString &requestID) : BaseStrategy("Lingering", requestID) {}

    ~LingeringStrategy() override { gone.release(); }

    void handleFrame(const cv::Mat &) override
    {
        MessageSender::instance()->sendMessage(handledEvent, QVariantMap(), m_requestID);
    }
    void onStop() override
    {
        ended.release();
        mayLeave.acquire();
    }
};

TEST_F(ControllerTest, AStartThatMeetsAnEndedStrategyRunsANewOne)
{
    using Start = std::function<QVariantMap(const char *requestID)>;
    const std::tuple<int, QVariantMap, Start> commands[] = {
        {1, error(-2, "start failed"),
         [&](const char *requestID) { return controller->startAttributeDetection({}, requestID); }},
        {3, error(-15, "fetch galleries already start"),
         [&](const char *requestID) { return controller->fetchGalleryNew({}, requestID); }}};
    for (const auto &[frames, refusal, start] : commands) {
        SCOPED_TRACE(frames);
        EventCatcher::fresh();
        EXPECT_EQ(start("1"), error(0));
        EXPECT_EQ(start("2"), refusal);
        sendFrames(frames);
        ended.acquire(); // the first one takes no more frames, and the registry still has it

        EXPECT_EQ(start("3"), error(0));
        sendFrame();
        EXPECT_EQ(event(handledEvent, frames + 1).requestID, "3");
        mayLeave.release();
        gone.acquire();
        if (frames > 1) { // its late end has left the new one alone, which still runs
            EXPECT_EQ(start("4"), refusal);
            sendFrames(frames - 1);
        }
        ended.acquire();
        mayLeave.release();
        gone.acquire();
    }
}

} // namespace

BaseStrategy *BaseStrategy::createNewStrategy(const QString &, const QString &requestID)
{
    return new LingeringStrategy(requestID);
}

// The factory's other half, so that the linker takes none of it.
QStringList strategyNames()
{
    return {};
}

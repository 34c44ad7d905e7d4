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

/// A command whose analysis ends by itself.
struct OneShot
{
    const char *name;
    QVariantMap (*start)(AIServiceController &, const QString &requestID);
    int frames;
    QVariantMap refusal;
};

class StartsTest : public ControllerTest, public ::testing::WithParamInterface<OneShot>
{
};

TEST_P(StartsTest, AStartThatMeetsAnEndedStrategyRunsANewOne)
{
    const OneShot &command = GetParam();
    EXPECT_EQ(command.start(*controller, "1"), error(0));
    EXPECT_EQ(command.start(*controller, "2"), command.refusal);
    sendFrames(command.frames);
    ended.acquire(); // the first one takes no more frames, and the registry still has it

    EXPECT_EQ(command.start(*controller, "3"), error(0));
    sendFrame();
    EXPECT_EQ(event(handledEvent, command.frames + 1).requestID, "3");
    mayLeave.release();
    gone.acquire();
    if (command.frames > 1) { // its late end has left the new one alone, which still runs
        EXPECT_EQ(command.start(*controller, "4"), command.refusal);
        sendFrames(command.frames - 1);
    }
    ended.acquire();
    mayLeave.release();
    gone.acquire();
}

const OneShot oneShots[] = {
    {"Attributes",
     [](AIServiceController &controller, const QString &requestID) {
         return controller.startAttributeDetection({}, requestID);
     },
     1, error(-2, "start failed")},
    {"Gallery",
     [](AIServiceController &controller, const QString &requestID) {
         return controller.fetchGalleryNew({}, requestID);
     },
     3, error(-15, "fetch galleries already start")},
};

INSTANTIATE_TEST_SUITE_P(Commands, StartsTest, ::testing::ValuesIn(oneShots),
                         [](const auto &test) { return std::string(test.param.name); });

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

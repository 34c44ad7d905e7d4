#include "fixture.h"

#include <QImage>

namespace {

TEST_F(ControllerTest, OnlyFramesOfTheRightShapeGoOutAndWithoutACopy)
{
    std::vector<QImage> frames;
    QObject::connect(
        controller, &AIServiceController::newImageSignal, controller,
        [&](const QImage &image) { frames.push_back(image); }, Qt::DirectConnection);
    sendFrame(1280, 720);
    sendFrame(1920, 1080, NV12);
    sendFrame(1920, 1080, BGR);
    EXPECT_TRUE(frames.empty());
    controller->onCheckTimerDone();
    EXPECT_EQ(event(1022, 1).info, (QVariantMap{{"status", 0}})); // no video
    sendFrame(1920, 1080, RGB);
    sendFrame(1920, 1080, RGBA);
    controller->onCheckTimerDone();
    EXPECT_EQ(event(1022, 2).info, (QVariantMap{{"status", 1}}));
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].format(), QImage::Format_RGB888);
    EXPECT_EQ(frames[0].bytesPerLine(), 5760);
    EXPECT_EQ(frames[1].format(), QImage::Format_RGB32);
    EXPECT_EQ(reinterpret_cast<const char *>(frames[1].constBits()), pixels.data());
}

TEST_F(ControllerTest, FramesAndEndsOfAnalysesMeet)
{
    // Starts, stops and resets on this thread while frames go out on another and strategies end themselves.
    enrol({gallery("a", 50, {500, 400, 120, 120})});
    const QVariantMap guest = gallery("guest", 90);
    recognisers.faces->finds({{300, 300, 90, 90}});
    std::atomic<bool> done{false};
    std::thread video([&] {
        while (!done)
            sendFrame();
    });
    for (int i = 0; i < 40; ++i) {
        controller->fetchGalleryNew({}, QString::number(i));
        controller->startAttributeDetection({}, "a");
        controller->detectHandup({}, "h", 1);
        controller->detectConcerntration({}, "c", 1);
        controller->tracking({{"stuID", "a"}}, "t", 1);
        setExternal({guest}); // read by the fetch
        if (i % 3 == 0) {
            controller->resetStrategies();
            controller->clearHistoryGalleries("");
        } else {
            controller->detectHandup({}, "h", 0);
            controller->tracking({{"stuID", "a"}, {"requestID", "t"}}, "t", 0);
        }
    }
    controller->resetStrategies();
    EXPECT_EQ(controller->fetchGalleryNew({}, "last"), error(0));
    EXPECT_TRUE(eventually([&] { return !catcher.events(1011).empty(); }));
    done = true;
    video.join();
}

TEST_F(ControllerTest, ResetForgetsEverybodyAndDeletesTheStore)
{
    enrol({gallery("a", 50)});
    setExternal({gallery("b", 90)});
    EXPECT_EQ(controller->reset("1"), error(0));
    EXPECT_TRUE(known().isEmpty());
    EXPECT_TRUE(externals().isEmpty());
    EXPECT_TRUE(recognisers.ids->entries.empty());
    EXPECT_FALSE(QFile::exists("ai.data"));
    EXPECT_EQ(enrol({gallery("a", 50)}), error(0)); // lives on without a database
    EXPECT_FALSE(QFile::exists("ai.data"));
}

} // namespace

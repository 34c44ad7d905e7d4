#include "fixture.h"

#include <QSemaphore>

namespace {

TEST_F(ControllerTest, ARefusedSecondStartDoublesTheEvents)
{
    recognisers.bodies->rects = {{100, 100, 200, 300}};
    EXPECT_EQ(controller->detectHandup({}, "1", 1), error(0));
    sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1013).size() == 1; }));
    EXPECT_EQ(controller->detectHandup({}, "2", 1), error(-15, "handup already start"));
    for (int i = 0; i < 30; ++i)
        sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1013).size() == 3; }));
    EXPECT_EQ(catcher.events(1013)[2].requestID, "1");
    EXPECT_EQ(controller->detectHandup({}, "3", 0), error(0));
    EXPECT_EQ(controller->detectHandup({}, "3", 0), error(-15, "handup not start"));
}

TEST_F(ControllerTest, ConcentrationHasItsOwnWords)
{
    EXPECT_EQ(controller->detectConcerntration({}, "1", 0), error(-15, "concerntration not start"));
    EXPECT_EQ(controller->detectConcerntration({}, "1", 1), error(0));
    EXPECT_EQ(controller->detectConcerntration({}, "1", 1), error(-15, "concerntration already start"));
    EXPECT_EQ(controller->detectConcerntration({}, "1", 0), error(0));
}

TEST_F(ControllerTest, AttributesTakeOneFrameAndThenMayRunAgain)
{
    enrol({gallery("a", 50)});
    EXPECT_EQ(controller->startAttributeDetection({}, "1"), error(0));
    EXPECT_EQ(controller->startAttributeDetection({}, "2"), error(-2, "start failed"));
    sendFrame();
    sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1017).size() == 2; })); // doubled by the second start
    EXPECT_TRUE(eventually([&] { return controller->startAttributeDetection({}, "3") == error(0); }));
}

TEST_F(ControllerTest, TrackingStartsAndStopsByRequest)
{
    enrol({gallery("a", 50, {500, 400, 120, 120}), gallery("b", 90, {900, 400, 120, 120})});
    EXPECT_EQ(controller->tracking({}, "1", 1), error(-12));
    EXPECT_EQ(controller->tracking({{"stuID", "nobody"}}, "1", 1), error(-1003));
    EXPECT_EQ(controller->tracking({{"stuID", "a"}}, "1", 1), error(0));
    EXPECT_EQ(controller->tracking({{"stuID", "b"}}, "1", 1), error(-15));
    EXPECT_EQ(controller->tracking({{"stuID", "b"}}, "2", 1), error(0)); // joins the running strategy
    sendFrame();
    // Two students, two connections, twice each event.
    ASSERT_TRUE(eventually([&] { return catcher.events(1014).size() == 4; }));
    EXPECT_EQ(controller->tracking({{"stuID", "a"}, {"requestID", "1"}}, "3", 0), error(0));
    EXPECT_EQ(controller->tracking({{"stuID", "b"}, {"requestID", "1"}}, "3", 0), error(0)); // long gone
    for (int i = 0; i < 10; ++i)
        sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1014).size() == 6; }));
    EXPECT_EQ(catcher.events(1014)[5].info["stuID"], "b");
    EXPECT_EQ(controller->tracking({{"stuID", "b"}, {"requestID", "2"}}, "3", 0), error(0));
    EXPECT_EQ(controller->tracking({{"stuID", "b"}, {"requestID", "2"}}, "3", 0),
              error(0)); // nothing to stop
    EXPECT_EQ(controller->tracking({{"stuID", "b"}}, "2", 1), error(0));
}

TEST_F(ControllerTest, AStopWaitsForThePassInHandAndNoLonger)
{
    enrol({gallery("a", 50, {500, 400, 120, 120})});
    ASSERT_EQ(controller->tracking({{"stuID", "a"}}, "1", 1), error(0));
    sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1014).size() == 1; }));
    QSemaphore entered, leave;
    recognisers.faces->script = [&](const cv::Mat &, std::vector<cv::Rect> &,
                                    std::vector<std::vector<cv::Point>> &) {
        entered.release();
        leave.tryAcquire(1, 10000);
    };
    for (int i = 0; i < 10; ++i)
        sendFrame();
    if (entered.tryAcquire(1, 5000)) // the tracker may have lost the flat picture instead
        leave.release();
    EXPECT_EQ(controller->tracking({{"stuID", "a"}, {"requestID", "1"}}, "2", 0), error(0));
    leave.release();
}

TEST_F(ControllerTest, AGameStartsOnceAndAStopOfNoneIsAShortGame)
{
    enrol({gallery("a", 50)});
    DataManager::instance()->updateBodyRect(0, {300, 300, 100, 300}, 1);
    const QVariantMap players{{"stuList", QVariantList{QVariantMap{{"stuID", "a"}}}}};
    EXPECT_EQ(controller->startFunctionGame(players, "1", 1), error(0));
    EXPECT_EQ(controller->startFunctionGame({}, "2", 1), error(0)); // the game runs on
    ASSERT_EQ(catcher.events(1015).size(), 1U);
    EXPECT_EQ(ids(catcher.events(1015)[0].info["functionGameShowRegion"]), QStringList("a"));
    for (int i = 0; i < 6; ++i)
        sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1016).size() == 2; })); // never doubled
    EXPECT_EQ(catcher.events(1016)[1].requestID, "1");
    EXPECT_EQ(controller->startFunctionGame({}, "3", 0), error(0));
    EXPECT_EQ(controller->startFunctionGame(players, "4", 0), error(0));
    ASSERT_EQ(catcher.events(1015).size(), 2U);
    EXPECT_EQ(catcher.events(1015)[1].requestID, "4");
}

TEST_F(ControllerTest, ARecordingEndsWithItsStopOrTheService)
{
    const QString folder = QDir::temp().filePath("recordings");
    const auto files = [&] { return QDir(folder).entryList({"*.mp4"}).size(); };
    EXPECT_EQ(controller->stopVideoRecord("1"), error(-15, "video record not start"));
    EXPECT_EQ(controller->startVideoRecord({{"recordPath", "/proc/nowhere"}}, "1"), error(0)); // stays off
    EXPECT_EQ(controller->startVideoRecord({{"recordPath", folder}}, "1"), error(0));
    EXPECT_EQ(controller->startVideoRecord({{"recordPath", "/elsewhere"}}, "2"),
              error(-15, "video record already start"));
    for (int i = 0; i < 31; ++i)
        sendFrame();
    ASSERT_TRUE(eventually([&] { return catcher.events(1020).size() == 1; }));
    EXPECT_EQ(catcher.events(1020)[0].requestID, "0");
    EXPECT_TRUE(QFile::exists(catcher.events(1020)[0].info["videoLocalPath"].toString()));
    EXPECT_EQ(controller->stopVideoRecord("1"), error(0));
    EXPECT_EQ(files(), 1);
    controller->startVideoRecord({{"recordPath", folder}}, "1");
    controller->resetStrategies(); // a lost client
    EXPECT_EQ(controller->startVideoRecord({}, "1"), error(-15, "video record already start"));
    controller->close();
    EXPECT_EQ(controller->stopVideoRecord("1"), error(-15, "video record not start"));
    QDir(folder).removeRecursively();
}

/// A controller whose camera has never been there.
class WithoutCamera : public ::testing::Test
{
};

TEST_F(WithoutCamera, CommandsThatNeedFramesAreRefused)
{
    AIServiceController controller(nullptr); // before init, as after a failed connection
    const QVariantMap refused = error(-9);
    EXPECT_EQ(controller.fetchGalleryNew({}, ""), refused);
    EXPECT_EQ(controller.registerGallery({}, ""), refused);
    EXPECT_EQ(controller.detectHandup({}, "", 1), refused);
    EXPECT_EQ(controller.detectHandup({}, "", 0), refused);
    EXPECT_EQ(controller.detectConcerntration({}, "", 1), refused);
    EXPECT_EQ(controller.startAttributeDetection({}, ""), refused);
    EXPECT_EQ(controller.tracking({{"stuID", "a"}}, "", 1), refused);
    EXPECT_EQ(controller.startFunctionGame({}, "", 1), refused);
}

} // namespace

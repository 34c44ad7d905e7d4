#include "counters.h"
#include "fixture.h"
#include "videorecorder.h"

namespace {

TEST_F(ControllerTest, ARefusedSecondStartDoublesTheEvents)
{
    recognisers.bodies->rects = {{100, 100, 200, 300}};
    // A stop of something that never ran leaves a null entry, which a start fills.
    EXPECT_EQ(controller->detectHandup({}, "1", 0), error(-15, "handup not start"));
    EXPECT_EQ(controller->detectHandup({}, "1", 1), error(0));
    sendFrame();
    EXPECT_NE(event(1013, 1).sender, std::this_thread::get_id()) << "it goes out on the strategy's thread";
    EXPECT_EQ(controller->detectHandup({}, "2", 1), error(-15, "handup already start"));
    sendFrames(30);
    EXPECT_EQ(event(1013, 3).requestID, "1");
    controller->removeStrategy("HandupPickStrategy", nullptr); // the late end of a predecessor
    EXPECT_EQ(controller->detectHandup({}, "3", 0), error(0));
    EXPECT_EQ(controller->detectHandup({}, "3", 0), error(-15, "handup not start"));

    EXPECT_EQ(controller->detectConcerntration({}, "1", 0), error(-15, "concerntration not start"));
    EXPECT_EQ(controller->detectConcerntration({}, "1", 1), error(0));
    EXPECT_EQ(controller->detectConcerntration({}, "1", 1), error(-15, "concerntration already start"));
    EXPECT_EQ(controller->detectConcerntration({}, "1", 0), error(0));
}

TEST_F(ControllerTest, AttributesTakeOneFrameAndThenMayRunAgain)
{
    EXPECT_EQ(controller->startAttributeDetection({}, "1"), error(0));
    EXPECT_EQ(controller->startAttributeDetection({}, "2"), error(-2, "start failed"));
    sendFrames(2);
    event(1017, 2); // doubled by the second start
    EXPECT_TRUE(eventually([&] { return controller->startAttributeDetection({}, "3") == error(0); }));
}

TEST_F(ControllerTest, TrackingStartsAndStopsByRequest)
{
    enrol({gallery("a", 50, {500, 400, 120, 120}), gallery("b", 90, {900, 400, 120, 120})});
    const auto start = [&](const QVariantMap &params, const char *requestID) {
        return controller->tracking(params, requestID, 1);
    };
    const auto stop = [&](const char *stuID, const char *requestID) {
        return controller->tracking({{"stuID", stuID}, {"requestID", requestID}}, "3", 0);
    };
    EXPECT_EQ(start({}, "1"), error(-12));
    EXPECT_EQ(start({{"stuID", "nobody"}}, "1"), error(-1003));
    EXPECT_EQ(start({{"stuID", "a"}}, "1"), error(0));
    EXPECT_EQ(start({{"stuID", "b"}}, "1"), error(-15));
    EXPECT_EQ(start({{"stuID", "b"}}, "2"), error(0)); // joins the running strategy
    sendFrame();
    event(1014, 4); // two students, two connections, twice each event
    EXPECT_EQ(stop("a", "1"), error(0));
    EXPECT_EQ(stop("b", "1"), error(0)); // long gone
    sendFrames(10);
    EXPECT_EQ(event(1014, 6).info["stuID"], "b");
    EXPECT_EQ(stop("b", "2"), error(0));
    EXPECT_EQ(stop("b", "2"), error(0)); // nothing to stop
    EXPECT_EQ(start({{"stuID", "b"}}, "2"), error(0));
}

TEST_F(ControllerTest, AGameStartsOnceAndAStopOfNoneIsAShortGame)
{
    enrol({gallery("a", 50)});
    DataManager::instance()->updateBodyRect(0, {300, 300, 100, 300}, 1);
    const QVariantMap players{{"stuList", QVariantList{QVariantMap{{"stuID", "a"}}}}};
    EXPECT_EQ(controller->startFunctionGame(players, "1", 1), error(0));
    EXPECT_EQ(controller->startFunctionGame({}, "2", 1), error(0)); // the game runs on
    EXPECT_EQ(students::ids(event(1015, 1).info["functionGameShowRegion"]), QStringList("a"));
    sendFrames(6);
    EXPECT_EQ(event(1016, 2).requestID, "1"); // never doubled
    EXPECT_NE(event(1016, 2).sender, std::this_thread::get_id());
    EXPECT_EQ(controller->startFunctionGame({}, "3", 0), error(0));
    EXPECT_EQ(controller->startFunctionGame(players, "4", 0), error(0));
    EXPECT_EQ(event(1015, 2).requestID, "4");
}

TEST_F(ControllerTest, ARecordingOutlivesItsClientButNotTheService)
{
    const QString folder = QDir::temp().filePath("recordings");
    const auto start = [&](const QString &path) {
        return controller->startVideoRecord({{"recordPath", path}}, "1");
    };
    EXPECT_EQ(controller->stopVideoRecord("1"), error(-15, "video record not start"));
    EXPECT_EQ(start("/proc/nowhere"), error(0)); // stays off
    EXPECT_EQ(start(folder), error(0));
    EXPECT_EQ(start("/elsewhere"), error(-15, "video record already start"));
    sendFrames(31);
    const QString file = event(1020, 1).info["videoLocalPath"].toString();
    controller->resetStrategies(); // a lost client
    EXPECT_EQ(start({}), error(-15, "video record already start"));
    controller->close();
    EXPECT_EQ(controller->stopVideoRecord("1"), error(-15, "video record not start"));
    const counters::Counter &offered =
        counters::find(counters::page().analyses, VideoRecorder::countedName).offered;
    const std::int64_t before = offered.value();
    EXPECT_GT(before, 0);
    sendFrame();
    EXPECT_EQ(offered.value(), before) << "no frame goes there any more";
    cv::Mat picture;
    EXPECT_TRUE(cv::VideoCapture(file.toStdString()).read(picture));
    EXPECT_EQ(picture.size(), cv::Size(1920, 1080));
}

} // namespace

// Cameras that stop, come back with another layout, or write garbage.

#include "faultyservice.h"

namespace {

class CameraFaults : public FaultTest
{
protected:
    /// Frames arrive: an analysis, started now, hands some to its recogniser.
    bool framesArrive()
    {
        EXPECT_EQ(code(1030), 0);
        const bool seen = service.waitForCalls(bodyDetection, 2);
        EXPECT_EQ(code(1031), 0);
        return seen;
    }
    /// The service waits for the camera's lock then: nobody else has it after one that has ended as it
    /// should.
    void startClassWithACameraThatStops()
    {
        startClass();
        EXPECT_TRUE(framesArrive());
        camera.end();
        ASSERT_TRUE(camera.start(0, "stop"));
    }
};

TEST_F(CameraFaults, AnotherLayoutThatFitsIsTakenOver)
{
    startClass();
    EXPECT_TRUE(framesArrive());
    camera.stop();
    const auto videoState = [&] { return client->event(1022)["event_info"].toMap().value("status"); };
    EXPECT_EQ(videoState(), 0);
    // The service keeps the segment attached, so it stays: 18.7 MB, whatever the next camera would like.
    ASSERT_TRUE(camera.start(10, "", {"2", "1920", "1080", "5"}));
    EXPECT_EQ(videoState(), 1);
    EXPECT_TRUE(framesArrive());
    // Frames of a wrong size are told in the log, and whatever was written before them has been looked at.
    const auto writeWrongSize = [&](int linesInAll) {
        camera.stop();
        EXPECT_TRUE(camera.start(10, "", {"3", "1280", "720", "5"}));
        EXPECT_TRUE(
            service.waitForOutput("[videoframe] frame width: 1280 or height: 720 not match", linesInAll));
    };
    writeWrongSize(3);
    EXPECT_EQ(code(1030), 0);
    const int calls = service.faults.calls[bodyDetection];
    camera.stop();
    ASSERT_TRUE(camera.start(10, "", {"1", "1920", "1080", "1"}));
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(camera.isWriting());
    writeWrongSize(service.standardOutput().count("frame width: 1280") + 3);
    EXPECT_EQ(service.faults.calls[bodyDetection], calls)
        << "the reader's buffers are those of the first layout";
    EXPECT_EQ(code(1031), 0);
    camera.stop();
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

TEST_F(CameraFaults, OneThatStopsInsideACopyHoldsUpNoCommand)
{
    startClassWithACameraThatStops();
    ASSERT_EQ(enrol({"Ada"}), QStringList{"Ada"});
    for (int round = 0; round < 2; ++round) { // the second one has attached beside the stopped camera
        for (int command = 1020; command <= 1040; ++command)
            EXPECT_NE(code(command, {{"stuID", "Ada"}}), unanswered) << command;
        connectClient(); // the one that leaves resets the analyses
        EXPECT_TRUE(service.alive());
        EXPECT_EQ(client->close()["rsp_error"], QVariant(0));
        EXPECT_EQ(client->close()["rsp_error"], QVariant(-15));
        openClass();
    }
    camera.stop();
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

TEST_F(CameraFaults, OneThatStopsInsideACopyHoldsUpNoEnd)
{
    startClassWithACameraThatStops();
    client->send(makeRequest(ai::Kind::Close, 0, {}, "self-kill"));
    EXPECT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
}

TEST_F(CameraFaults, GarbageReachesNoRecogniserThatItCouldHarm)
{
    startClassOf({"Ada"});
    ASSERT_EQ(code(1030), 0);
    ASSERT_EQ(code(1034, {{"stuID", "Ada"}}, "track"), 0);
    const qint64 before = service.residentKilobytes();
    camera.stop();
    ASSERT_TRUE(camera.start(10, "garbage"));
    EXPECT_TRUE(service.waitForOutput(" not match", 100));
    EXPECT_TRUE(service.alive());
    camera.stop();
    EXPECT_LT(service.residentKilobytes() - before, 300000);
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

} // namespace

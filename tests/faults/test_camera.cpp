// Cameras that stop, come back with another layout, or write garbage.

#include "faultyservice.h"

#include <QProcess>

namespace {

/// A faultycamera, which ends with the object as a killed program would.
class FaultyCamera
{
public:
    FaultyCamera(const QString &home, const QStringList &arguments)
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TMPDIR", home);
        m_process.setProcessEnvironment(environment);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(FAULTY_CAMERA, arguments);
    }
    ~FaultyCamera()
    {
        m_process.kill();
        m_process.waitForFinished(-1);
    }
    FaultyCamera(const FaultyCamera &) = delete;
    FaultyCamera &operator=(const FaultyCamera &) = delete;

    /// Lets it tidy up.
    void end()
    {
        m_process.terminate();
        m_process.waitForFinished(-1);
    }
    /// Waits until the segment is there, and then each time for some frames more.
    bool isWriting()
    {
        return (m_process.canReadLine() || m_process.waitForReadyRead(-1)) &&
               m_process.readLine() == "writing\n";
    }

private:
    QProcess m_process;
};

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
};

TEST_F(CameraFaults, AnotherLayoutThatFitsIsTakenOver)
{
    startClass();
    EXPECT_TRUE(framesArrive());
    camera.stop();
    // The service keeps the segment attached, so it stays: 18.7 MB, whatever the next camera would like.
    {
        FaultyCamera fewerBlocks(service.home(), {"2", "1920", "1080", "5"});
        ASSERT_TRUE(fewerBlocks.isWriting());
        EXPECT_TRUE(framesArrive());
    }
    // Frames of a wrong size are told in the log, and whatever was written before them has been looked at.
    const auto writeWrongSize = [&](int linesInAll) {
        FaultyCamera wrongSize(service.home(), {"3", "1280", "720", "5"});
        EXPECT_TRUE(wrongSize.isWriting());
        EXPECT_TRUE(
            service.waitForOutput("[videoframe] frame width: 1280 or height: 720 not match", linesInAll));
    };
    writeWrongSize(3);
    EXPECT_EQ(code(1030), 0);
    const int calls = service.faults.calls[bodyDetection];
    {
        FaultyCamera biggerFrames(service.home(), {"1", "1920", "1080", "1"});
        for (int i = 0; i < 5; ++i)
            ASSERT_TRUE(biggerFrames.isWriting());
    }
    writeWrongSize(service.standardOutput().count("frame width: 1280") + 3);
    EXPECT_EQ(service.faults.calls[bodyDetection], calls)
        << "the reader's buffers are those of the first layout";
    EXPECT_EQ(code(1031), 0);
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

/// The service waits for its lock then: nobody else has it after one camera that has ended as it should.
TEST_F(CameraFaults, OneThatStopsInsideACopyHoldsUpNoCommand)
{
    {
        FaultyCamera first(service.home(), {"3", "1920", "1080", "5"});
        ASSERT_TRUE(first.isWriting());
        startService();
        openClass();
        EXPECT_TRUE(framesArrive());
        first.end();
    }
    {
        FaultyCamera stopped(service.home(), {"stop"});
        ASSERT_TRUE(stopped.isWriting());
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
    }
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

TEST_F(CameraFaults, OneThatStopsInsideACopyHoldsUpNoEnd)
{
    FaultyCamera first(service.home(), {"3", "1920", "1080", "5"});
    ASSERT_TRUE(first.isWriting());
    startService();
    openClass();
    first.end();
    FaultyCamera stopped(service.home(), {"stop"});
    ASSERT_TRUE(stopped.isWriting());
    client->send(makeRequest(Kind::close, 0, {}, "self-kill"));
    EXPECT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
}

TEST_F(CameraFaults, GarbageReachesNoRecogniserThatItCouldHarm)
{
    startClass();
    ASSERT_EQ(enrol({"Ada"}), QStringList{"Ada"});
    ASSERT_EQ(code(1030), 0);
    ASSERT_EQ(code(1034, {{"stuID", "Ada"}}, "track"), 0);
    const qint64 before = service.residentKilobytes();
    {
        FaultyCamera garbage(service.home(), {"garbage"});
        ASSERT_TRUE(garbage.isWriting());
        camera.stop();
        EXPECT_TRUE(service.waitForOutput(" not match", 100));
        EXPECT_TRUE(service.alive());
    }
    EXPECT_LT(service.residentKilobytes() - before, 300000);
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

} // namespace

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
        m_process.waitForFinished(10000);
    }
    FaultyCamera(const FaultyCamera &) = delete;
    FaultyCamera &operator=(const FaultyCamera &) = delete;

    bool isWriting() { return m_process.waitForReadyRead(10000) && m_process.readLine() == "writing\n"; }

private:
    QProcess m_process;
};

class CameraFaults : public FaultTest
{
protected:
    /// Frames arrive: an analysis, started now, hands some to its recogniser.
    bool framesArrive(int milliseconds = 10000)
    {
        EXPECT_EQ(code(1030), 0);
        const bool seen = service.waitForCalls(bodyDetection, 2, milliseconds);
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
    {
        FaultyCamera biggerFrames(service.home(), {"1", "1920", "1080", "1"});
        ASSERT_TRUE(biggerFrames.isWriting());
        EXPECT_FALSE(framesArrive(2000)); // the reader's buffers are those of the first layout
    }
    {
        FaultyCamera wrongSize(service.home(), {"3", "1280", "720", "5"});
        ASSERT_TRUE(wrongSize.isWriting());
        EXPECT_TRUE(service.waitForOutput("[videoframe] frame width: 1280 or height: 720 not match", 3));
        EXPECT_TRUE(service.alive());
    }
    ASSERT_TRUE(camera.start(10));
    EXPECT_TRUE(framesArrive());
}

/// It costs frames at most, and those only until it dies: the system gives back what it has locked.
TEST_F(CameraFaults, OneThatStopsInTheMiddleOfAFrameHoldsUpNoCommand)
{
    startClass();
    {
        FaultyCamera stopped(service.home(), {"hold"});
        ASSERT_TRUE(stopped.isWriting());
        EXPECT_TRUE(service.alive());
        EXPECT_EQ(enrol({"Ada"}), QStringList{"Ada"});
    }
    EXPECT_TRUE(framesArrive());
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

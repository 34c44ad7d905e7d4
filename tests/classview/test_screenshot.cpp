#include "classroom.h"
#include "eventually.h"
#include "screenshotcheck.h"

#include <gmock/gmock.h>

#include <QElapsedTimer>
#include <QImage>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

using ::testing::HasSubstr;

/// The demo class before the service's camera, and the real viewer.
class ScreenshotTest : public ::testing::Test
{
protected:
    ~ScreenshotTest() override
    {
        camera.kill();
        camera.waitForFinished(-1);
    }

    QProcessEnvironment environment(const QString &name = {}, const QString &value = {}) const
    {
        auto made = QProcessEnvironment::systemEnvironment();
        made.insert("TMPDIR", service.home());
        if (!name.isEmpty())
            made.insert(name, value);
        return made;
    }
    void startCamera()
    {
        camera.setProcessEnvironment(environment());
        camera.start(CAMERAFEED, {"--demo"});
        ASSERT_TRUE(eventually([&] { return camera.readAllStandardOutput().contains("writing"); }));
    }
    /// The exit code; what it said goes to output.
    int runViewer(const QStringList &arguments, const QProcessEnvironment &variables)
    {
        QProcess viewer;
        viewer.setProcessEnvironment(variables);
        viewer.setProcessChannelMode(QProcess::MergedChannels);
        viewer.start(CLASSVIEW, arguments);
        EXPECT_TRUE(viewer.waitForFinished(-1));
        output = viewer.readAll().toStdString();
        return viewer.exitStatus() == QProcess::NormalExit ? viewer.exitCode() : -1;
    }
    static QJsonObject told(const QString &file)
    {
        return QJsonDocument::fromJson(QImage(file).text("marks").toUtf8()).object();
    }

    ServiceProcess service;
    QProcess camera;
    std::string output;
};

TEST_F(ScreenshotTest, WithoutAServiceTheCameraIsShownAndWithoutACameraHowToStartOne)
{
    const QString empty = service.filePath("empty.png"), shown = service.filePath("shown.png"),
                  painted = service.filePath("painted.png");
    EXPECT_EQ(runViewer({"--screenshot", empty, "--after", "0.5", "--language", "zh"}, environment()), 0)
        << output;
    EXPECT_EQ(told(empty)["frames"].toInt(), 0);

    startCamera();
    EXPECT_EQ(runViewer({"--screenshot", shown, "--after", "2"}, environment()), 0) << output;
    EXPECT_GT(told(shown)["frames"].toInt(), 0);
    EXPECT_EQ(
        runViewer({"--screenshot", painted, "--after", "2"}, environment("QT_XCB_GL_INTEGRATION", "none")),
        0);
    EXPECT_THAT(output, HasSubstr("no OpenGL"));
    EXPECT_GT(told(painted)["frames"].toInt(), 0);
    EXPECT_EQ(runViewer({"--screenshot", painted, "--show", "names=1", "--at-most", "0.2"}, environment()), 1)
        << "what does not come is told";
    EXPECT_EQ(runViewer({"--start", "everything"}, environment()), 2);
}

/// With a file in CLASSVIEW_SCREENSHOT that one is checked; else one is made, as ./run --view --screenshot
/// does.
TEST_F(ScreenshotTest, OverTheDemoClassItShowsThePictureNamesAndARaisedHand)
{
    const QString given = qEnvironmentVariable("CLASSVIEW_SCREENSHOT");
    if (!given.isEmpty()) {
        expectDemoClass(given);
        return;
    }
    startCamera();
    ASSERT_TRUE(service.start());
    TestClient client(service.socketPath());
    ASSERT_EQ(client.open()["rsp_error"], 0);
    ASSERT_EQ(client.execute(1001, allModels())["rsp_error"], 0);
    QVariantList faces;
    while (faces.size() < 3) {
        ASSERT_EQ(executeWhenConnected(client, 1021)["rsp_error"], 0);
        faces = client.event(1011)["event_info"].toMap()["galleries"].toList();
    }
    for (int i = 0; i < faces.size(); ++i) {
        QVariantMap face = faces[i].toMap();
        face["stuID"] = QString("Student %1").arg(i + 1);
        faces[i] = face;
    }
    ASSERT_EQ(client.execute(1022, QVariantMap{{"galleries", faces}})["rsp_error"], 0);

    const QString file = service.filePath("class.png");
    ASSERT_EQ(runViewer({"--start", "faces,hands", "--show", "names=3,hands=1", "--screenshot", file,
                         "--at-most", "3600", "--size", "1280x800"},
                        environment()),
              0)
        << output;
    expectDemoClass(file);
}

} // namespace

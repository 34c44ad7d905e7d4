#include "picture.h"
#include "program.h"
#include "serviceprocess.h"

#include <gmock/gmock.h>
#include <opencv2/core.hpp>

#include <QJsonArray>

namespace {

using ::testing::HasSubstr;

/// The clients beside the real service, a camera that shows nobody, and the picture of a face.
class ClientsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(service.start());
        ASSERT_TRUE(camera.start());
        cv::Mat face(128, 128, CV_8UC3);
        cv::randu(face, 0, 255);
        QString error;
        ASSERT_TRUE(picture::save(path("faces/anna.jpg"), face, &error)) << qPrintable(error);
    }

    QString path(const QString &name) const { return service.filePath(name); }
    /// The commands of a session stand between semicolons; %1 is the service's folder.
    Program run(QStringList client, const QStringList &arguments, QString session = {}) const
    {
        session.replace("%1", service.home()).replace(';', '\n');
        const QString program = client.takeFirst();
        return {program, client + arguments, session.toUtf8(), service.home()};
    }

    const QStringList aictl{AICTL_BINARY};
    const QStringList clientPy{"python3", CLIENT_PY};
    ServiceProcess service;
    FrameSource camera{service.home()};
};

TEST_F(ClientsTest, AictlGoesThroughALesson)
{
    auto refused = run(aictl, {"init"});
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_THAT(refused.errors(), HasSubstr("error -15: aiservice not open"));

    auto lesson = run(aictl, {"session"},
                      "open;init --identify room1;status;fetch-gallery --save %1/gallery;"
                      "register %1/faces %1/faces/anna.jpg=carla %1/faces/anna.jpg=ben;"
                      "rename carla dora;replace ben %1/faces/anna.jpg;delete anna;"
                      "external set %1/faces;external clear;attributes;"
                      "concentration start;concentration stop;"
                      "track ben;wait 1014;track ben --stop track-ben;"
                      "record start %1/videos;record stop");
    EXPECT_EQ(lesson.exitCode(), 0) << lesson.errors() << qPrintable(lesson.lines().join('\n'));
    EXPECT_EQ(picture::load(path("gallery/annotated.jpg")).size(), cv::Size(1920, 1080));
    auto students = run(aictl, {"students"});
    EXPECT_EQ(students.exitCode(), 0) << students.errors();
    const QJsonArray known = students.json(0)["bestGalleries"].toArray();
    ASSERT_EQ(known.size(), 2);
    EXPECT_EQ(known[0].toObject()["stuID"], "ben");
    EXPECT_EQ(known[1].toObject()["stuID"], "dora");

    // On leaving, the analysis is stopped.
    EXPECT_EQ(run(aictl, {"handup", "start", "--for", "0.2"}).exitCode(), 0);
    auto stopped = run(aictl, {"handup", "stop"});
    EXPECT_EQ(stopped.exitCode(), 1);
    EXPECT_THAT(stopped.errors(), HasSubstr("handup not start"));
    auto game = run(aictl, {"game", "start", "nobody"});
    ASSERT_TRUE(game.hasLines(3)) << game.errors();
    EXPECT_EQ(game.json(1)["msg"].toInt() + game.json(0)["msg"].toInt(), 1015);
    EXPECT_EQ(game.json(2)["msg"], 1016);
    game.interrupt();
    EXPECT_EQ(game.exitCode(), 0) << game.errors();

    auto end = run(aictl, {"session"}, "reset;close;open;init;quit");
    EXPECT_EQ(end.exitCode(), 0) << end.errors();
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
}

/// It does over the socket alone what the command line client does.
TEST_F(ClientsTest, TheClientInPythonGoesThroughALesson)
{
    EXPECT_EQ(run(clientPy, {"close"}).exitCode(), 1);
    auto lesson = run(clientPy, {"session"},
                      "open;init identify='\"room1\"' enableEmotion=false;fetch %1/gallery;"
                      "register %1/faces/anna.jpg=anna;rename anna ben;replace ben %1/faces/anna.jpg;"
                      "external set %1/faces/anna.jpg=carla;external clear;students %1/best;"
                      "handup start;handup stop;concentration start;concentration stop;"
                      "track start ben;watch 2 1014;track stop ben;"
                      "game start ben;watch 1 1016;game stop;attributes;"
                      "record start %1/videos;record stop;delete ben;reset");
    EXPECT_EQ(lesson.exitCode(), 0) << lesson.errors() << qPrintable(lesson.lines().join('\n'));
    EXPECT_EQ(picture::load(path("gallery/frame.jpg")).size(), cv::Size(1920, 1080));
    EXPECT_EQ(picture::load(path("best/ben.jpg")).size(), cv::Size(128, 128));

    auto refused = run(clientPy, {"delete", "ben"});
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_EQ(refused.json(0)["rsp_error"], -1003);
    EXPECT_EQ(run(clientPy, {"quit"}).exitCode(), 0);
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
}

} // namespace

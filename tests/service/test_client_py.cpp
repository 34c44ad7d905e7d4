#include "picture.h"
#include "program.h"
#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QJsonArray>

#include <opencv2/core.hpp>

namespace {

Program client(const ServiceProcess &service, const QStringList &arguments, const QByteArray &input = {})
{
    return {"python3", QStringList{CLIENT_PY} + arguments, input, service.home()};
}

} // namespace

/// The client in plain Python does over the socket alone what the command line client does.
TEST(ClientPyService, GoesThroughALesson)
{
    ServiceProcess service;
    ASSERT_TRUE(service.start());
    FrameSource camera(service.home());
    ASSERT_TRUE(camera.start());

    cv::Mat face(128, 128, CV_8UC3);
    cv::randu(face, 0, 255);
    QString error;
    ASSERT_TRUE(picture::save(service.filePath("face.jpg"), face, &error));
    const auto file = service.filePath("face.jpg").toUtf8();

    EXPECT_EQ(client(service, {"close"}).exitCode(), 1);
    auto lesson = client(service, {"session"},
                         "open\ninit identify='\"room1\"' enableEmotion=false\nfetch " +
                             service.filePath("gallery").toUtf8() + "\nregister " + file +
                             "=anna\nrename anna ben\n" + "replace ben " + file + "\nexternal set " + file +
                             "=carla\nexternal clear\nstudents " + service.filePath("best").toUtf8() +
                             "\nhandup start\nhandup stop\nconcentration start\nconcentration stop\n" +
                             "track start ben\nwatch 2 1014\ntrack stop ben\ngame start ben\nwatch 1 1016\n" +
                             "game stop\nattributes\nrecord start " + service.filePath("videos").toUtf8() +
                             "\nrecord stop\ndelete ben\nreset\n");
    EXPECT_EQ(lesson.exitCode(), 0) << lesson.errors() << qPrintable(lesson.lines().join('\n'));
    EXPECT_EQ(picture::load(service.filePath("gallery/frame.jpg")).size(), cv::Size(1920, 1080));
    EXPECT_EQ(picture::load(service.filePath("best/ben.jpg")).size(), cv::Size(128, 128));

    auto refused = client(service, {"delete", "ben"});
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_EQ(refused.json(0)["rsp_error"], -1003);
    EXPECT_EQ(client(service, {"quit"}).exitCode(), 0);
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
}

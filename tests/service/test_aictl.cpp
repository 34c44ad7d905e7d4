#include "picture.h"
#include "program.h"
#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QJsonArray>

#include <opencv2/core.hpp>

using testing::HasSubstr;

namespace {

/// The command line client beside the real service, and a camera that shows nobody.
class AictlTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(service.start());
        ASSERT_TRUE(camera.start());
    }

    Program aictl(const QStringList &arguments, const QByteArray &input = {})
    {
        return {QStringLiteral(AICTL_BINARY), arguments, input, service.home()};
    }

    int run(const QStringList &arguments, const QByteArray &input = {})
    {
        auto program = aictl(arguments, input);
        const auto code = program.exitCode();
        lastErrors = program.errors();
        return code;
    }

    /// A picture file of 128 by 128 pixels that differs for each number.
    QString faceFile(const QString &name, int number)
    {
        cv::Mat picture(128, 128, CV_8UC3);
        cv::theRNG().state = uint64_t(number);
        cv::randu(picture, 0, 255);
        QString error;
        const auto path = service.filePath("faces/" + name + ".jpg");
        EXPECT_TRUE(picture::save(path, picture, &error)) << qPrintable(error);
        return path;
    }

    QStringList students()
    {
        auto program = aictl({"students"});
        EXPECT_EQ(program.exitCode(), 0) << program.errors();
        QStringList names;
        for (const auto &student : program.json(0)["bestGalleries"].toArray())
            names.append(student.toObject()["stuID"].toString());
        return names;
    }

    ServiceProcess service;
    FrameSource camera{service.home()};
    std::string lastErrors;
};

} // namespace

TEST_F(AictlTest, TakesTheServiceThroughItsStates)
{
    EXPECT_EQ(run({"init"}), 1);
    EXPECT_THAT(lastErrors, HasSubstr("error -15: aiservice not open"));
    EXPECT_EQ(run({"session"}, "open\ninit --identify room1\nstatus\nclose\nstatus\n"), 0) << lastErrors;
    EXPECT_EQ(run({"close"}), 1);
    EXPECT_EQ(run({"quit"}), 0) << lastErrors;
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
    EXPECT_EQ(run({"status"}), 1);
}

TEST_F(AictlTest, FetchesThePictureAndFollowsTheAnalyses)
{
    ASSERT_EQ(run({"session"}, "open\ninit\n"), 0) << lastErrors;
    auto fetch = aictl({"fetch-gallery", "--save", service.filePath("gallery")});
    ASSERT_EQ(fetch.exitCode(), 0) << fetch.errors();
    EXPECT_TRUE(fetch.json(0)["galleries"].isArray());
    EXPECT_EQ(picture::load(service.filePath("gallery/annotated.jpg")).size(), cv::Size(1920, 1080));

    auto attributes = aictl({"attributes"});
    EXPECT_EQ(attributes.exitCode(), 0) << attributes.errors();
    EXPECT_EQ(attributes.json(0)["studentsAttribute"].toArray().size(), 0);
    EXPECT_EQ(run({"track", "nobody"}), 1);
    EXPECT_THAT(lastErrors, HasSubstr("error -1003"));
    EXPECT_EQ(run({"game", "stop"}), 0) << lastErrors;

    // The analysis that is stopped on leaving is not there any more.
    EXPECT_EQ(run({"handup", "start", "--for", "0.2"}), 0) << lastErrors;
    EXPECT_EQ(run({"handup", "stop"}), 1);
    EXPECT_THAT(lastErrors, HasSubstr("handup not start"));
    EXPECT_EQ(run({"record", "start", service.filePath("videos")}), 0) << lastErrors;
    EXPECT_EQ(run({"record", "stop"}), 0) << lastErrors;

    auto game = aictl({"game", "start", "nobody"});
    ASSERT_TRUE(game.hasLines(3)) << game.errors();
    EXPECT_EQ(game.json(1)["msg"].toInt() + game.json(0)["msg"].toInt(), 1015);
    EXPECT_EQ(game.json(2)["msg"], 1016);
    game.interrupt();
    EXPECT_EQ(game.exitCode(), 0) << game.errors();
}

TEST_F(AictlTest, KeepsStudentsThroughAKilledService)
{
    ASSERT_EQ(run({"session"}, "open\ninit\n"), 0) << lastErrors;
    const auto anna = faceFile("anna", 1);
    faceFile("ben", 2);
    ASSERT_EQ(run({"register", service.filePath("faces"), faceFile("anna", 1) + "=carla"}), 0) << lastErrors;
    EXPECT_EQ(students(), (QStringList{"anna", "ben", "carla"}));
    EXPECT_EQ(run({"register", anna}), 1);
    EXPECT_EQ(run({"rename", "carla", "dora"}), 0) << lastErrors;
    EXPECT_EQ(run({"replace", "ben", anna}), 0) << lastErrors;
    EXPECT_EQ(run({"delete", "anna"}), 0) << lastErrors;
    EXPECT_EQ(run({"delete", "anna"}), 1);
    EXPECT_EQ(run({"external", "set", anna}), 0) << lastErrors;

    service.crash();
    ASSERT_TRUE(service.start({"--recovery"}));
    EXPECT_EQ(students(), (QStringList{"ben", "dora"}));
    EXPECT_EQ(run({"external", "clear"}), 0) << lastErrors;
    EXPECT_EQ(run({"reset"}), 0) << lastErrors;
    EXPECT_EQ(students(), QStringList());
}

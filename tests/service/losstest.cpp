// Whatever was answered is in the store: random commands, a kill at a random moment, a recovery.

#include "classroom.h"
#include "imageutil.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include <QRandomGenerator>
#include <QSet>

#include <algorithm>

namespace {

/// One gallery command and what it makes of a class.
struct Command
{
    enum Type
    {
        enrol,
        remove,
        rename
    } type;
    QString student;
    QString newName;

    QVariantMap request(const QString &face) const
    {
        switch (type) {
        case enrol: {
            const QVariantMap gallery{{"stuID", student}, {"faceImg", face}, {"x", 10},
                                      {"y", 10},          {"width", 90},     {"height", 90}};
            return makeRequest(Kind::execute, 1022, QVariantMap{{"galleries", QVariantList{gallery}}});
        }
        case remove:
            return makeRequest(Kind::execute, 1025, QVariantMap{{"stuID", student}});
        default:
            return makeRequest(Kind::execute, 1024,
                               QVariantMap{{"oldStuID", student}, {"newStuID", newName}});
        }
    }
    void apply(QSet<QString> &students) const
    {
        if (type == enrol) {
            students.insert(student);
        } else if (students.remove(student) && type == rename) {
            students.insert(newName);
        }
    }
};

/// A picture with structure: a recogniser may refuse a flat one.
QString somePicture()
{
    cv::Mat coarse(16, 16, CV_8UC3), picture;
    cv::RNG(3).fill(coarse, cv::RNG::UNIFORM, 0, 255);
    cv::resize(coarse, picture, cv::Size(128, 128), 0, 0, cv::INTER_CUBIC);
    return ai_image::convertMat2Base64(picture);
}

TEST(Loss, AnAnsweredCommandSurvivesAKillAtAnyMoment)
{
    const int rounds = qEnvironmentVariable("AI_KILL_ROUNDS", "6").toInt();
    QRandomGenerator random(20190102);
    const QString face = somePicture();
    ServiceProcess service;
    FrameSource camera(service.home());
    ASSERT_TRUE(camera.start());
    QSet<QString> students;
    int made = 0;

    ASSERT_TRUE(service.start());
    for (int round = 0; round < rounds; ++round) {
        Command last{};
        {
            TestClient client(service.socketPath());
            if (round == 0) {
                ASSERT_EQ(client.open()["rsp_error"], QVariant(0));
                ASSERT_EQ(client.execute(1001, allModels())["rsp_error"], QVariant(0));
                executeWhenConnected(client, 1022);
            }
            const int commands = random.bounded(1, 12);
            for (int i = 0; i <= commands; ++i) {
                const QStringList known = students.values();
                const auto any = [&] { return known[random.bounded(known.size())]; };
                const int kind = known.isEmpty() ? 0 : random.bounded(3);
                const QString fresh = QString("student%1").arg(++made);
                last = kind == 0   ? Command{Command::enrol, fresh, {}}
                       : kind == 1 ? Command{Command::remove, any(), {}}
                                   : Command{Command::rename, any(), fresh};
                if (i == commands)
                    break;
                ASSERT_EQ(client.request(last.request(face))["rsp_error"], QVariant(0));
                last.apply(students);
            }
            // The last one is under way when the process dies.
            client.send(last.request(face));
            client.receive(random.bounded(4));
            service.crash();
        }
        ASSERT_TRUE(service.start({"--recovery"}));
        TestClient client(service.socketPath());
        const QStringList back = studentsOf(client);
        const QSet<QString> found(back.begin(), back.end());
        QSet<QString> after = students;
        last.apply(after);
        ASSERT_TRUE(found == students || found == after)
            << "round " << round << ": " << qPrintable(back.join(' '));
        ASSERT_EQ(back.size(), found.size());
        students = found;
    }
}

} // namespace

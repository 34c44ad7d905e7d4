#include "classroom.h"
#include "fakeservice.h"
#include "picture.h"
#include "program.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

namespace {

QStringList clientWith(const QStringList &arguments)
{
    return QStringList{CLIENT_PY} + arguments;
}

const QString python = QStringLiteral("python3");

} // namespace

TEST(ClientPy, IsWithinAScreenfulAndSpeaksTheProtocol)
{
    QFile script(CLIENT_PY);
    ASSERT_TRUE(script.open(QIODevice::ReadOnly));
    EXPECT_LT(script.readAll().count('\n'), 150);

    FakeService service(classroom::answer);
    QTemporaryDir home;
    const auto folder = home.path();
    Program session(
        python, clientWith({"session"}),
        "status\nopen\ninit identify='\"Köln 𝄞\"' enableEmotion=false\nfetch " + folder.toUtf8() +
            "\nregister " + folder.toUtf8() + "/face-1.jpg=ben\nstudents\ncall 1099 '[1, -2.5, null]'\n" +
            "handup start\nhandup stop\ntrack start anna\ntrack stop anna\ngame start anna ben\n" +
            "call 1099 5000000000\n");
    ASSERT_EQ(session.exitCode(), 0) << session.errors();
    const auto requests = service.requests();
    ASSERT_EQ(requests.size(), 13);
    const auto data = [&requests](int i) { return requests[i]["req_data"].toMap()["data"]; };
    EXPECT_EQ(requests[0]["req_code"], QVariant(4));
    EXPECT_EQ(requests[1]["req_code"], QVariant(1));
    EXPECT_EQ(data(2).toMap()["identify"], QString::fromUtf8("Köln 𝄞"));
    EXPECT_EQ(data(2).toMap()["enableEmotion"], QVariant(false));
    EXPECT_EQ(data(2).toMap()["faceMtcnn"], QVariant(true));
    const auto enrolled = data(4).toMap()["galleries"].toList()[0].toMap();
    EXPECT_EQ(enrolled["stuID"], "ben");
    EXPECT_EQ(picture::jpegOf(enrolled["faceImg"].toString()), classroom::faceFile());
    EXPECT_EQ(data(6), QVariant(QVariantList{1, -2.5, QVariant()}));
    EXPECT_EQ(data(10).toMap()["requestID"], requests[9]["req_id"]);
    EXPECT_EQ(data(11).toMap()["stuList"].toList().size(), 2);
    EXPECT_EQ(data(12), QVariant(5000000000LL));
    EXPECT_FALSE(picture::load(QDir(folder).filePath("frame.jpg")).empty());
    EXPECT_FALSE(picture::load(QDir(folder).filePath("anna.jpg")).empty());
}

TEST(ClientPy, StopsItsAnalysisOnCtrlCAndTellsOfRefusals)
{
    FakeService service(classroom::answer);
    {
        Program handup(python, clientWith({"handup", "start"}));
        ASSERT_TRUE(handup.hasLines(1)) << handup.errors();
        service.send(FakeService::event(1013, {{"handupStudents", QVariantList()}}));
        ASSERT_TRUE(handup.hasLines(2));
        EXPECT_EQ(handup.json(1)["msg"], 1013);
        handup.interrupt();
        EXPECT_EQ(handup.exitCode(), 0) << handup.errors();
        EXPECT_EQ(service.requests().last()["req_data"].toMap()["command_code"], QVariant(1031));
    }
    EXPECT_EQ(exitCodeOf(python, clientWith({"external", "set", "/absent=x"})), 1);
}

TEST(ClientPy, EndsWithAnErrorWhenTheServiceRefusesOrVanishes)
{
    FakeService service([&service](const QVariantMap &request) -> QVariantList {
        if (request["req_code"] == 2)
            service.dropClients();
        return {FakeService::reply(-15, "aiservice not open")};
    });
    Program refused(python, clientWith({"reset"}));
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_EQ(refused.json(0)["rsp_error_detail"], "aiservice not open");
    EXPECT_EQ(exitCodeOf(python, clientWith({"quit"})), 0);
    EXPECT_EQ(exitCodeOf(python, clientWith({"close"})), 1);
}

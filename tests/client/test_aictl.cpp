#include "fakeservice.h"
#include "json.h"
#include "picture.h"
#include "program.h"

#include <gmock/gmock.h>

#include <QTemporaryDir>

#include <limits>

using testing::HasSubstr;

namespace {

const QString aictl = AICTL_BINARY;

/// Runs to the end and returns the exit code.
int exitCodeOf(const QStringList &arguments, const QByteArray &input = {})
{
    return Program(aictl, arguments, input).exitCode();
}

QVariantMap dataOf(const QVariantMap &request)
{
    return request["req_data"].toMap();
}

/// Runs beside a service that agrees to everything.
class Aictl : public testing::Test
{
protected:
    FakeService service;
};

} // namespace

TEST(AictlJson, KeepsTheValueTypesOfTheProtocol)
{
    QString error;
    const auto map =
        json::parse(R"({"i":-3,"u":3000000000,"d":2.5,"b":true,"n":null,"l":[1,"x"]})", &error).toMap();
    EXPECT_EQ(error, "");
    EXPECT_EQ(map["i"], QVariant(-3));
    EXPECT_EQ(map["i"].type(), QVariant::Int);
    EXPECT_EQ(map["u"].type(), QVariant::LongLong);
    EXPECT_EQ(map["d"].type(), QVariant::Double);
    EXPECT_EQ(map["b"].type(), QVariant::Bool);
    EXPECT_FALSE(map["n"].isValid());
    EXPECT_EQ(map["l"], QVariant(QVariantList{1, "x"}));
    EXPECT_EQ(json::toVariant(json::fromVariant(map)).toMap(), map);

    EXPECT_TRUE(json::fromVariant(std::numeric_limits<double>::quiet_NaN()).isNull());
    EXPECT_EQ(json::fromVariant(QByteArray("ab")), QJsonValue("YWI="));
    for (const auto *bad : {"{\"a\":", "1,2", "nonsense", "]["}) {
        error.clear();
        EXPECT_FALSE(json::parse(bad, &error).isValid()) << bad;
        EXPECT_NE(error, "") << bad;
    }
}

TEST_F(Aictl, ExitCodeTellsOfRefusalsAndWrongUsage)
{
    service.setAnswer([](const QVariantMap &) { return QVariantList{FakeService::reply(-15)}; });
    EXPECT_EQ(exitCodeOf({"session", "-e"}, "delete a\nstatus\n"), 1);
    for (const auto *wrong : {"nonsense",         "",
                              "--socket",         "rename a",
                              "status a",         "status --nonsense",
                              "call x",           "call 1001 {",
                              "init --models x",  "handup halt",
                              "watch --filter x", "watch --for abc",
                              "watch --for -3",   "watch --count 0",
                              "watch --count x",  "handup start --for abc",
                              "track a --for 0",  "sleep nan",
                              "erase --logs",     "erase a --all",
                              "wait 1013 1 -1",   "--timeout 1e30 status",
                              "top --interval 0", "top --interval x"})
        EXPECT_EQ(exitCodeOf(QString(wrong).split(' ', Qt::SkipEmptyParts)), 2) << wrong;
    EXPECT_EQ(service.requests().size(), 1);
    EXPECT_EQ(exitCodeOf({"track", "--help"}), 0);
    EXPECT_EQ(exitCodeOf({"--socket", "nobody", "status"}), 1);
}

TEST_F(Aictl, AnswersThatCannotBeWrittenAreAFailureAndAnAnalysisEndsWithItsReader)
{
    Program status("sh", {"-c", aictl + " status >/dev/full"});
    EXPECT_EQ(status.exitCode(), 1);
    EXPECT_THAT(status.errors(), HasSubstr("cannot write"));
    EXPECT_EQ(Program("sh", {"-c", aictl + " --help >/dev/full"}).exitCode(), 1);

    // Also while no event comes that would be written.
    Program piped("bash", {"-c", aictl + " handup start | head -1; exit ${PIPESTATUS[0]}"});
    EXPECT_EQ(piped.exitCode(), 1);
    EXPECT_EQ(piped.errors(), "");
    ASSERT_EQ(service.requests().size(), 3);
    EXPECT_EQ(dataOf(service.requests()[2])["command_code"], 1031);
}

TEST_F(Aictl, ErrorsAreTellingAndNamesKeepToTheirLine)
{
    service.setAnswer([](const QVariantMap &request) {
        const int error = dataOf(request)["command_code"] == 1025 ? -1003 : -15;
        return QVariantList{FakeService::reply(error, error == -15 ? "aiservice not open" : "")};
    });
    Program state(aictl, {"reset"});
    EXPECT_EQ(state.exitCode(), 1);
    EXPECT_THAT(state.errors(),
                HasSubstr("error -15: aiservice not open (wrong state; run \"aictl open\" first)"));
    Program nobody(aictl, {"delete", "x"});
    EXPECT_EQ(nobody.exitCode(), 1);
    EXPECT_THAT(nobody.errors(), HasSubstr("error -1003 (no such student"));

    Program watch(aictl, {"watch", "--pretty", "--count", "1"});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    const QVariantList students{QVariantMap{{"stuID", "a\x1b[2J\nb\u202e"}}};
    service.send(FakeService::event(1018, {{"successList", students}}));
    ASSERT_EQ(watch.exitCode(), 0) << watch.errors();
    EXPECT_THAT(watch.lines().value(0).toStdString(), HasSubstr("registered: a\\u001b[2J\\u000ab\\u202e"));
}

TEST_F(Aictl, ASessionWaitsForEventsAndEndsInOrder)
{
    Program session(aictl, {"session", "--pretty", "--at-end", "delete anna"},
                    "# a comment\n\ninit --models faceid,ssd --identify room1 --emotion off\n"
                    "wait 1013 2 20\nrename \"a 'b\" c\\ d\nsleep 100\n");
    const auto handsUp = FakeService::event(1013, {{"handupStudents", QVariantList()}});
    ASSERT_TRUE(eventually([&] { return service.requests().size() == 1; })) << session.errors();
    EXPECT_EQ(
        dataOf(service.requests()[0])["data"],
        (QVariantMap{{"faceid", true}, {"ssd", true}, {"identify", "room1"}, {"enableEmotion", false}}));
    const int before = session.lines().size();
    service.send(handsUp);
    ASSERT_TRUE(session.hasLines(before + 1));
    EXPECT_EQ(service.requests().size(), 1);
    service.send(handsUp);
    ASSERT_TRUE(eventually([&] { return service.requests().size() == 2; }));
    EXPECT_EQ(dataOf(service.requests()[1])["command_code"], 1024);
    EXPECT_EQ(dataOf(service.requests()[1])["data"],
              (QVariantMap{{"oldStuID", "a 'b"}, {"newStuID", "c d"}}));
    session.terminate();
    EXPECT_EQ(session.exitCode(), 0) << session.errors();
    EXPECT_EQ(dataOf(service.requests().last())["command_code"], 1025);

    Program late(aictl, {"session"}, "wait 1019 1 0.1\n");
    EXPECT_EQ(late.exitCode(), 1);
    EXPECT_THAT(late.errors(), HasSubstr("event 1019"));
}

TEST_F(Aictl, WatchFiltersCountsAndDraws)
{
    QTemporaryDir home;
    const cv::Mat frame(360, 640, CV_8UC3, cv::Scalar(90, 120, 150));
    const QVariantMap anna{{"stuID", "anna"}, {"x", 100}, {"y", 100}, {"width", 60}, {"height", 60}};
    const QVariantMap gallery{{"image", picture::toDataText(frame)}, {"galleries", QVariantList{anna}}};
    Program watch(aictl, {"watch", "--filter", "1011,1018", "--count", "2", "--draw", home.path()});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.send(FakeService::event(1022, {{"status", 1}}));
    service.send(FakeService::event(1011, gallery, "x"));
    service.send(FakeService::event(1018, {}, "y"));
    ASSERT_EQ(watch.exitCode(), 0) << watch.errors();
    EXPECT_EQ(watch.json(0)["event_req_id"], "x");
    EXPECT_EQ(json::toVariant(watch.json(0)["event_info"]).toMap(), gallery);
    EXPECT_EQ(watch.json(1)["msg"], 1018);
    EXPECT_EQ(QDir(home.path()).entryList(QDir::Files), QStringList{"000001-1011.jpg"});
    const cv::Mat drawing = picture::load(home.filePath("000001-1011.jpg"));
    ASSERT_EQ(drawing.size(), frame.size());
    EXPECT_GT(cv::norm(drawing, frame, cv::NORM_INF), 40) << "a box around the face";
}

TEST_F(Aictl, TheEndOfTheServiceIsAFailureUnlessItWasAskedFor)
{
    service.setAnswer([this](const QVariantMap &request) -> QVariantList {
        if (request["req_id"] == "self-kill")
            service.dropClients();
        return {FakeService::reply()};
    });
    EXPECT_EQ(exitCodeOf({"session"}, "status\nquit\nstatus\n"), 0);
    service.setAnswer([](const QVariantMap &) { return QVariantList(); });
    Program quit(aictl, {"quit"});
    EXPECT_TRUE(eventually([&] { return quit.errors().find("waits for a camera") != std::string::npos; }));
    service.dropClients();
    EXPECT_EQ(quit.exitCode(), 0);
    Program watch(aictl, {"watch"});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.dropClients();
    EXPECT_EQ(watch.exitCode(), 1);
    EXPECT_THAT(watch.errors(), HasSubstr("closed the connection"));
}

#include "arguments.h"
#include "eventdrawing.h"
#include "eventtext.h"
#include "eventually.h"
#include "fakeservice.h"
#include "json.h"
#include "picture.h"
#include "portrait.h"
#include "program.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QTemporaryDir>

#include <limits>

using testing::HasSubstr;

namespace {

const QString aictl = AICTL_BINARY;

/// What the service's camera shows.
cv::Mat frame()
{
    return {cv::Size(640, 360), CV_8UC3, cv::Scalar(90, 120, 150)};
}

/// A JPEG file of 128 by 128 pixels.
QByteArray faceFile()
{
    return picture::jpegOf(picture::toDataText(cv::Mat(128, 128, CV_8UC3, cv::Scalar(40, 90, 200))));
}

/// The place of anna's face or body.
const QVariantMap anna{{"stuID", "anna"}, {"state", 0},   {"x", 100},          {"y", 100},
                       {"width", 60},     {"height", 60}, {"isDetected", true}};

/// The payload of event 1011.
QVariantMap gallery()
{
    return {{"image", picture::toDataText(frame())}, {"galleries", QVariantList{anna}}};
}

/// Success for every request, with an event before it where hands are analysed.
QVariantList answer(const QVariantMap &request)
{
    QVariantList messages{FakeService::reply()};
    if (request["req_data"].toMap()["command_code"] == 1030)
        messages.prepend(
            FakeService::event(1013, {{"handupStudents", QVariantList()}}, request["req_id"].toString()));
    return messages;
}

uint codeOf(const QVariantMap &request)
{
    return request["req_data"].toMap()["command_code"].toUInt();
}

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

TEST(AictlLine, IsSplitAsByAShell)
{
    QString error;
    EXPECT_EQ(splitLine(R"( call 1025  '{"stuID": "a b"}' )", &error),
              (QStringList{"call", "1025", R"({"stuID": "a b"})"}));
    EXPECT_EQ(splitLine(R"(rename "a \"b" c\ d '')", &error), (QStringList{"rename", "a \"b", "c d", ""}));
    EXPECT_EQ(error, "");
    splitLine("delete 'anna", &error);
    EXPECT_NE(error, "");
}

TEST(AictlDrawing, MarksWhatTheEventTells)
{
    EventDrawing drawing;
    const auto drawn = [&](uint code, const QVariantMap &info) {
        return drawing.draw({code, info, "execute", "1"}, frame);
    };
    const auto differs = [](const cv::Mat &picture, int x, int y) {
        const cv::Rect place(x - 3, y - 3, 7, 7);
        return !picture.empty() && cv::norm(picture(place), frame()(place), cv::NORM_INF) > 40;
    };
    const QVariantMap player{{"stuID", "anna"}, {"bones", QVariantList{QVariantMap{{"x", 400}, {"y", 200}}}}};
    EXPECT_TRUE(differs(drawn(1013, {{"handupStudents", QVariantList{anna}}}), 160, 130));
    EXPECT_TRUE(differs(drawn(1012, {{"studentStates", QVariantList{anna}}}), 160, 130));
    EXPECT_TRUE(differs(drawn(1014, anna), 160, 130));
    EXPECT_TRUE(differs(drawn(1015, {{"functionGameShowRegion", QVariantList{anna}}}), 160, 130));
    EXPECT_TRUE(differs(drawn(1016, {{"functionGameResult", QVariantList{player}}}), 400, 200));
    EXPECT_TRUE(differs(drawn(1017, {{"studentsAttribute", QVariantList{anna}}}), 160, 130))
        << "last seen there";
    EXPECT_TRUE(differs(drawn(1011, gallery()), 160, 130));

    // What a service must not send does no harm.
    const int huge = std::numeric_limits<int>::max();
    drawn(1014, {{"stuID", "x"}, {"x", -huge}, {"y", huge}, {"width", huge}, {"height", -5}});
    EXPECT_TRUE(drawn(1011, {{"image", "data:image/jpg;base64,AAAA"}}).empty());
}

TEST(AictlPortrait, TakesReadyCropsAsTheyAreAndRefusesTheRest)
{
    const QDir folder(QDir::temp());
    QString error;
    Portrait portrait;
    const auto made = [&](const QString &cascades, const auto &content) {
        EXPECT_TRUE(picture::save(folder.filePath("a.jpg"), content, &error));
        return PortraitMaker(cascades).make(folder.filePath("a.jpg"), &portrait, &error);
    };
    ASSERT_TRUE(made({}, faceFile()));
    EXPECT_EQ(portrait.jpeg, faceFile());
    EXPECT_TRUE(portrait.place.isEmpty());
    EXPECT_FALSE(made({}, QByteArray("no picture")));
    EXPECT_FALSE(made({}, frame()));
    EXPECT_THAT(error.toStdString(), HasSubstr("no face found"));
    EXPECT_FALSE(made(folder.path(), frame()));
    EXPECT_THAT(error.toStdString(), HasSubstr("--cascades"));
}

TEST(Aictl, SendsTheDocumentedRequests)
{
    FakeService service(answer);
    const std::vector<std::pair<QByteArray, QByteArray>> cases{
        {"init --models faceid,ssd --identify room1 --emotion off",
         R"({"faceid":true,"ssd":true,"identify":"room1","enableEmotion":false})"},
        {"call 1099 '{\"a\":[1,2.5,null]}'", R"({"a":[1,2.5,null]})"},
        {"track anna --stop t1", R"({"stuID":"anna","requestID":"t1"})"}};
    for (const auto &[line, data] : cases) {
        QString error;
        EXPECT_EQ(exitCodeOf(aictl, {"session", "--short"}, line + '\n'), 0);
        const auto requests = service.requests();
        ASSERT_FALSE(requests.isEmpty());
        EXPECT_EQ(requests.last()["req_data"].toMap()["data"], json::parse(data, &error)) << line.constData();
    }
}

TEST(Aictl, ExitCodeAndStandardErrorTellOfRefusalsAndWrongUsage)
{
    FakeService service(
        [](const QVariantMap &) { return QVariantList{FakeService::reply(-15, "aiservice not init")}; });
    Program refused(aictl, {"fetch-gallery"});
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_THAT(refused.errors(), HasSubstr("aictl: fetch-gallery: error -15: aiservice not init"));
    EXPECT_EQ(refused.json(0)["rsp_error"], -15);
    EXPECT_EQ(exitCodeOf(aictl, {"session", "-e"}, "delete a\nstatus\n"), 1);

    const auto count = service.requests().size();
    for (const auto *wrong : {"nonsense", "", "--socket", "rename a", "status a", "status --nonsense",
                              "call x", "call 1001 {", "init --models x", "handup halt", "watch --filter x"})
        EXPECT_EQ(exitCodeOf(aictl, QString(wrong).split(' ', Qt::SkipEmptyParts)), 2) << wrong;
    EXPECT_EQ(service.requests().size(), count);
    EXPECT_EQ(exitCodeOf(aictl, {"track", "--help"}), 0);
    EXPECT_EQ(exitCodeOf(aictl, {"--socket", "nobody", "status"}), 1);
}

TEST(Aictl, ASessionWaitsForEventsAndEndsInOrder)
{
    FakeService service(answer);
    Program session(aictl, {"session", "--pretty", "--at-end", "delete anna"},
                    "# a comment\n\nhandup start\nwait 1013 2 20\nrename a b\nsleep 100\n");
    ASSERT_TRUE(session.hasLines(4)) << session.errors();
    EXPECT_EQ(service.requests().size(), 1);
    service.send(FakeService::event(1013, {{"handupStudents", QVariantList()}}));
    ASSERT_TRUE(session.hasLines(8));
    EXPECT_EQ(codeOf(service.requests().last()), 1024u);
    session.terminate();
    EXPECT_EQ(session.exitCode(), 0) << session.errors();
    EXPECT_EQ(codeOf(service.requests().last()), 1025u);

    Program late(aictl, {"session"}, "wait 1019 1 0.1\n");
    EXPECT_EQ(late.exitCode(), 1);
    EXPECT_THAT(late.errors(), HasSubstr("event 1019"));
}

TEST(Aictl, TheEndOfTheServiceIsAFailureUnlessItWasAskedFor)
{
    FakeService service([&service](const QVariantMap &request) -> QVariantList {
        if (request["req_id"] == "self-kill")
            service.dropClients();
        return {FakeService::reply()};
    });
    EXPECT_EQ(exitCodeOf(aictl, {"session"}, "status\nquit\nstatus\n"), 0);
    Program watch(aictl, {"watch"});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.dropClients();
    EXPECT_EQ(watch.exitCode(), 1);
    EXPECT_THAT(watch.errors(), HasSubstr("closed the connection"));
}

TEST(Aictl, WatchFiltersCountsAndDraws)
{
    FakeService service(answer);
    QTemporaryDir home;
    Program watch(aictl, {"watch", "--filter", "1011,1018", "--count", "2", "--draw", home.path()});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.send(FakeService::event(1022, {{"status", 1}}));
    service.send(FakeService::event(1011, gallery(), "x"));
    service.send(FakeService::event(1018, {}, "y"));
    ASSERT_EQ(watch.exitCode(), 0) << watch.errors();
    EXPECT_EQ(watch.json(0)["event_req_id"], "x");
    EXPECT_EQ(json::toVariant(watch.json(0)["event_info"]).toMap(), gallery());
    EXPECT_EQ(watch.json(1)["msg"], 1018);
    EXPECT_EQ(QDir(home.path()).entryList(QDir::Files), QStringList{"000001-1011.jpg"});
}

#include "arguments.h"
#include "classroom.h"
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
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>

#include <limits>

using testing::HasSubstr;

namespace {

const QString aictl = AICTL_BINARY;

QVariantMap dataOf(const QVariantMap &request)
{
    return request["req_data"].toMap()["data"].toMap();
}

uint codeOf(const QVariantMap &request)
{
    return request["req_data"].toMap()["command_code"].toUInt();
}

} // namespace

TEST(AictlJson, KeepsTheValueTypesOfTheProtocol)
{
    QString error;
    const auto value =
        json::parse(R"({"i":-3,"u":3000000000,"d":2.5,"b":true,"n":null,"l":[1,"x"]})", &error);
    const auto map = value.toMap();
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
    EXPECT_EQ(json::parse("7", &error), QVariant(7));
    EXPECT_FALSE(json::parse("  ", &error).isValid());
    EXPECT_EQ(error, "");
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
    const auto camera = [] { return classroom::frame(); };
    const auto drawn = [&](uint code, const QVariantMap &info) {
        return drawing.draw({code, info, "execute", "1"}, camera);
    };
    const auto differs = [](const cv::Mat &picture, int x, int y) {
        return !picture.empty() && cv::norm(picture, classroom::frame(), cv::NORM_INF) > 0 &&
               cv::norm(picture(cv::Rect(x - 3, y - 3, 7, 7)),
                        classroom::frame()(cv::Rect(x - 3, y - 3, 7, 7)), cv::NORM_INF) > 40;
    };
    const QVariantMap anna{{"stuID", "anna"}, {"state", 0},  {"x", 100},
                           {"y", 100},        {"width", 60}, {"height", 60}};
    EXPECT_TRUE(differs(drawn(1013, {{"handupStudents", QVariantList{anna}}}), 160, 130));
    EXPECT_TRUE(differs(drawn(1012, {{"studentStates", QVariantList{anna}}}), 160, 130));
    EXPECT_TRUE(differs(drawn(1014, anna), 160, 130));
    EXPECT_TRUE(differs(drawn(1015, {{"functionGameShowRegion", QVariantList{anna}}}), 160, 130));
    const QVariantMap player{{"stuID", "anna"}, {"bones", QVariantList{QVariantMap{{"x", 400}, {"y", 200}}}}};
    EXPECT_TRUE(differs(drawn(1016, {{"functionGameResult", QVariantList{player}}}), 400, 200));
    EXPECT_TRUE(differs(drawn(1017, {{"studentsAttribute", QVariantList{anna}}}), 160, 130))
        << "last seen there";
    EXPECT_TRUE(differs(drawn(1011, classroom::gallery()), 360, 130));

    // What a service must not send does no harm.
    const int huge = std::numeric_limits<int>::max();
    drawn(1014, {{"stuID", "x"}, {"x", -huge}, {"y", huge}, {"width", huge}, {"height", -5}});
    EXPECT_TRUE(drawn(1011, {{"image", "data:image/jpg;base64,AAAA"}}).empty());
    EXPECT_TRUE(drawn(1018, {}).empty());
}

TEST(AictlPortrait, TakesReadyCropsAsTheyAreAndRefusesTheRest)
{
    const QDir folder(QDir::temp());
    QString error;
    Portrait portrait;
    ASSERT_TRUE(picture::save(folder.filePath("ready.jpg"), classroom::faceFile(), &error));
    ASSERT_TRUE(PortraitMaker().make(folder.filePath("ready.jpg"), &portrait, &error));
    EXPECT_EQ(portrait.jpeg, classroom::faceFile());
    EXPECT_TRUE(portrait.place.isEmpty());

    ASSERT_TRUE(picture::save(folder.filePath("empty.jpg"), classroom::frame(), &error));
    EXPECT_FALSE(PortraitMaker().make(folder.filePath("empty.jpg"), &portrait, &error));
    EXPECT_THAT(error.toStdString(), HasSubstr("no face found"));
    EXPECT_FALSE(PortraitMaker(folder.path()).make(folder.filePath("empty.jpg"), &portrait, &error));
    EXPECT_THAT(error.toStdString(), HasSubstr("--cascades"));
    ASSERT_TRUE(picture::save(folder.filePath("text.jpg"), QByteArray("no picture"), &error));
    EXPECT_FALSE(PortraitMaker().make(folder.filePath("text.jpg"), &portrait, &error));
}

TEST(Aictl, SendsTheDocumentedRequests)
{
    FakeService service(classroom::answer);
    const std::vector<std::tuple<QByteArray, uint, QByteArray>> cases{
        {"init --models faceid,ssd --identify room1 --emotion off", 1001,
         R"({"faceid":true,"ssd":true,"identify":"room1","enableEmotion":false})"},
        {"reset", 1028, "null"},
        {"call 1099 '{\"a\":[1,2.5,null]}'", 1099, R"({"a":[1,2.5,null]})"},
        {"fetch-gallery anna", 1021, R"({"stuID":"anna"})"},
        {"rename anna 'b c'", 1024, R"({"oldStuID":"anna","newStuID":"b c"})"},
        {"delete anna", 1025, R"({"stuID":"anna"})"},
        {"students", 1026, "null"},
        {"external clear", 1027, "null"},
        {"handup start", 1030, "null"},
        {"handup stop", 1031, "null"},
        {"concentration start", 1032, "null"},
        {"concentration stop", 1033, "null"},
        {"track anna --id t1", 1034, R"({"stuID":"anna"})"},
        {"track anna --stop t1", 1035, R"({"stuID":"anna","requestID":"t1"})"},
        {"game start anna ben", 1036, R"({"stuList":[{"stuID":"anna"},{"stuID":"ben"}]})"},
        {"game stop", 1037, "null"},
        {"record start /videos", 1039, R"({"recordPath":"/videos"})"},
        {"record stop", 1040, "null"}};
    QByteArray input;
    for (const auto &one : cases)
        input += std::get<0>(one) + '\n';
    EXPECT_EQ(exitCodeOf(aictl, {"session", "--short"}, input), 0);

    const auto requests = service.requests();
    ASSERT_EQ(requests.size(), int(cases.size()));
    for (int i = 0; i < requests.size(); ++i) {
        const auto &[line, code, data] = cases[size_t(i)];
        QString error;
        EXPECT_EQ(codeOf(requests[i]), code) << line.constData();
        EXPECT_EQ(requests[i]["req_data"].toMap()["data"], json::parse(data, &error)) << line.constData();
        EXPECT_NE(requests[i]["req_id"].toString(), "") << line.constData();
    }
    EXPECT_EQ(requests[12]["req_id"], "t1");
}

TEST(Aictl, ExitCodeAndStandardErrorTellOfRefusalsAndWrongUsage)
{
    FakeService service(
        [](const QVariantMap &) { return QVariantList{FakeService::reply(-15, "aiservice not init")}; });
    Program refused(aictl, {"fetch-gallery"});
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_THAT(refused.errors(), HasSubstr("aictl: fetch-gallery: error -15: aiservice not init"));
    EXPECT_EQ(refused.json(0)["rsp_error"], -15);
    EXPECT_EQ(exitCodeOf(aictl, {"handup", "start"}), 1);
    EXPECT_EQ(exitCodeOf(aictl, {"session", "-e"}, "delete a\nstatus\n"), 1);

    const auto count = service.requests().size();
    for (const auto &wrong : {QStringList{"nonsense"},
                              {},
                              {"--socket"},
                              {"rename", "a"},
                              {"status", "a"},
                              {"status", "--nonsense"},
                              {"call", "x"},
                              {"call", "1001", "{"},
                              {"init", "--models", "x"},
                              {"handup", "halt"},
                              {"watch", "--filter", "x"}})
        EXPECT_EQ(exitCodeOf(aictl, wrong), 2) << qPrintable(wrong.join(' '));
    EXPECT_EQ(service.requests().size(), count);
    EXPECT_EQ(exitCodeOf(aictl, {"track", "--help"}), 0);
    EXPECT_EQ(exitCodeOf(aictl, {"--socket", "nobody", "status"}), 1);
}

TEST(Aictl, SavesAFetchedGalleryAndEnrolsFromIt)
{
    FakeService service(classroom::answer);
    QTemporaryDir home;
    const QDir folder(home.path());
    Program fetch(aictl, {"fetch-gallery", "--save", folder.path()});
    ASSERT_EQ(fetch.exitCode(), 0) << fetch.errors();
    EXPECT_EQ(fetch.json(0)["galleries"].toArray().size(), 2);
    EXPECT_FALSE(fetch.lines()[0].contains("base64"));
    EXPECT_FALSE(picture::load(folder.filePath("annotated.jpg")).empty());
    EXPECT_FALSE(picture::load(folder.filePath("frame.jpg")).empty());
    EXPECT_EQ(QDir(folder.filePath("show")).entryList(QDir::Files), (QStringList{"anna.jpg", "face-1.jpg"}));

    const auto faces = folder.filePath("faces");
    EXPECT_EQ(exitCodeOf(aictl, {"register", faces, faces + "/face-1.jpg=ben"}), 0);
    const auto entries = dataOf(service.requests().last())["galleries"].toList();
    ASSERT_EQ(entries.size(), 3);
    EXPECT_EQ(entries[0].toMap()["stuID"], "anna");
    EXPECT_EQ(entries[2].toMap()["stuID"], "ben");
    EXPECT_EQ(picture::jpegOf(entries[2].toMap()["faceImg"].toString()), classroom::faceFile());
    EXPECT_TRUE(entries[2].toMap().contains("width"));

    Program refused(aictl, {"register", faces + "/anna.jpg=refused"});
    EXPECT_EQ(refused.exitCode(), 1);
    EXPECT_THAT(refused.errors(), HasSubstr("refused was refused"));
    EXPECT_EQ(exitCodeOf(aictl, {"register", folder.filePath("absent")}), 1);

    EXPECT_EQ(exitCodeOf(aictl, {"replace", "anna", faces + "/anna.jpg"}), 0);
    EXPECT_EQ(dataOf(service.requests().last())["oldStuID"], "anna");
    EXPECT_EQ(exitCodeOf(aictl, {"students", "--save", folder.filePath("best")}), 0);
    EXPECT_FALSE(picture::load(folder.filePath("best/anna.jpg")).empty());
}

TEST(Aictl, AnAnalysisStaysUntilCtrlCAndIsThenStopped)
{
    FakeService service(classroom::answer);
    Program handup(aictl, {"handup", "start", "--pretty"});
    ASSERT_TRUE(handup.hasLines(2)) << handup.errors();
    service.send(
        FakeService::event(1013, {{"handupStudents", QVariantList{QVariantMap{{"stuID", "anna"}}}}}));
    service.send(FakeService::event(1022, {{"status", 1}}));
    ASSERT_TRUE(handup.hasLines(3));
    EXPECT_TRUE(handup.lines()[2].contains("hands up: anna"));
    handup.interrupt();
    EXPECT_EQ(handup.exitCode(), 0);
    EXPECT_EQ(codeOf(service.requests().last()), 1031u);
}

TEST(Aictl, ASessionWaitsForEventsAndEndsInOrder)
{
    FakeService service(classroom::answer);
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
    EXPECT_EQ(exitCodeOf(aictl, {"quit"}), 0);
    EXPECT_EQ(exitCodeOf(aictl, {"session"}, "status\nquit\nstatus\n"), 0);
    Program watch(aictl, {"watch"});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.dropClients();
    EXPECT_EQ(watch.exitCode(), 1);
    EXPECT_THAT(watch.errors(), HasSubstr("closed the connection"));
}

TEST(Aictl, WatchFiltersCountsAndDraws)
{
    FakeService service(classroom::answer);
    QTemporaryDir home;
    Program watch(aictl, {"watch", "--filter", "1011,1018", "--count", "2", "--draw", home.path()});
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.send(FakeService::event(1022, {{"status", 1}}));
    service.send(FakeService::event(1011, classroom::gallery(), "x"));
    service.send(FakeService::event(1018, {}, "y"));
    ASSERT_EQ(watch.exitCode(), 0) << watch.errors();
    EXPECT_EQ(watch.json(0)["msg"], 1011);
    EXPECT_EQ(watch.json(0)["event_req_id"], "x");
    EXPECT_EQ(json::toVariant(watch.json(0)["event_info"]).toMap(), classroom::gallery());
    EXPECT_EQ(watch.json(1)["msg"], 1018);
    EXPECT_EQ(QDir(home.path()).entryList(QDir::Files), QStringList{"000001-1011.jpg"});
}

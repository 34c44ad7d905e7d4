#include "serviceserver.h"
#include "eventually.h"
#include "iservice.h"
#include "kqstartservice.h"
#include "testclient.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QSemaphore>
#include <QThreadPool>

#include <sys/resource.h>

#include <memory>
#include <stdexcept>

namespace {

enum Command
{
    echo = 1,
    throwText = 2,
    throwNumber = 3,
    hold = 4,
    sendEvents = 5
};

/// Answers what the tests ask it to.
class ScriptedService : public IService
{
public:
    ScriptedService() : IService("AI", false) {}

    QVariantMap open(const QString &requestID) override
    {
        allUseQueue = true;
        return makeResponse(0, requestID);
    }

    QVariantMap close(const QString &) override { return {{"rsp_error", -15}}; }

    QVariantMap info(unsigned int code, const QVariant &data, const QString &requestID) override
    {
        return makeResponse(0, QVariantMap{{"command_code", code}, {"data", data}, {"id", requestID}},
                            "info");
    }

    QVariantMap execute(unsigned int code, const QVariant &data, const QString &requestID) override
    {
        switch (code) {
        case echo:
            return makeResponse(0, data, requestID);
        case throwText:
            throw std::runtime_error("thrown by a command");
        case throwNumber:
            throw 5;
        case hold:
            waiting.release();
            gate.tryAcquire(1, 20000);
            return makeResponse(0, "waited");
        case sendEvents:
            sendServiceMessage(1011, data, requestID);
            sendServiceMessage(1022, data);
            return makeResponse(0, "");
        default:
            return {{"rsp_error", -10}};
        }
    }

    bool recover() override
    {
        recovered = true;
        listeningAtRecovery = QFile::exists(socketFile());
        return false;
    }

    bool disconnectReset() override
    {
        ++resets;
        return false;
    }

    static QString socketFile() { return qEnvironmentVariable("TMPDIR") + "/AI"; }

    QSemaphore waiting;
    QSemaphore gate;
    std::atomic<int> resets{0};
    bool recovered = false;
    bool listeningAtRecovery = false;
};

QMutex logMutex;
QStringList logLines;

void keepLine(QtMsgType, const QMessageLogContext &, const QString &text)
{
    QMutexLocker lock(&logMutex);
    logLines.append(text);
}

QStringList linesWith(const QString &text)
{
    QMutexLocker lock(&logMutex);
    return logLines.filter(text);
}

class ServiceServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        logLines.clear();
        qInstallMessageHandler(keepLine);
        server = std::make_unique<ServiceServer>("AI", &service, nullptr);
        ASSERT_TRUE(eventually([] { return QFile::exists(ScriptedService::socketFile()); }));
    }

    void TearDown() override
    {
        QThreadPool::globalInstance()->waitForDone(20000);
        server.reset();
        qInstallMessageHandler(nullptr);
    }

    ScriptedService service;
    std::unique_ptr<ServiceServer> server;
};

TEST_F(ServiceServerTest, AnswersEachKindOfRequest)
{
    TestClient client;
    EXPECT_EQ(client.execute(echo, "value", "id 1"), (QVariantMap{{"rsp_error", 0},
                                                                  {"rsp_error_detail", "id 1"},
                                                                  {"rsp_data", "value"},
                                                                  {"rsp_id", "request 1"},
                                                                  {"type", 1}}));
    EXPECT_EQ(client.info(77)["rsp_data"].toMap()["command_code"], 77u);

    const QVariantMap opened = client.open();
    EXPECT_EQ(opened["all_use_queue"], true);
    for (const char *key : {"info_use_queue", "cmd_use_queue"})
        EXPECT_EQ(opened[key], QVariantList()) << key;
    for (const char *key : {"use_share_memory", "forbid_restart"})
        EXPECT_EQ(opened[key], false) << key;

    EXPECT_EQ(client.close(), (QVariantMap{{"rsp_error", -15}, {"rsp_id", "request 4"}, {"type", 1}}));
}

TEST_F(ServiceServerTest, ConvertsAndEchoesWhatAClientMaySend)
{
    TestClient client;
    const QVariantMap unknown{
        {"rsp_error", -10}, {"rsp_data", QVariant()}, {"rsp_id", QVariant()}, {"type", 1}};
    client.send({});
    EXPECT_EQ(client.receive(), unknown);
    client.send({{"req_code", 5}});
    EXPECT_EQ(client.receive(), unknown);

    client.send({{"req_code", "3"},
                 {"req_id2", QVariantList{1, QByteArray("x")}},
                 {"req_data", QVariantMap{{"command_code", "1"}, {"data", 7}}},
                 {"req_deadline", qint64(1)}});
    const QVariantMap answer = client.receive();
    EXPECT_EQ(answer["rsp_data"], 7);
    EXPECT_EQ(answer["rsp_id"], (QVariantList{1, QByteArray("x")}));

    // Without a code the service is asked for code 0.
    EXPECT_EQ(client.request({{"req_code", 3}})["rsp_error"], -10);
    EXPECT_EQ(client.request({{"req_code", 4}, {"req_data", 5}})["rsp_data"].toMap()["command_code"], 0u);
}

TEST_F(ServiceServerTest, ExceptionsBecomeAnErrorWithoutDetail)
{
    TestClient client;
    for (int code : {throwText, throwNumber}) {
        const QVariantMap answer = client.execute(code);
        EXPECT_EQ(answer["rsp_error"], -2);
        EXPECT_FALSE(answer["rsp_data"].isValid());
        EXPECT_FALSE(answer.contains("rsp_error_detail"));
    }
    EXPECT_EQ(client.execute(echo, 1)["rsp_data"], 1);
}

TEST_F(ServiceServerTest, FramesMayArriveTogetherOrInPieces)
{
    TestClient client;
    const QByteArray one = TestClient::frame(makeRequest(Kind::execute, echo, 1));
    const QByteArray two = TestClient::frame(makeRequest(Kind::execute, echo, 2));
    client.sendBytes(one + two);
    QVariantList answers = {client.receive()["rsp_data"], client.receive()["rsp_data"]};
    std::sort(answers.begin(), answers.end(),
              [](const QVariant &a, const QVariant &b) { return a.toInt() < b.toInt(); });
    EXPECT_EQ(answers, (QVariantList{1, 2}));

    // Up to the first length field, then all but the last four bytes with the rest in time: N bytes are there
    // only when the frame is complete but for these, so they travel with the byte before.
    client.sendBytes(one.left(3));
    client.sendBytes(one.mid(3, 6));
    client.sendBytes(one.mid(9, 20));
    client.sendBytes(one.mid(29));
    EXPECT_EQ(client.receive()["rsp_data"], 1);

    const QByteArray large(20000000, 'x');
    EXPECT_EQ(client.execute(echo, large)["rsp_data"].toByteArray().size(), large.size());
}

/// The two lengths of a frame: the first one tells when to read, the second one how much.
TEST_F(ServiceServerTest, LengthsOfAFrameAreTakenAsDocumented)
{
    const QByteArray good = TestClient::frame(makeRequest(Kind::execute, echo, 1));
    const QByteArray behind = good.mid(4);
    {
        // All but the last three bytes are more than N, so the read comes up short.
        TestClient client;
        client.sendBytes(good.left(good.size() - 3));
        EXPECT_EQ(client.receive()["rsp_error"], -10);
        EXPECT_EQ(client.execute(echo, 1)["rsp_data"], 1) << "what arrives later is a new frame";
    }
    for (const char *first : {"00000001", "00000000", "ffffffff", "80000000"}) {
        TestClient client;
        client.sendBytes(QByteArray::fromHex(first) + behind);
        EXPECT_EQ(client.receive()["rsp_data"], 1) << first;
    }
    {
        TestClient client;
        client.sendBytes(QByteArray::fromHex("00000001"
                                             "7fffffff"
                                             "00") +
                         good);
        EXPECT_EQ(client.receive()["rsp_error"], -10) << "the array is longer than all that is there";
        EXPECT_EQ(client.execute(echo, 2)["rsp_data"], 2);
    }
    {
        TestClient client;
        client.sendBytes(QByteArray::fromHex("00000005"
                                             "ffffffff"
                                             "0000000000"));
        EXPECT_EQ(client.receive()["rsp_error"], -10) << "a null array";
    }
    TestClient client;
    client.sendBytes(QByteArray::fromHex("7fffffff"
                                         "7fffffff"
                                         "00"));
    TestClient other;
    EXPECT_EQ(other.execute(echo, 3)["rsp_data"], 3) << "while one waits for two gigabytes";
}

TEST_F(ServiceServerTest, EventsReachEveryClient)
{
    TestClient one;
    TestClient two;
    one.info(0);
    two.info(0);
    EXPECT_EQ(one.execute(sendEvents, "text", "mine")["rsp_error"], 0);
    for (TestClient *client : {&one, &two}) {
        EXPECT_EQ(client->event(1011), (QVariantMap{{"msg", 1011u},
                                                    {"event_info", "text"},
                                                    {"type", 2},
                                                    {"event_type", "execute"},
                                                    {"event_req_id", "mine"}}));
        EXPECT_EQ(client->event(1022), (QVariantMap{{"msg", 1022u},
                                                    {"event_info", "text"},
                                                    {"type", 2},
                                                    {"event_type", "service"},
                                                    {"event_req_id", "0"}}));
    }
}

/// Sockets are often made at the address of one that has just gone.
TEST_F(ServiceServerTest, NothingOfADeadConnectionReachesALaterOne)
{
    const int rounds = 20;
    int ended = 0;
    for (int round = 0; round < rounds; ++round) {
        ++ended;
        {
            TestClient leaving;
            leaving.send(makeRequest(Kind::execute, hold));
            ASSERT_TRUE(service.waiting.tryAcquire(1, 10000));
            leaving.sendBytes(QByteArray::fromHex("00001000"
                                                  "0000")); // and half a frame
        }
        ASSERT_TRUE(eventually([&] { return service.resets == ended; }));
        TestClient next;
        next.info(0);
        service.gate.release();
        EXPECT_EQ(next.execute(sendEvents)["rsp_error"], 0);
        EXPECT_EQ(next.event(1022)["msg"], 1022u);
        EXPECT_EQ(next.others.size(), 1) << "one other event and no response";
        EXPECT_EQ(next.execute(echo, round)["rsp_data"], round);
        next.socket.disconnectFromServer();
        ++ended;
        ASSERT_TRUE(eventually([&] { return service.resets == ended; }));
    }
    EXPECT_EQ(linesWith("failed to disconnectReset").size(), service.resets);
    EXPECT_FALSE(linesWith("ServiceServer::postMessage end: not found socket=").isEmpty());
}

TEST_F(ServiceServerTest, ServesAgainAfterRunningOutOfDescriptors)
{
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    rlimit tight = usual;
    tight.rlim_cur = 100;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    {
        std::vector<std::unique_ptr<TestClient>> clients;
        while (clients.size() < 100) {
            clients.push_back(std::make_unique<TestClient>("AI", 1000));
            if (!clients.back()->isConnected())
                break;
        }
        EXPECT_LT(clients.size(), 100u);
    }
    EXPECT_TRUE(eventually([] { return TestClient("AI", 1000).info(0)["rsp_error"] == 0; }));
    setrlimit(RLIMIT_NOFILE, &usual);
}

TEST_F(ServiceServerTest, ASecondServerLeavesTheNameToTheFirst)
{
    ScriptedService idle;
    ServiceServer second("AI", &idle, nullptr);
    ASSERT_TRUE(eventually([&] { return service.resets == 1; })) << "the first one sees a short connection";
    EXPECT_TRUE(eventually([&] { return linesWith("ServiceServer::start end").size() == 2; }));
    EXPECT_EQ(linesWith("service<AI>").join("").toUtf8().toHex(),
              QByteArray("ServiceServer::start end: service<AI> ").toHex() +
                  "e5aeb8e88cace7b2a1e98da6e384a8e7b98de7909b3f");
    TestClient client;
    EXPECT_EQ(client.execute(echo, 1)["rsp_data"], 1);
}

TEST_F(ServiceServerTest, LongIdentifiersAreCutInTheLog)
{
    TestClient client;
    const QString id(100000, 'i');
    EXPECT_EQ(client.execute(echo, 1, id)["rsp_error_detail"], id);
    EXPECT_TRUE(linesWith(QString(1000, 'i')).isEmpty());
    EXPECT_EQ(linesWith(": data=type: 3. cmdCode: 1. requestID: iii").size(), 1);
}

TEST(ServiceStart, RecoversBeforeItListens)
{
    for (const char *option : {"", "-r", "--recovery"}) {
        ScriptedService service;
        char *arguments[] = {const_cast<char *>("program"), const_cast<char *>(option), nullptr};
        std::unique_ptr<ServiceServer> server(KQStartService("AI", &service, 2, arguments));
        ASSERT_TRUE(eventually([] { return QFile::exists(ScriptedService::socketFile()); }));
        EXPECT_EQ(TestClient().info(1)["rsp_error"], 0);
        EXPECT_EQ(service.recovered, *option != 0);
        EXPECT_FALSE(service.listeningAtRecovery);
    }
}

TEST(ServiceStart, SaysWhyItCannotListen)
{
    logLines.clear();
    qInstallMessageHandler(keepLine);
    ScriptedService service;
    {
        ServiceServer server("/no folder here/AI", &service, nullptr);
        EXPECT_TRUE(eventually([] { return !linesWith("ServiceServer::initSlot end").isEmpty(); }));
    }
    qInstallMessageHandler(nullptr);
    EXPECT_EQ(linesWith("ServiceServer::start end").join("").toUtf8().toHex(),
              QByteArray("ServiceServer::start end: service</no folder here/AI> ").toHex() +
                  "e98d9aee889ae5a7a9e990a9e6889de68389e6beb6e8beabe8a7a62e");
}

} // namespace

#include "counters.h"
#include "eventually.h"
#include "imageblock.h"
#include "iservice.h"
#include "logcapture.h"
#include "serviceserver.h"
#include "testclient.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QSemaphore>
#include <QSharedMemory>
#include <QUrl>

#include <future>
#include <memory>
#include <sys/resource.h>
#include <thread>

namespace {

enum Command
{
    echo = 1,
    fail,
    hold,
    sendEvents
};

/// Answers what the tests ask it to.
class ScriptedService : public IService
{
public:
    explicit ScriptedService(const QString &name = "AI", bool withShareMemory = false)
        : IService(name, withShareMemory)
    {
    }

    QVariantMap open(const QString &) override { return {}; }
    QVariantMap close(const QString &) override { return {}; }
    QVariantMap info(unsigned int code, const QVariant &, const QString &requestID) override
    {
        return makeResponse(ai::Error::None, QVariant(code), requestID);
    }

    QVariantMap execute(unsigned int code, const QVariant &data, const QString &requestID) override
    {
        switch (code) {
        case echo:
            return makeResponse(ai::Error::None, data, requestID);
        case fail:
            throw 5;
        case hold:
            waiting.release();
            gate.acquire();
            return makeResponse(ai::Error::None, "waited");
        case sendEvents:
            sendServiceMessage(1011, data, requestID);
            sendServiceMessage(1022, data);
            return makeResponse(ai::Error::None, "");
        default:
            return {{"rsp_error", -10}};
        }
    }

    bool disconnectReset() override
    {
        ++resets;
        return false;
    }

    bool knowsDeadlines()
    {
        QMutexLocker lock(&deadlineMutex);
        return !requestDeadlines.isEmpty();
    }

    QSemaphore waiting;
    QSemaphore gate;
    std::atomic<int> resets{0};
};

class ServiceServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        server = std::make_unique<ServiceServer>("AI", &service, nullptr);
        ASSERT_TRUE(eventually([] { return QFile::exists(qEnvironmentVariable("TMPDIR") + "/AI"); }));
    }

    void TearDown() override
    {
        service.gate.release(1000); // whoever is still held
        server.reset();
    }

    LogCapture log;
    ScriptedService service;
    std::unique_ptr<ServiceServer> server;
};

TEST_F(ServiceServerTest, AnswersWhatAClientMaySend)
{
    TestClient client;
    const std::pair<QVariantMap, int> failures[] = {
        {{}, -10}, {{{"req_code", 5}}, -10}, {makeRequest(ai::Kind::Execute, fail), -2}};
    for (const auto &[request, error] : failures) {
        client.send(request);
        EXPECT_EQ(client.receive(),
                  (QVariantMap{
                      {"rsp_error", error}, {"rsp_data", QVariant()}, {"rsp_id", QVariant()}, {"type", 1}}));
    }
    client.send({{"req_code", "3"},
                 {"req_id2", QVariantList{1, QByteArray("x")}},
                 {"req_data", QVariantMap{{"command_code", "1"}, {"data", 7}}},
                 {"req_deadline", qint64(1)}});
    const QVariantMap answer = client.receive();
    EXPECT_EQ(answer["rsp_data"], 7);
    EXPECT_EQ(answer["rsp_id"], (QVariantList{1, QByteArray("x")}));

    // Without a code the service is asked for code 0.
    EXPECT_EQ(client.request({{"req_code", 3}})["rsp_error"], -10);
    EXPECT_EQ(client.request({{"req_code", 4}, {"req_data", 5}})["rsp_data"], 0u);
}

TEST_F(ServiceServerTest, WhatDoesNotParseIsAnsweredAndLoggedOnce)
{
    TestClient client;
    client.send({{"req_code", 3}, {"req_id2", QUrl("a:b")}});
    EXPECT_EQ(
        client.receive(),
        (QVariantMap{{"rsp_error", -10}, {"rsp_data", QVariant()}, {"rsp_id", QVariant()}, {"type", 1}}));
    EXPECT_EQ(log.takeLines().filter("request does not parse: type 17 (QUrl) is not taken").size(), 1);
    client.request({{"req_code", 3}});
    EXPECT_EQ(log.takeLines().filter("does not parse").size(), 0);
}

TEST_F(ServiceServerTest, FramesMayArriveTogetherOrInPieces)
{
    TestClient client;
    const QByteArray one = TestClient::frame(makeRequest(ai::Kind::Execute, echo, 1));
    client.sendBytes(one.repeated(100));
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(client.receive()["rsp_data"], 1);
    client.send(makeRequest(ai::Kind::Execute, hold));
    for (int i = 0; i < 100; ++i) {
        if (i % 5 == 0)
            client.sendBytes(one.repeated(5));
        ASSERT_EQ(client.receive()["rsp_data"], 1) << "while another request takes its time";
    }
    service.gate.release();
    EXPECT_EQ(client.receive()["rsp_data"], QVariant());

    // The last piece is larger than four bytes: the reading starts when all but four are there.
    for (const QByteArray &piece : {one.left(3), one.mid(3, 6), one.mid(9, 20), one.mid(29)})
        client.sendBytes(piece);
    EXPECT_EQ(client.receive()["rsp_data"], 1);

    const QByteArray large(20000000, 'x');
    EXPECT_EQ(client.execute(echo, large)["rsp_data"].toByteArray().size(), large.size());
}

TEST_F(ServiceServerTest, CountsWhatPassesAndKeepsNothingOfIt)
{
    counters::Traffic &traffic = counters::page().traffic;
    auto &requests = counters::page().requests;
    const std::pair<int, unsigned> asked[] = {{3, echo}, {3, fail}, {4, 5}, {1, 0}};
    for (const auto &[kind, code] : asked)
        counters::add(requests, counters::requestKey(kind, code), "request");
    counters::add(counters::page().events, 1011, "event");
    // Servers that ended before may have left connections behind.
    const auto now = [&] {
        return std::array{traffic.connections.value(),     traffic.connectionsEver.value(),
                          traffic.sentMessages.value(),    traffic.sentBytes.value(),
                          traffic.waitingMessages.value(), traffic.waitingBytes.value()};
    };
    auto expected = now();
    {
        TestClient client;
        client.inspect = [&](const QVariantMap &, const QVariantMap &message) {
            ++expected[2];
            expected[3] += wire::encodePayload(message).size();
        };
        for (const int command : {int(echo), int(fail), int(fail), int(sendEvents)})
            client.execute(command, "text");
        client.info(5);
        client.open();
        client.event(1022);
        ++expected[0], ++expected[1];
        EXPECT_TRUE(eventually([&] { return now() == expected; }));
    }
    --expected[0];
    EXPECT_TRUE(eventually([&] { return now() == expected; }));
    QStringList counted;
    for (const auto &[kind, code] : asked) {
        const counters::RequestRow &row = counters::find(requests, counters::requestKey(kind, code));
        counted += QString("%1/%2").arg(row.failed.value()).arg(row.requests.value());
        EXPECT_GT(row.longest.value(), 0);
    }
    EXPECT_EQ(counted.join(' '), "0/1 2/2 0/1 0/1");
    const counters::EventRow &event = counters::find(counters::page().events, 1011);
    EXPECT_EQ(event.events.value(), 1);
    EXPECT_GT(event.newest.value(), 0);
    EXPECT_TRUE(eventually([&] { return traffic.requestsUnderWay.value() == 0; }));
    EXPECT_FALSE(service.knowsDeadlines());
    EXPECT_FALSE(QFile::permissions(qEnvironmentVariable("TMPDIR") + "/AI") & QFile::Permissions(0x0077));
}

TEST_F(ServiceServerTest, ItsEndWaitsForTheCommandThatRuns)
{
    TestClient client;
    client.send(makeRequest(ai::Kind::Execute, hold));
    service.waiting.acquire();
    std::atomic<bool> ended{false};
    const auto release = std::async(std::launch::async, [&] {
        // Time enough for an end that does not wait; no time is too long for one that does.
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_FALSE(ended);
        service.gate.release();
    });
    server.reset();
    ended = true;
}

TEST(Service, WritesIntoASegmentOfItsOwn)
{
    ScriptedService service("Frames", true);
    QSharedMemory segment("Frames");
    ASSERT_TRUE(segment.attach(QSharedMemory::ReadOnly));
    EXPECT_EQ(segment.size(), 124 + 3 * (136 + 1920 * 1080 * 4));
    ImageBlock ib;
    char pixel = 0;
    ib.data = &pixel;
    ib.size = 1;
    service.sendImageBlock(ib);
    EXPECT_TRUE(eventually([&] { return static_cast<const ShmHeader *>(segment.constData())->used == 1; }));
}

/// The two lengths of a frame: the first one tells when to read, the second one how much.
TEST_F(ServiceServerTest, LengthsOfAFrameAreTakenAsDocumented)
{
    const auto hex = [](const char *text) { return QByteArray::fromHex(text); };
    const QByteArray good = TestClient::frame(makeRequest(ai::Kind::Execute, echo, 1));
    // All but the last three bytes are more than N, so the read comes up short; an array longer than all that
    // is there; a null array.
    for (const QByteArray &bytes : {good.left(good.size() - 3), hex("00000001 7fffffff 00") + good,
                                    hex("00000005 ffffffff 0000000000")}) {
        TestClient client;
        client.sendBytes(bytes);
        EXPECT_EQ(client.receive()["rsp_error"], -10) << bytes.toHex().constData();
        EXPECT_EQ(client.execute(echo, 1)["rsp_data"], 1) << "what arrives later is a new frame";
    }
    for (const char *first : {"00000001", "00000000", "ffffffff", "80000000"}) {
        TestClient client;
        client.sendBytes(hex(first) + good.mid(4));
        EXPECT_EQ(client.receive()["rsp_data"], 1) << first;
    }
    TestClient client;
    client.sendBytes(hex("7fffffff 7fffffff 00"));
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
    const auto event = [](uint code, const char *type, const char *id) {
        return QVariantMap{
            {"msg", code}, {"event_info", "text"}, {"type", 2}, {"event_type", type}, {"event_req_id", id}};
    };
    for (TestClient *client : {&one, &two}) {
        EXPECT_EQ(client->event(1011), event(1011, "execute", "mine"));
        EXPECT_EQ(client->event(1022), event(1022, "service", "0"));
    }
    server.reset();
    EXPECT_TRUE(one.waitForEnd());
    EXPECT_TRUE(two.waitForEnd());
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
            leaving.send(makeRequest(ai::Kind::Execute, hold));
            service.waiting.acquire();
            leaving.sendBytes(QByteArray::fromHex("000010000000")); // and half a frame
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
    const QStringList lines = log.takeLines();
    EXPECT_EQ(lines.filter("failed to disconnectReset").size(), service.resets);
    EXPECT_FALSE(lines.filter("ServiceServer::postMessage end: not found socket=").isEmpty());
}

#ifndef __SANITIZE_ADDRESS__ // with it comes UBSan, which needs a descriptor to look at an object
TEST_F(ServiceServerTest, ServesAgainAfterRunningOutOfDescriptors)
{
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    rlimit tight = usual;
    tight.rlim_cur = 100;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
    {
        std::vector<std::unique_ptr<TestClient>> clients;
        do
            clients.push_back(std::make_unique<TestClient>("AI"));
        while (clients.back()->isConnected() && clients.size() < 100);
        EXPECT_LT(clients.size(), 100u);
    }
    EXPECT_TRUE(eventually([] { return TestClient("AI").info(0)["rsp_error"] == 0; }));
    setrlimit(RLIMIT_NOFILE, &usual);
}
#endif

} // namespace

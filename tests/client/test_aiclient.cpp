#include "aiclient.h"
#include "eventually.h"
#include "fakeservice.h"
#include "wire.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QFile>

using testing::Each;
using testing::HasSubstr;

namespace {

QVariantList answerWithCode(const QVariantMap &request)
{
    const auto code = request["req_data"].toMap()["command_code"].toUInt();
    return {FakeService::reply(0, {}, QVariantMap{{"command_code", code}})};
}

uint codeOf(const AiReply &reply)
{
    return reply.data.toMap()["command_code"].toUInt();
}

} // namespace

TEST(AiClient, EachAnswerFindsItsCallbackWhenTheyComeInAnotherOrder)
{
    constexpr uint count = 200;
    QVariantList held; // only touched by the service's thread
    FakeService service([&held](const QVariantMap &request) -> QVariantList {
        auto message = answerWithCode(request).first().toMap();
        message["rsp_id"] = request["req_id2"];
        held.prepend(message);
        held.prepend(FakeService::event(1013, {}, request["req_id"].toString()));
        return uint(held.size()) == 2 * count ? held : QVariantList();
    });
    AiClient client;
    ASSERT_TRUE(client.connectToService());
    std::vector<uint> answers(count);
    QStringList events;
    QObject::connect(&client, &AiClient::eventReceived,
                     [&events](const AiEvent &event) { events.append(event.requestID); });
    for (uint i = 0; i < count; ++i)
        client.request(AiClient::Execute, i, {}, QString::number(i),
                       [&answers, i](const AiReply &reply) { answers[i] = codeOf(reply); });
    ASSERT_TRUE(eventually([&] { return client.pendingRequests() == 0; }));
    for (uint i = 0; i < count; ++i)
        EXPECT_EQ(answers[i], i);
    EXPECT_EQ(events.size(), int(count));
    EXPECT_EQ(events.first(), QString::number(count - 1));
}

TEST(AiClient, TakesFramesThatArriveInPieces)
{
    FakeService service(answerWithCode);
    AiClient client;
    ASSERT_TRUE(client.connectToService());
    std::vector<uint> codes;
    QObject::connect(&client, &AiClient::eventReceived,
                     [&codes](const AiEvent &event) { codes.push_back(event.code); });
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    for (const auto byte : wire::encodeFrame(FakeService::event(1022, {{"status", 1}})).repeated(2)) {
        service.sendBytes(QByteArray(1, byte));
        client.waitForMessages(1000);
    }
    ASSERT_TRUE(eventually([&] { return codes.size() == 2; }));
    EXPECT_THAT(codes, Each(1022));
}

TEST(AiClient, ARequestTimesOutAndItsLateAnswerIsDropped)
{
    bool isFirst = true;
    QVariant lateID;
    FakeService service([&](const QVariantMap &request) -> QVariantList {
        if (std::exchange(isFirst, false)) {
            lateID = request["req_id2"];
            return {};
        }
        auto late = FakeService::reply(-2, "too late");
        late["rsp_id"] = lateID;
        return {late, answerWithCode(request).first()};
    });
    AiClient client;
    ASSERT_TRUE(client.connectToService());
    const auto reply = client.call(AiClient::Execute, 1021, {}, {}, 30);
    EXPECT_EQ(reply.outcome, AiReply::TimedOut);
    EXPECT_FALSE(reply.ok());
    EXPECT_FALSE(reply.errorText().isEmpty());
    EXPECT_EQ(codeOf(client.call(AiClient::Execute, 1026)), 1026u);
}

TEST(AiClient, ALostConnectionEndsTheRequestsOnWayAndANewOneCanBeMade)
{
    FakeService service([](const QVariantMap &request) {
        return request["req_code"] == AiClient::Open ? QVariantList() : answerWithCode(request);
    });
    AiClient client;
    ASSERT_TRUE(client.connectToService());
    int lost = 0;
    int told = 0;
    QObject::connect(&client, &AiClient::disconnected, [&told] { ++told; });
    for (int i = 0; i < 3; ++i)
        client.request(AiClient::Open, 0, {}, {},
                       [&lost](const AiReply &reply) { lost += reply.outcome == AiReply::Disconnected; });
    ASSERT_TRUE(eventually([&] { return service.requests().size() == 3; }));
    service.dropClients();
    ASSERT_TRUE(eventually([&] { return told == 1; }));
    EXPECT_EQ(lost, 3);
    EXPECT_FALSE(client.isConnected());

    EXPECT_EQ(client.call(AiClient::Info, 1001).outcome, AiReply::Disconnected);
    ASSERT_TRUE(client.connectToService());
    EXPECT_EQ(codeOf(client.call(AiClient::Info, 1001)), 1001u);
    client.disconnectFromService();
    EXPECT_EQ(told, 2);
}

class AiClientGarbage : public testing::TestWithParam<const char *>
{
};

TEST_P(AiClientGarbage, EndsTheConnectionWithAReason)
{
    FakeService service(answerWithCode);
    AiClient client;
    ASSERT_TRUE(client.connectToService());
    QString reason;
    QObject::connect(&client, &AiClient::disconnected, [&reason](const QString &text) { reason = text; });
    ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    service.sendBytes(QByteArray::fromHex(GetParam()));
    ASSERT_TRUE(eventually([&] { return !reason.isEmpty(); }));
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(client.errorString(), reason);
    EXPECT_THAT(reason.toStdString(), HasSubstr("frame"));
}

INSTANTIATE_TEST_SUITE_P(Frames, AiClientGarbage,
                         testing::Values("ffffffffffffffff", "0000000900000008", // lengths
                                         "00000009000000090000000200000000ff",   // an int, not a map
                                         "000000090000000900000008007fffffff",   // a count without entries
                                         "0000000000000000"));

TEST(AiClient, TellsWhyItCannotConnect)
{
    AiClient client;
    EXPECT_FALSE(client.connectToService("nobody"));
    EXPECT_THAT(client.errorString().toStdString(),
                HasSubstr("no service at " + QDir::tempPath().toStdString()));

    // A service that was killed leaves its socket behind.
    const auto path = QDir::temp().filePath("dead");
    {
        QLocalServer server;
        ASSERT_TRUE(server.listen("live"));
        ASSERT_TRUE(QFile::rename(QDir::temp().filePath("live"), path));
    }
    EXPECT_FALSE(client.connectToService(path));
    EXPECT_THAT(client.errorString().toStdString(), HasSubstr("has ended without removing"));
    EXPECT_EQ(client.call(AiClient::Open).outcome, AiReply::Disconnected);
}

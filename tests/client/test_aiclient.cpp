#include "aiclient.h"
#include "eventually.h"
#include "fakeservice.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QDir>

#include <memory>

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

/// A client that is connected, and what it tells.
class AiClientTest : public testing::Test
{
protected:
    void SetUp() override
    {
        service.setAnswer(answerWithCode);
        QObject::connect(&client, &AiClient::eventReceived,
                         [this](const AiEvent &event) { events.append(event); });
        QObject::connect(&client, &AiClient::disconnected,
                         [this](const QString &reason) { ends.append(reason); });
        ASSERT_TRUE(client.connectToService());
        ASSERT_TRUE(eventually([this] { return service.clientCount() == 1; }));
    }

    FakeService service;
    AiClient client;
    QList<AiEvent> events;
    QStringList ends;
};

} // namespace

TEST_F(AiClientTest, EachAnswerFindsItsCallbackWhenTheyComeInAnotherOrder)
{
    constexpr uint count = 200;
    service.setAnswer([held = QVariantList()](const QVariantMap &request) mutable {
        auto message = answerWithCode(request).first().toMap();
        message["rsp_id"] = request["req_id2"];
        held.prepend(message);
        held.prepend(FakeService::event(1013, {}, request["req_id"].toString()));
        return uint(held.size()) == 2 * count ? held : QVariantList();
    });
    uint matching = 0;
    for (uint i = 0; i < count; ++i)
        client.request(AiClient::Execute, i, {}, QString::number(i),
                       [&matching, i](const AiReply &reply) { matching += codeOf(reply) == i; });
    ASSERT_TRUE(eventually([&] { return client.pendingRequests() == 0; }));
    EXPECT_EQ(matching, count);
    EXPECT_EQ(events.size(), int(count));
    EXPECT_EQ(events.value(0).requestID, QString::number(count - 1));
}

TEST_F(AiClientTest, TakesFramesThatArriveInPieces)
{
    for (const auto byte : wire::encodeFrame(FakeService::event(1022, {{"status", 1}})).repeated(2)) {
        service.sendBytes(QByteArray(1, byte));
        client.waitForMessages(1000);
    }
    ASSERT_TRUE(eventually([&] { return events.size() == 2; }));
    for (const auto &event : events)
        EXPECT_EQ(event.code, 1022u);
}

TEST_F(AiClientTest, ARequestTimesOutAndItsLateAnswerIsDropped)
{
    service.setAnswer([held = QVariantList()](const QVariantMap &request) mutable -> QVariantList {
        auto late = FakeService::reply(-2, "late");
        late["rsp_id"] = request["req_id2"];
        held.append(late);
        return held.size() <= 2 ? QVariantList() : held.mid(0, 2) + answerWithCode(request);
    });
    QList<int> patient;
    client.request(
        AiClient::Execute, 1022, {}, {}, [&](const AiReply &late) { patient.append(late.error); }, 0);
    const auto reply = client.call(AiClient::Execute, 1021, {}, {}, 30);
    EXPECT_EQ(patient, QList<int>()) << "0 is no time-out";
    EXPECT_EQ(reply.outcome, AiReply::TimedOut);
    EXPECT_FALSE(reply.errorText().isEmpty());
    EXPECT_EQ(codeOf(client.call(AiClient::Execute, 1026)), 1026u);
    EXPECT_EQ(patient, QList<int>{-2});
}

TEST_F(AiClientTest, ALostConnectionEndsTheRequestsOnWayAndANewOneCanBeMade)
{
    service.setAnswer([](const QVariantMap &request) {
        return request["req_code"] == AiClient::Open ? QVariantList() : answerWithCode(request);
    });
    int lost = 0;
    for (int i = 0; i < 3; ++i)
        client.request(AiClient::Open, 0, {}, {},
                       [&lost](const AiReply &reply) { lost += reply.outcome == AiReply::Disconnected; });
    ASSERT_TRUE(eventually([&] { return service.requests().size() == 3; }));
    service.dropClients();
    ASSERT_TRUE(eventually([&] { return ends.size() == 1; }));
    EXPECT_EQ(lost, 3);
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ(client.serviceProcessId(), 0);

    EXPECT_EQ(client.call(AiClient::Info, 1001).outcome, AiReply::Disconnected);
    EXPECT_FALSE(client.connectToService("nobody"));
    EXPECT_THAT(client.errorString().toStdString(),
                HasSubstr("no service at " + QDir::tempPath().toStdString()));
    ASSERT_TRUE(client.connectToService());
    EXPECT_EQ(client.errorString(), "");
    EXPECT_EQ(client.serviceProcessId(), QCoreApplication::applicationPid());
    EXPECT_EQ(codeOf(client.call(AiClient::Info, 1001)), 1001u);
    client.request(AiClient::Info, 1002, {}, {}, {});
    ASSERT_TRUE(client.connectToService());
    EXPECT_EQ(ends.size(), 2) << "the former connection has ended";
    EXPECT_TRUE(eventually([&] { return service.requests().size() == 5; })) << "and nothing was lost with it";
    EXPECT_EQ(codeOf(client.call(AiClient::Info, 1003)), 1003u);
}

TEST_F(AiClientTest, ItsDeletionCallsNobodyBack)
{
    EXPECT_NE(QMetaType::type("AiEvent"), int(QMetaType::UnknownType)) << "events may be queued";
    auto deleted = std::make_unique<AiClient>();
    ASSERT_TRUE(deleted->connectToService());
    deleted->request(AiClient::Open, 0, {}, {}, [](const AiReply &) { ADD_FAILURE(); });
    deleted.reset();
    EXPECT_TRUE(eventually([this] { return service.clientCount() == 1; }));
}

TEST_F(AiClientTest, ARequestOfACallbackThatConnectsAnewTimesOutToo)
{
    service.setAnswer([](const QVariantMap &) { return QVariantList(); });
    QList<AiReply::Outcome> outcomes;
    client.request(AiClient::Open, 0, {}, {}, [&](const AiReply &first) {
        outcomes.append(first.outcome);
        EXPECT_TRUE(client.connectToService());
        client.request(
            AiClient::Info, 1001, {}, {}, [&](const AiReply &second) { outcomes.append(second.outcome); },
            30);
    });
    service.dropClients();
    EXPECT_TRUE(eventually([&] { return outcomes.size() == 2; }));
    EXPECT_EQ(outcomes.value(0), AiReply::Disconnected);
    EXPECT_EQ(outcomes.value(1), AiReply::TimedOut);
}

TEST_F(AiClientTest, GarbageEndsTheConnectionWithAReason)
{
    // Of the service's answer to a request that it could not read, nobody can tell which that was.
    const auto toNobody = wire::encodeFrame(QVariantMap{{"type", 1}, {"rsp_error", -10}}).toHex();
    const std::pair<QByteArray, const char *> reasons[] = {
        {"ffffffffffffffff", "something that is not a frame"},
        {"0000000900000008", "something that is not a frame"},
        {"0000000800000009", "something that is not a frame"},
        {"0000000000000000", "a frame without a map: a value is cut off"},
        {"00000009000000090000000200000000ff", "a frame without a map: another value"},
        {"000000090000000900000008007fffffff", "a frame without a map: count 2147483647 goes beyond"},
        {toNobody, "damaged"}};
    for (const auto &[garbage, reason] : reasons) {
        ends.clear();
        service.sendBytes(QByteArray::fromHex(garbage));
        ASSERT_TRUE(eventually([&] { return ends.size() == 1; })) << reason;
        EXPECT_FALSE(client.isConnected());
        EXPECT_EQ(client.errorString(), ends[0]);
        EXPECT_THAT(ends[0].toStdString(), HasSubstr(reason));
        ASSERT_TRUE(eventually([&] { return service.clientCount() == 0; }));
        ASSERT_TRUE(client.connectToService());
        ASSERT_TRUE(eventually([&] { return service.clientCount() == 1; }));
    }
}

TEST(AiReply, TellsWhatStoodInTheWayAndWhatACodeMeans)
{
    // As the service words it, see detectioncommands.cpp and AIService::execute.
    const std::pair<const char *, AiReply::Refusal> details[] = {
        {"aiservice not open", AiReply::NotOpen},
        {"aiservice not init", AiReply::NotInitialised},
        {"handup already start", AiReply::AlreadyStarted},
        {"video record not start", AiReply::NotStarted},
        {"", AiReply::OtherState}};
    for (const auto &[detail, refusal] : details) {
        AiReply reply;
        reply.detail = detail;
        EXPECT_EQ(reply.refusal(), refusal) << detail;
    }
    EXPECT_EQ(AiReply::meaningOf(-9), "no camera");
    EXPECT_EQ(AiReply::meaningOf(-99), "an error that this client doesn't know");
}

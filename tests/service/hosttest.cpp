#include "eventually.h"
#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QtEndian>

#include <memory>
#include <vector>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr int status = 1001;

class HostTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(service.start()); }

    /// The service lives and serves a new client.
    ::testing::AssertionResult alive()
    {
        TestClient client(service.socketPath());
        const QVariantMap answer = client.info(status);
        if (service.isRunning() && answer["rsp_error"] == 0)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << service.standardError().constData();
    }

    ServiceProcess service;
};

TEST_F(HostTest, AFreshServiceTellsItsState)
{
    TestClient client(service.socketPath());
    EXPECT_EQ(
        client.info(status),
        (QVariantMap{{"rsp_error", 0},
                     {"rsp_error_detail", ""},
                     {"rsp_data", QVariantMap{{"command_code", 1001u}, {"status", 0}, {"version", "0.8"}}},
                     {"rsp_id", "request 1"},
                     {"type", 1}}));
    EXPECT_EQ(client.info(1002)["rsp_error"], -10);
    EXPECT_EQ(client.info(1002)["rsp_data"], (QVariantMap{{"command_code", 1002u}}));
    EXPECT_EQ(service.standardError(), "");
}

/// The states closed and open, by what they let pass.
TEST_F(HostTest, CommandsPassByTheStateOfTheService)
{
    TestClient client(service.socketPath());
    const auto refused = [&](int code, const QString &detail) {
        const QVariantMap answer = client.execute(code);
        return answer["rsp_error"] == -15 && answer["rsp_error_detail"] == detail &&
               !answer["rsp_data"].isValid();
    };
    EXPECT_EQ(client.close()["rsp_error_detail"], "aiservice not open");
    for (int code : {1001, 1028})
        EXPECT_TRUE(refused(code, "aiservice not open")) << code;
    for (int code : {0, -1, 1020, 1029, 1030, 1040, 5000})
        EXPECT_TRUE(refused(code, "aiservice not init")) << code;

    for (const char *detail : {"", "aiservice already open"}) {
        const QVariantMap opened = client.open();
        EXPECT_EQ(opened["rsp_error"], 0);
        EXPECT_EQ(opened["rsp_error_detail"].toString(), detail);
        EXPECT_EQ(opened["all_use_queue"], true);
        EXPECT_EQ(opened["info_use_queue"], QVariantList());
        EXPECT_EQ(opened["cmd_use_queue"], QVariantList());
        EXPECT_EQ(opened["use_share_memory"], false);
        EXPECT_EQ(opened["forbid_restart"], false);
    }
    EXPECT_EQ(client.info(status)["rsp_data"].toMap()["status"], 1);
    for (int code : {0, 1020, 1029, 1030, 1040, 5000})
        EXPECT_TRUE(refused(code, "aiservice not init")) << code;
    EXPECT_EQ(client.execute(1028)["rsp_error"], 0);
}

TEST_F(HostTest, SelfKillEndsTheProcessWithCode0)
{
    TestClient client(service.socketPath());
    client.send(makeRequest(Kind::close, 0, {}, "self-kill")); // refused, as nothing is open, and obeyed
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_THAT(service.log().toStdString(), HasSubstr("force quit self-kill"));

    // The next one finds the old socket file, or none.
    ASSERT_TRUE(service.start());
    EXPECT_TRUE(alive());
    service.crash();
    EXPECT_TRUE(QFile::exists(service.socketPath()));
    ASSERT_TRUE(service.start());
    EXPECT_TRUE(alive());
}

TEST_F(HostTest, ASecondInstanceStaysUpWithoutListening)
{
    TestClient client(service.socketPath());
    ASSERT_EQ(client.info(status)["rsp_error"], 0);

    ServiceProcess second;
    second.setEnvironment("TMPDIR", service.home());
    ASSERT_TRUE(second.launch({}));
    EXPECT_TRUE(second.waitForOutput("\u5bb8\u832c\u7ca1\u9366\u3128\u7e4d"));
    EXPECT_TRUE(second.waitForOutput("ServiceServer::initSlot end"));
    EXPECT_TRUE(second.isRunning());
    EXPECT_EQ(client.info(status)["rsp_error"], 0);
}

TEST(ServiceProgram, CommandLinesThatStartNothing)
{
    struct Case
    {
        QStringList arguments;
        int code;
        const char *errorText;
    };
    const std::vector<Case> cases = {{{"--help"}, 0, "usage: "},
                                     {{"-?"}, 0, "usage: "},
                                     {{"--bogus"}, 1, "undefined option: --bogus\nusage: "},
                                     {{"-x"}, 1, "undefined short option: -x\nusage: "}};
    for (const Case &line : cases) {
        ServiceProcess service;
        ASSERT_TRUE(service.launch(line.arguments));
        ASSERT_TRUE(service.waitForExit());
        EXPECT_EQ(service.exitCode(), line.code);
        EXPECT_THAT(service.standardError().toStdString(), StartsWith(line.errorText));
        EXPECT_FALSE(QFile::exists(service.socketPath()));
        const std::string log = service.log().toStdString();
        EXPECT_THAT(log, HasSubstr("AIService Start,version: 0.8"));
        EXPECT_THAT(log, HasSubstr("KQStartService begin"));
    }
}

TEST(ServiceProgram, RecoversWhenAsked)
{
    for (const char *option : {"-r", "--recovery"}) {
        ServiceProcess service;
        ASSERT_TRUE(service.start({option, "stray"}));
        EXPECT_TRUE(service.waitForOutput("start to listen >>AI"));
        EXPECT_TRUE(service.waitForOutput("AI is recovered"));
        EXPECT_LT(service.standardOutput().indexOf("AI is recovered"),
                  service.standardOutput().indexOf("start to listen >>AI"));
    }
}

TEST_F(HostTest, OnlyTheSameUserMayConnect)
{
    const QFile::Permissions others =
        QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    EXPECT_FALSE(QFileInfo(service.socketPath()).permissions() & others);
}

/// Every bit of a valid frame may be wrong, and all of a frame may be anything.
TEST_F(HostTest, LivesThroughBytesThatAreNoFrames)
{
    QRandomGenerator random(20231);
    const QByteArray good =
        TestClient::frame(makeRequest(Kind::info, status, QVariantMap{{"a", QVariantList{1, "b"}}}));
    for (int round = 0; round < 300; ++round) {
        TestClient client(service.socketPath());
        QByteArray bytes = good;
        if (round % 3 == 0) {
            bytes.resize(random.bounded(1, 5000));
            for (char &byte : bytes)
                byte = static_cast<char>(random.generate());
        } else if (round % 3 == 1) {
            bytes[random.bounded(bytes.size())] = static_cast<char>(random.generate());
        } else {
            bytes.truncate(random.bounded(bytes.size()));
        }
        client.sendBytes(bytes + good);
    }
    EXPECT_TRUE(alive());
}

TEST_F(HostTest, LivesThroughNestedBombsAndClaimedLengths)
{
    const auto frame = [](const QByteArray &payload) {
        QByteArray length(4, '\0');
        qToBigEndian<qint32>(payload.size(), length.data());
        return length + length + payload;
    };
    const auto hex = [](const char *text) { return QByteArray::fromHex(text); };
    TestClient client(service.socketPath());
    ASSERT_EQ(client.info(status)["rsp_error"], 0);
    const qint64 before = service.residentKilobytes();
    const QByteArray payloads[] = {
        hex("00000009 00 00000001").repeated(1000000) + hex("00000000 00"),
        hex("00000008 00 00000001 00000000").repeated(1000000) + hex("00000000 00"),
        hex("00000029 00").repeated(1000000) + hex("00000000 00"),
        hex("00000009 00 7fffffff"),
        hex("00000008 00 ffffffff"),
        hex("0000000a 00 7ffffffe 0041"),
        hex("00000400 00 00000007 51576964676574 00"),
    };
    for (const QByteArray &payload : payloads) {
        client.sendBytes(frame(payload));
        EXPECT_EQ(client.receive()["rsp_error"], -10);
    }
    client.sendBytes(hex("7fffffff 7fffffff 00")); // and then nothing more of the two gigabytes
    EXPECT_TRUE(alive());
    EXPECT_LT(service.residentKilobytes() - before, 200000);
}

/// A client that sends while it is written to: the socket then tells of bytes from inside a write.
TEST_F(HostTest, ManyRequestsInFlight)
{
    const int count = 2000;
    TestClient client(service.socketPath());
    QByteArray frames;
    QSet<int> missing;
    for (int i = 0; i < count; ++i) {
        QVariantMap request = makeRequest(Kind::info, status);
        request["req_id2"] = QVariantList{i, QByteArray(2000, 'x')};
        frames += TestClient::frame(request);
        missing.insert(i);
    }
    client.socket.write(frames);
    for (int i = 0; i < count; ++i)
        missing.remove(client.receive()["rsp_id"].toList().value(0).toInt());
    EXPECT_TRUE(missing.isEmpty());
}

/// A client that sends, never reads, and goes: what was to be written to it must not hold up the others.
TEST_F(HostTest, ClientsMayVanishAtAnyMoment)
{
    QVariantMap request = makeRequest(Kind::info, status);
    request["req_id2"] = QByteArray(1000000, 'x');
    const QByteArray frame = TestClient::frame(request);
    for (int round = 0; round < 20; ++round) {
        TestClient client(service.socketPath());
        client.sendBytes(frame.repeated(round % 4) + frame.left(round * 10000));
        client.socket.abort();
    }
    EXPECT_TRUE(alive());
}

TEST_F(HostTest, ManyConnectionsAtOnce)
{
    std::vector<std::unique_ptr<TestClient>> clients;
    for (int i = 0; i < 300; ++i) {
        clients.push_back(std::make_unique<TestClient>(service.socketPath()));
        clients.back()->send(makeRequest(Kind::info, status));
    }
    for (auto &client : clients)
        ASSERT_EQ(client->receive()["rsp_error"], 0);
}

} // namespace

#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QDataStream>
#include <QFileInfo>
#include <QRandomGenerator>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr int status = 1001;

class HostTest : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_TRUE(service.start()); }

    ServiceProcess service;
};

TEST_F(HostTest, AFreshServiceAnswersItsUserAsDocumented)
{
    const QFile::Permissions others =
        QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    EXPECT_FALSE(QFileInfo(service.socketPath()).permissions() & others);

    TestClient client(service.socketPath());
    EXPECT_EQ(
        client.info(status),
        (QVariantMap{{"rsp_error", 0},
                     {"rsp_error_detail", ""},
                     {"rsp_data", QVariantMap{{"command_code", 1001u}, {"status", 0}, {"version", "0.8"}}},
                     {"rsp_id", "request 1"},
                     {"type", 1}}));
    EXPECT_EQ(client.close()["rsp_error_detail"], "aiservice not open");
    EXPECT_EQ(client.execute(1020)["rsp_error_detail"], "aiservice not init");
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
    EXPECT_EQ(service.standardError(), "");
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
    EXPECT_TRUE(service.alive());
    service.crash();
    EXPECT_TRUE(QFile::exists(service.socketPath()));
    ASSERT_TRUE(service.start());
    EXPECT_TRUE(service.alive());
}

TEST_F(HostTest, ASecondInstanceStaysUpWithoutListening)
{
    ServiceProcess second;
    second.setEnvironment("TMPDIR", service.home());
    ASSERT_TRUE(second.launch({}));
    EXPECT_TRUE(second.waitForOutput("\u5bb8\u832c\u7ca1\u9366\u3128\u7e4d"));
    EXPECT_TRUE(second.waitForOutput("ServiceServer::initSlot end"));
    EXPECT_TRUE(second.isRunning());
    EXPECT_TRUE(service.alive());
}

TEST(ServiceProgram, CommandLinesThatStartNothing)
{
    const std::tuple<const char *, int, const char *> cases[] = {
        {"--help", 0, "usage: "},
        {"-?", 0, "usage: "},
        {"--bogus=1", 1, "undefined option: --bogus\nusage: "},
        {"-rx", 1, "undefined short option: -x\nusage: "},
        {"--recovery=yes", 1, "option value is invalid: --recovery=yes\nusage: "}};
    for (const auto &[option, code, errorText] : cases) {
        ServiceProcess service;
        ASSERT_TRUE(service.launch({option}));
        ASSERT_TRUE(service.waitForExit());
        EXPECT_EQ(service.exitCode(), code);
        EXPECT_THAT(service.standardError().toStdString(), StartsWith(errorText));
        EXPECT_FALSE(QFile::exists(service.socketPath()));
        const std::string log = service.log().toStdString();
        EXPECT_THAT(log, HasSubstr("AIService Start,version: 0.8"));
        EXPECT_THAT(log, HasSubstr("KQStartService begin"));
        EXPECT_THAT(service.standardOutput().toStdString(), HasSubstr("KQStartService begin"));
    }
}

TEST(ServiceProgram, RecoversBeforeItListens)
{
    ServiceProcess service;
    ASSERT_TRUE(service.start({"-r", "stray"}));
    ASSERT_TRUE(service.waitForOutput("start to listen >>AI"));
    const std::string output = service.standardOutput().toStdString();
    EXPECT_LT(output.find("AI is recovered"), output.find("start to listen >>AI"));
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
            bytes.fill('x', 4 * random.bounded(1, 1000));
            random.fillRange(reinterpret_cast<quint32 *>(bytes.data()), bytes.size() / 4);
        } else if (round % 3 == 1) {
            bytes[random.bounded(bytes.size())] = static_cast<char>(random.generate());
        } else {
            bytes.truncate(random.bounded(bytes.size()));
        }
        client.sendBytes(bytes + good);
    }
    EXPECT_TRUE(service.alive());

    // A bomb of lists in lists, and lengths without what they claim.
    const auto hex = [](const char *text) { return QByteArray::fromHex(text); };
    const qint64 before = service.residentKilobytes();
    EXPECT_GT(before, 0);
    TestClient client(service.socketPath());
    for (const QByteArray &payload :
         {hex("00000009 00 00000001").repeated(1000000), hex("00000008 00 ffffffff")}) {
        QByteArray frame;
        QDataStream(&frame, QIODevice::WriteOnly) << payload.size() << payload;
        client.sendBytes(frame);
        EXPECT_EQ(client.receive()["rsp_error"], -10);
    }
    client.sendBytes(hex("7fffffff 7fffffff 00")); // and then nothing more of the two gigabytes
    EXPECT_TRUE(service.alive());
    EXPECT_LT(service.residentKilobytes() - before, 200000);
}

/// A client that sends while it is written to: the socket then tells of bytes from inside a write.
TEST_F(HostTest, ManyRequestsInFlight)
{
    const int count = 2000;
    TestClient client(service.socketPath());
    QSet<int> missing;
    for (int i = 0; i < count; ++i) {
        QVariantMap request = makeRequest(Kind::info, status);
        request["req_id2"] = QVariantList{i, QByteArray(2000, 'x')};
        client.socket.write(TestClient::frame(request));
        missing.insert(i);
    }
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
    EXPECT_TRUE(service.alive());
}

} // namespace

#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QDataStream>
#include <QFile>
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

TEST_F(HostTest, SelfKillEndsTheProcessWithCode0)
{
    TestClient client(service.socketPath());
    client.send(makeRequest(ai::Kind::Close, 0, {}, "self-kill")); // refused, as nothing is open, and obeyed
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
    EXPECT_TRUE(client.waitForEnd());
    EXPECT_EQ(service.standardError(), "");
    EXPECT_THAT(service.log().toStdString(), HasSubstr("force quit self-kill"));

    // The next one finds the old socket file, or none.
    ASSERT_TRUE(service.start());
    EXPECT_TRUE(service.alive());
    service.crash();
    EXPECT_TRUE(QFile::exists(service.socketPath()));
    const int listened = service.standardOutput().count("start to listen >>AI");
    ASSERT_TRUE(service.start({"-r", "stray"}));
    EXPECT_TRUE(service.alive());
    ASSERT_TRUE(service.waitForOutput("start to listen >>AI", listened + 1));
    const std::string output = service.standardOutput().toStdString();
    EXPECT_LT(output.find("AI is recovered"), output.rfind("start to listen >>AI"));
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

/// Every bit of a valid frame may be wrong, and all of a frame may be anything. What is to be written to a
/// client that sends, never reads, and goes, must not hold up the others.
TEST_F(HostTest, LivesThroughBytesThatAreNoFrames)
{
    QRandomGenerator random(20231);
    QVariantMap request = makeRequest(ai::Kind::Info, status, QVariantMap{{"a", QVariantList{1, "b"}}});
    const QByteArray good = TestClient::frame(request);
    request["req_id2"] = QByteArray(1000000, 'x');
    const QByteArray large = TestClient::frame(request);
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
        if (round % 15 == 0)
            client.sendBytes(large.repeated(round % 4) + large.left(round * 1000));
        client.socket.abort();
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
        QVariantMap request = makeRequest(ai::Kind::Info, status);
        request["req_id2"] = QVariantList{i, QByteArray(2000, 'x')};
        client.socket.write(TestClient::frame(request));
        missing.insert(i);
    }
    for (int i = 0; i < count; ++i)
        missing.remove(client.receive()["rsp_id"].toList().value(0).toInt());
    EXPECT_TRUE(missing.isEmpty());
}

} // namespace

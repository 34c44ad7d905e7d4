// Analyses that end by themselves while the client starts the next ones. A long run by hand:
// AI_STARTS_SECONDS=600 build/tests/bin/test_racingstarts

#include "classroom.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QSet>

#include <cstdio>

namespace {

class Starts : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(camera.start(10)); // 100 frames a second
        ASSERT_TRUE(service.start());
        client.reset(new TestClient(service.socketPath()));
        ASSERT_EQ(client->open()["rsp_error"], 0);
        ASSERT_EQ(client->execute(1001, QVariantMap())["rsp_error"], 0);
        ASSERT_EQ(executeWhenConnected(*client, 1022)["rsp_error"], -12);
    }

    /// Keeps so many of the requests in flight for the time and two starts, and until the last was told of.
    /// Every start that was answered with 0 runs and is told of by an event under its identifier.
    void keepInFlight(int command, int event, int count)
    {
        const qint64 seconds = qEnvironmentVariable("AI_STARTS_SECONDS", "3").toInt();
        QSet<QString> started, ran;
        QString last;
        int asked = 0, waiting = 0;
        QElapsedTimer clock;
        clock.start();
        const auto ask = [&] {
            const QString id = QString::number(++asked);
            QVariantMap request = makeRequest(Kind::execute, command, {}, id);
            request["req_id2"] = id;
            client->send(request);
            ++waiting;
        };
        for (int i = 0; i < count; ++i)
            ask();
        // An analysis ends behind its event, and the next one of its kind starts behind its end: with the
        // event of the last start, those of all earlier ones have come.
        while (waiting > 0 || !ran.contains(last)) {
            const QVariantMap message = client->receive();
            ASSERT_FALSE(message.isEmpty()) << started.size() << " started, " << ran.size() << " ran";
            if (message["msg"] == event)
                ran.insert(message["event_req_id"].toString());
            if (message["msg"].isValid())
                continue;
            --waiting;
            if (message["rsp_error"] == 0) {
                last = message["rsp_id"].toString();
                started.insert(last);
            }
            if (clock.elapsed() < 1000 * seconds || started.size() < 2)
                ask();
        }
        std::printf("%d requests, %d starts\n", asked, started.size());
        EXPECT_EQ(started - ran, QSet<QString>());
    }

    ServiceProcess service;
    FrameSource camera{service.home()};
    std::unique_ptr<TestClient> client;
};

TEST_F(Starts, AnAttributePassThatWasAnsweredRuns)
{
    keepInFlight(1038, 1017, 4);
}

TEST_F(Starts, ACollectionOfFacesThatWasAnsweredRuns)
{
    keepInFlight(1021, 1011, 4);
}

} // namespace

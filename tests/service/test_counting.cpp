// The page of counters of a real service, as its readers see it.

#include "classroom.h"
#include "counterfields.h"
#include "counters.h"
#include "countersreader.h"
#include "eventually.h"
#include "program.h"

#include <gtest/gtest.h>

#include <QDir>

#include <map>

namespace {

class Counting : public ::testing::Test
{
protected:
    void start()
    {
        ASSERT_TRUE(service.start()) << service.standardError().constData();
        client.reset(new TestClient(service.socketPath()));
        client->inspect = [this](const QVariantMap &request, const QVariantMap &reply) {
            const int kind = request["req_code"].toInt();
            if (kind == 0)
                return;
            const bool hasCode = kind > 2;
            const unsigned code = hasCode ? request["req_data"].toMap()["command_code"].toUInt() : 0;
            ++asked[counters::requestKey(kind, code)];
            failed[counters::requestKey(kind, code)] += reply["rsp_error"] != 0 ? 1 : 0;
        };
    }
    std::unique_ptr<counters::Page> page()
    {
        QString problem;
        auto page = counters::read(service.home(), problem);
        EXPECT_TRUE(page) << qPrintable(problem);
        return page ? std::move(page) : std::make_unique<counters::Page>();
    }
    /// Reads until the condition holds.
    template <class Condition>
    void awaitPage(Condition condition)
    {
        eventually([&] { return HasFailure() || condition(*page()); });
    }

    ServiceProcess service;
    FrameSource camera{service.home()};
    std::unique_ptr<TestClient> client;
    std::map<std::int64_t, std::int64_t> asked, failed;
};

const counters::AnalysisRow &analysis(counters::Page &page, const char *name)
{
    return counters::find(page.analyses, name);
}

std::int64_t skipped(const counters::AnalysisRow &row)
{
    return row.skippedInterval.value() + row.skippedQueue.value() + row.skippedStopped.value() +
           row.skippedUnusable.value();
}

TEST_F(Counting, EveryFrameRequestEventAndCall)
{
    ASSERT_TRUE(camera.start(10));
    start();
    EXPECT_EQ(client->execute(1030)["rsp_error"], -15);
    client->open();
    ASSERT_EQ(client->execute(1001, QVariantMap{{"faceMtcnn", true}, {"ssd", true}})["rsp_error"], 0);
    ASSERT_EQ(executeWhenConnected(*client, 1030)["rsp_error"], 0);
    ASSERT_EQ(client->execute(1039, QVariantMap{{"recordPath", service.home()}})["rsp_error"], 0);
    ASSERT_EQ(client->execute(1021)["rsp_error"], 0);
    EXPECT_FALSE(client->event(1011).isEmpty());
    EXPECT_FALSE(client->event(1020).isEmpty());
    EXPECT_EQ(client->execute(4711)["rsp_error"], -10);
    EXPECT_EQ(client->info(code(ai::Question::Status))["rsp_error"], 0);
    awaitPage([](counters::Page &page) {
        const counters::AnalysisRow &hands = analysis(page, "HandupPickStrategy");
        return hands.handled.value() >= 1 && hands.skippedInterval.value() >= 1;
    });
    for (const int stop : {1031, 1040})
        EXPECT_EQ(client->execute(stop)["rsp_error"], 0);

    const char *const names[] = {"HandupPickStrategy", "GalleryStrategyNew", "VideoRecorder"};
    awaitPage([&](counters::Page &page) {
        return std::all_of(std::begin(names), std::end(names), [&](const char *name) {
            const counters::AnalysisRow &row = analysis(page, name);
            return row.queued.value() == 0 && row.offered.value() == row.handled.value() + skipped(row);
        });
    });
    const auto seen = page();
    for (const char *name : names) {
        const counters::AnalysisRow &row = analysis(*seen, name);
        EXPECT_GE(row.handled.value(), 1) << name;
        EXPECT_GE(row.offered.value(), row.handled.value()) << name;
        EXPECT_LE(row.offered.value(), seen->frames.taken.value()) << name;
        EXPECT_GT(row.longest.value(), 0) << name;
        EXPECT_GE(row.time.value(), row.longest.value()) << name;
    }
    EXPECT_EQ(seen->frames.read.value(), seen->frames.taken.value());
    const auto &bodies = counters::find(seen->recognisers, "ssd");
    EXPECT_EQ(bodies.calls.value(), analysis(*seen, "HandupPickStrategy").handled.value());
    EXPECT_LE(bodies.time.value(), analysis(*seen, "HandupPickStrategy").time.value());
    EXPECT_EQ(bodies.failed.value(), 0);
    for (const auto &[key, count] : asked) {
        const counters::RequestRow &row = counters::find(seen->requests, key);
        EXPECT_EQ(row.requests.value(), count) << row.head.name;
        EXPECT_EQ(row.failed.value(), failed[key]) << row.head.name;
    }
    EXPECT_EQ(seen->requests.rows[0].requests.value(), 1) << "the code that is none";
    EXPECT_EQ(counters::find(seen->events, "faces").events.value(), 1);
    EXPECT_EQ(counters::find(seen->events, "recording").events.value(), 1);
    EXPECT_EQ(seen->traffic.connections.value(), 1);
    EXPECT_GT(seen->traffic.sentBytes.value(), 10000) << "a picture among them";
    EXPECT_GE(seen->store.statements.value(), 4);
    EXPECT_EQ(seen->store.failed.value(), 0);
    // After the last reply there is nothing under way.
    awaitPage([](counters::Page &page) {
        return page.traffic.requestsUnderWay.value() == 0 && page.traffic.waitingMessages.value() == 0 &&
               page.traffic.waitingBytes.value() == 0;
    });

    Program top(AICTL_BINARY, {"top", "--once", "--json"}, {}, service.home());
    EXPECT_EQ(top.exitCode(), 0) << top.errors();
    Program live(AICTL_BINARY, {"top", "--json", "--interval", "0.05"}, {}, service.home());
    EXPECT_TRUE(live.hasLines(3));
    live.interrupt();
    EXPECT_EQ(live.exitCode(), 0);
    const QJsonObject shown = top.json(0);
    EXPECT_EQ(shown["process"].toObject()["id"], double(service.processId()));
    EXPECT_GT(shown["process"].toObject()["resident_bytes"].toDouble(), 1e6);
    EXPECT_EQ(shown["requests"].toObject()["start-hands"].toObject()["code"], 1030);
    EXPECT_EQ(shown["events"].toObject()["faces"].toObject()["events"], 1);
    EXPECT_TRUE(shown["events"].toObject()["smile"].toObject()["age"].isNull());
    EXPECT_TRUE(client->others.isEmpty()) << "looking has ended nothing";
}

TEST_F(Counting, LivesKillsAndAFolderInThePlaceOfThePage)
{
    start();
    service.crash();
    Program top(AICTL_BINARY, {"top", "--once"}, {}, service.home());
    EXPECT_EQ(top.exitCode(), 1);
    EXPECT_NE(top.errors().find("was killed or has crashed"), std::string::npos);
    start();
    EXPECT_EQ(page()->restarts, 1);
    EXPECT_EQ(page()->crashes, 1);
    EXPECT_EQ(page()->requests.rows[0].requests.value(), 0);
    client->send(makeRequest(Kind::close, 0, {}, "self-kill"));
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(counters::writerOf(*page()), counters::Writer::Ended);

    QFile::remove(service.filePath("AICounters"));
    ASSERT_TRUE(QDir().mkdir(service.filePath("AICounters")));
    start();
    EXPECT_EQ(client->info(1001)["rsp_error"], 0);
    EXPECT_TRUE(service.waitForOutput("[counters] nobody sees them: "));
}

} // namespace

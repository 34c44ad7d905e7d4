// The page of counters of a real service, as its readers see it.

#include "classroom.h"
#include "counterfields.h"
#include "counters.h"
#include "countersreader.h"
#include "program.h"

namespace {

class Counting : public ClassroomTest<ServiceProcess>
{
protected:
    std::unique_ptr<counters::Page> page()
    {
        QString problem;
        auto page = counters::read(service.home(), problem);
        EXPECT_TRUE(page) << qPrintable(problem);
        return page ? std::move(page) : std::make_unique<counters::Page>();
    }
    Program aictl(const QStringList &arguments) const
    {
        return {AICTL_BINARY, arguments, {}, service.home()};
    }
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
    startService();
    EXPECT_EQ(code(1030), -15);
    openClass({{"faceMtcnn", true}, {"ssd", true}});
    ASSERT_EQ(code(1030), 0);
    ASSERT_EQ(code(1039, {{"recordPath", service.home()}}), 0);
    ASSERT_EQ(code(1021), 0);
    EXPECT_FALSE(client->event(1011).isEmpty());
    EXPECT_FALSE(client->event(1020).isEmpty());
    EXPECT_EQ(code(4711), -10);
    EXPECT_EQ(client->info(1001)["rsp_error"], 0);
    EXPECT_TRUE(eventually([&] { return analysis(*page(), "HandupPickStrategy").handled.value() >= 1; }));
    for (const int stop : {1031, 1040})
        EXPECT_EQ(code(stop), 0);

    const char *const names[] = {"HandupPickStrategy", "GalleryStrategyNew", "VideoRecorder"};
    EXPECT_TRUE(eventually([&] {
        const auto seen = page();
        return std::all_of(std::begin(names), std::end(names), [&](const char *name) {
            const counters::AnalysisRow &row = analysis(*seen, name);
            return row.queued.value() == 0 && row.offered.value() == row.handled.value() + skipped(row);
        });
    }));
    const auto seen = page();
    for (const char *name : names) {
        const counters::AnalysisRow &row = analysis(*seen, name);
        EXPECT_GE(row.handled.value(), 1) << name;
        EXPECT_LE(row.offered.value(), seen->frames.taken.value()) << name;
        EXPECT_GT(row.longest.value(), 0) << name;
        EXPECT_GE(row.time.value(), row.longest.value()) << name;
    }
    EXPECT_EQ(seen->frames.read.value(), seen->frames.taken.value());
    const auto &bodies = counters::find(seen->recognisers, "ssd");
    EXPECT_EQ(bodies.calls.value(), analysis(*seen, "HandupPickStrategy").handled.value());
    EXPECT_LE(bodies.time.value(), analysis(*seen, "HandupPickStrategy").time.value());
    EXPECT_EQ(bodies.failed.value(), 0);
    const std::tuple<int, unsigned, const char *> requests[] = {
        {1, 0, "0/1"}, {3, 1030, "1/2"}, {3, 1021, "0/1"}, {4, 1001, "0/1"}};
    for (const auto &[kind, command, failed] : requests) {
        const counters::RequestRow &row = counters::find(seen->requests, counters::requestKey(kind, command));
        EXPECT_EQ(QString("%1/%2").arg(row.failed.value()).arg(row.requests.value()), failed) << command;
    }
    EXPECT_EQ(seen->requests.rows[0].requests.value(), 1) << "the code that is none";
    EXPECT_EQ(counters::find(seen->events, "faces").events.value(), 1);
    EXPECT_EQ(counters::find(seen->events, "recording").events.value(), 1);
    EXPECT_GE(seen->store.statements.value(), 4);
    EXPECT_EQ(seen->store.failed.value(), 0);

    auto top = aictl({"top", "--once", "--json"});
    EXPECT_EQ(top.exitCode(), 0) << top.errors();
    auto live = aictl({"top", "--json", "--interval", "0.05"});
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
    startService();
    service.crash();
    auto top = aictl({"top", "--once"});
    EXPECT_EQ(top.exitCode(), 1);
    EXPECT_NE(top.errors().find("was killed or has crashed"), std::string::npos);
    startService();
    EXPECT_EQ(page()->restarts, 1);
    EXPECT_EQ(page()->crashes, 1);
    EXPECT_EQ(page()->requests.rows[0].requests.value(), 0);
    client->send(makeRequest(ai::Kind::Close, 0, {}, "self-kill"));
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(counters::writerOf(*page()), counters::Writer::Ended);

    QFile::remove(service.filePath("AICounters"));
    ASSERT_TRUE(QDir().mkdir(service.filePath("AICounters")));
    startService();
    EXPECT_EQ(client->info(1001)["rsp_error"], 0);
    EXPECT_TRUE(service.waitForOutput("[counters] nobody sees them: "));
}

} // namespace

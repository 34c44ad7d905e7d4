#include "atonce.h"
#include "counterfields.h"
#include "counters.h"
#include "countersreader.h"
#include "processusage.h"

#include <gmock/gmock.h>

#include <QCoreApplication>
#include <QFile>
#include <QSet>
#include <QTemporaryDir>

#include <unistd.h>

using testing::HasSubstr;

namespace {

class CountersPage : public ::testing::Test
{
protected:
    std::string problemOfOpening()
    {
        QString problem;
        return counters::open(folder.path(), problem) ? "" : problem.toStdString();
    }
    std::string problemOfReading()
    {
        QString problem;
        return counters::read(folder.path(), problem) ? "" : problem.toStdString();
    }
    /// Puts a number of its own into the page's file.
    template <class Number>
    void overwrite(qint64 offset, Number number)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QFile::ReadWrite) && file.seek(offset));
        file.write(reinterpret_cast<const char *>(&number), sizeof number);
    }
    /// As if the process that counts in it had been killed.
    void kill() { overwrite(offsetof(counters::Page, processStart), std::int64_t(1)); }
    std::unique_ptr<counters::Page> page()
    {
        QString problem;
        return counters::read(folder.path(), problem);
    }

    QTemporaryDir folder;
    const QString path = folder.filePath("AICounters");
};

TEST_F(CountersPage, ReadersSeeWhatIsCountedAndLivesAreCountedOn)
{
    EXPECT_THAT(problemOfReading(), HasSubstr("no service has counted here"));
    ASSERT_EQ(problemOfOpening(), "");
    EXPECT_EQ(QFile(path).permissions() & ~(QFile::ReadUser | QFile::WriteUser),
              QFile::ReadOwner | QFile::WriteOwner);
    EXPECT_EQ(page()->process, QCoreApplication::applicationPid());
    EXPECT_EQ(counters::writerOf(*page()), counters::Writer::Counts);
    const auto countFrom = [](int first) {
        return [first](int round) {
            counters::page().frames.read.add();
            counters::addTime(counters::page().store.time, counters::page().store.longest, first + round);
        };
    };
    atOnce(20000, {countFrom(0), countFrom(20000), countFrom(40000), countFrom(60000)});
    EXPECT_EQ(page()->frames.read.value(), 80000);
    EXPECT_EQ(page()->store.longest.value(), 79999);

    EXPECT_THAT(problemOfOpening(), HasSubstr("counts in")) << "a page that is counted in is left alone";
    kill();
    EXPECT_EQ(counters::writerOf(*page()), counters::Writer::Gone);
    // Who has the old file open, and cuts it, does not reach the new one.
    QFile old(path);
    ASSERT_TRUE(old.open(QFile::ReadWrite));
    ASSERT_EQ(problemOfOpening(), "");
    EXPECT_TRUE(old.resize(0));
    counters::page().frames.read.add();
    EXPECT_EQ(page()->frames.read.value(), 1);
    EXPECT_EQ(page()->restarts, 1);
    EXPECT_EQ(page()->crashes, 1);
    counters::end();
    EXPECT_EQ(counters::writerOf(*page()), counters::Writer::Ended);
    ASSERT_EQ(problemOfOpening(), "");
    EXPECT_EQ(page()->restarts, 2);
    EXPECT_EQ(page()->crashes, 1);
}

TEST_F(CountersPage, WhatIsNoPageIsToldAndReplaced)
{
    ASSERT_EQ(problemOfOpening(), "");
    kill();
    overwrite(offsetof(counters::Page, version), std::uint32_t(99));
    EXPECT_THAT(problemOfReading(), HasSubstr("version 99"));
    overwrite(0, std::uint64_t(7));
    EXPECT_THAT(problemOfReading(), HasSubstr("not a page of counters"));
    QFile(path).resize(sizeof(counters::Page) - 1);
    EXPECT_THAT(problemOfReading(), HasSubstr("too short"));
    ASSERT_EQ(problemOfOpening(), "");
    EXPECT_EQ(page()->restarts, 0);

    QFile other(folder.filePath("other"));
    ASSERT_TRUE(other.open(QFile::WriteOnly));
    other.write("mine");
    other.close();
    ASSERT_TRUE(QFile::remove(path) && QFile::link(other.fileName(), path));
    EXPECT_THAT(problemOfReading(), HasSubstr("not a plain file"));
    ASSERT_EQ(problemOfOpening(), "");
    EXPECT_EQ(problemOfReading(), "");
    EXPECT_EQ(other.size(), 4);

    ASSERT_TRUE(QFile::remove(path) && QDir().mkdir(path));
    const std::int64_t before = counters::page().frames.read.value();
    EXPECT_THAT(problemOfOpening(), HasSubstr("AICounters: "));
    counters::page().frames.read.add();
    EXPECT_EQ(counters::page().frames.read.value(), before + 1);
    EXPECT_EQ(QDir(folder.path()).entryList(QDir::Files), QStringList{"other"});
}

TEST(ProcessUsage, TellsTheMemoryThatIsHeld)
{
    QFile file("/proc/self/statm");
    ASSERT_TRUE(file.open(QFile::ReadOnly));
    const double held = file.readAll().split(' ').value(1).toDouble() * double(sysconf(_SC_PAGESIZE));
    const auto usage = counters::usageOf(QCoreApplication::applicationPid());
    ASSERT_TRUE(usage);
    EXPECT_NEAR(double(usage->residentBytes), held, held / 2);
}

TEST(CountersRows, WhatHasNoRowGoesToTheFirstOne)
{
    static counters::Rows<counters::EventRow, 3> table;
    EXPECT_EQ(&counters::find(table, 5), &table.rows[0]);
    counters::add(table, 5, "five");
    counters::add(table, 5, "once more");
    counters::add(table, 6, "a name that is longer than the room for it in a row");
    counters::add(table, 7, "one too many");
    EXPECT_EQ(table.used, 3u);
    EXPECT_STREQ(table.rows[0].head.name, "other");
    EXPECT_STREQ(counters::find(table, 5).head.name, "five");
    EXPECT_EQ(counters::nameOf(counters::find(table, 6).head), "a name that is longer than the ");
    EXPECT_EQ(&counters::find(table, 7), &table.rows[0]);
    EXPECT_EQ(&counters::find(table, "five"), &table.rows[1]);
}

/// Every number of the page has one field, and docs/counters.md tells each.
TEST(CountersDocs, TellEachNumber)
{
    QFile file(DOCS "/counters.md");
    ASSERT_TRUE(file.open(QFile::ReadOnly));
    const QByteArray text = file.readAll();
    static counters::Page page;
    counters::add(page.analyses, 1, "analysis");
    counters::add(page.recognisers, 1, "recogniser");
    counters::add(page.requests, 1, "request");
    counters::add(page.events, 1, "event");
    QSet<const void *> shown;
    counters::forEach(page, [&](const counters::Place &place, const auto &field,
                                const counters::Counter &counter) {
        EXPECT_FALSE(shown.contains(&counter)) << field.name;
        EXPECT_EQ(place.code(), place.hasCode && place.row->key == 1 ? 1U : 0U) << field.name;
        shown.insert(&counter);
        EXPECT_TRUE(text.contains(QByteArray("`") + field.metric + '`')) << field.metric;
        EXPECT_TRUE(text.contains(QByteArray("`") + field.name + '`')) << place.section << ' ' << field.name;
    });
    EXPECT_EQ(shown.size(), 5 + 8 + 4 + 2 * (9 + 5 + 4 + 2));
}

} // namespace

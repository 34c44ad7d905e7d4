// A store whose writes fail, and a recovery that is itself killed.

#include "faultyservice.h"

#include <QRandomGenerator>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>
#include <limits>

namespace {

class StoreFaults : public FaultTest
{
protected:
    QStringList rows() const { return storedStudents(service.filePath("ai.data")); }
    /// A script of gallery commands, all answered. Its students end in the suffix.
    void runScript(const QString &suffix)
    {
        const auto name = [&](const char *student) { return student + suffix; };
        ASSERT_EQ(enrol({name("a"), name("b")}), QStringList({name("a"), name("b")}));
        ASSERT_EQ(code(1024, {{"oldStuID", name("a")}, {"newStuID", name("c")}}), 0);
        ASSERT_EQ(code(1025, {{"stuID", name("b")}}), 0);
        ASSERT_EQ(code(1020, {{"galleries", QVariantList{galleryOf(name("e"))}}}), 0);
        ASSERT_EQ(code(1027), 0);
    }

    /// The n-th write of the script fails, and with it the `further` ones behind it, for growing n.
    void failEachWrite(int error, int further)
    {
        FaultControl &faults = service.faults;
        faults.error = error;
        const int step = qEnvironmentVariable("AI_WRITE_STEP", "7").toInt();
        bool failed = true;
        for (int n = 1; failed; n += step) {
            const QStringList before = rows();
            const QString suffix = QString(" %1 %2").arg(error).arg(++m_scripts);
            SCOPED_TRACE(qPrintable(QString("write %1, script%2").arg(n).arg(suffix)));
            const int failures = faults.failed;
            faults.failUntil = further == 0 ? faults.writes + n : std::numeric_limits<int>::max();
            faults.failFrom = faults.writes + n;
            runScript(suffix);
            faults.failFrom = 0;
            ASSERT_FALSE(HasFatalFailure());
            failed = faults.failed > failures;

            // Space again: the next one is kept without more ado.
            ASSERT_EQ(enrol({"f" + suffix}), QStringList{"f" + suffix});
            // External faces that stayed would give the next script ever more writes.
            ASSERT_EQ(code(1027), 0);
            const QStringList after = rows();
            const QStringList ours = after.filter(QRegularExpression(suffix + '$'));
            EXPECT_EQ(ours.count("f" + suffix), 1);
            EXPECT_EQ(QSet<QString>(ours.begin(), ours.end()).size(), ours.size());
            if (!failed) {
                EXPECT_EQ(ours, QStringList({"c" + suffix, "f" + suffix}));
            }
            QStringList others = after;
            for (const QString &student : ours)
                others.removeOne(student);
            ASSERT_EQ(others, before);
            m_largest = n;
            if (m_scripts % 20 == 0)
                continue; // some stay, for the recovery; all would make the file large and the test slow
            for (const char *student : {"c", "f"})
                EXPECT_LE(code(1025, {{"stuID", student + suffix}}), 0);
        }
    }

    int m_scripts = 0;
    int m_largest = 0;
};

#if !AI_SANITIZED // whose writes can't be intercepted

TEST_F(StoreFaults, AWriteThatFailsCostsItsOwnRowAndNoOther)
{
    startClass(100);
    failEachWrite(ENOSPC, 0);
    EXPECT_GT(m_largest, 20); // there were writes to fail
    failEachWrite(ENOSPC, 1);
    failEachWrite(EIO, 0);
    std::printf("%d scripts, the longest of %d writes\n", m_scripts, m_largest);
    EXPECT_TRUE(service.waitForOutput("sqlite exec add student failed,error: "));

    const QStringList kept = rows();
    service.crash();
    startService({"--recovery"});
    QStringList back = studentsOf(*client);
    back.sort();
    EXPECT_EQ(back, kept);
}

TEST_F(StoreFaults, AStoreThatCannotBeMadeCostsTheStoreAlone)
{
    service.faults.error = EROFS;
    service.faults.failFrom = 1;
    service.faults.failUntil = std::numeric_limits<int>::max();
    startClass();
    EXPECT_TRUE(service.waitForOutput("database open failed,error: "));
    EXPECT_EQ(enrol({"Ada"}), QStringList{"Ada"});
    EXPECT_EQ(studentsOf(*client), QStringList{"Ada"});

    // As documented: nothing is kept until a close and an open.
    service.faults.failFrom = 0;
    EXPECT_EQ(client->close()["rsp_error"], QVariant(0));
    openClass();
    EXPECT_EQ(enrol({"Ben"}), QStringList{"Ben"});
    EXPECT_EQ(rows(), QStringList{"Ben"});
}

#endif

TEST_F(StoreFaults, ARecoveryMayBeKilledAtAnyMoment)
{
    const int rounds = qEnvironmentVariable("AI_KILL_ROUNDS", "6").toInt();
    QStringList students;
    for (int i = 10; i < 40; ++i)
        students.append(QString("student %1").arg(i));
    startClassOf(students, 40);
    ASSERT_EQ(code(1020, {{"galleries", QVariantList{galleryOf("Zoe")}}}), 0);
    service.crash();
    const QByteArray before = service.content("ai.data");
    QRandomGenerator random(1903);
    for (int round = 0; round < rounds; ++round) {
        // Two calls for each student, one for each external face and for each best picture.
        const int wanted = service.faults.calls[faceId] + random.bounded(2 * students.size());
        ASSERT_TRUE(service.launch({"--recovery"}));
        EXPECT_TRUE(
            eventually([&] { return service.faults.calls[faceId] >= wanted || !service.isRunning(); }));
        service.crash();
        ASSERT_EQ(service.content("ai.data"), before) << "round " << round;
    }
    startService({"--recovery"});
    EXPECT_EQ(studentsOf(*client), students);
    EXPECT_EQ(service.content("ai.data"), before);
}

} // namespace

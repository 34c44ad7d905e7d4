#include "eventually.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <csignal>
#include <ostream>

namespace {

struct Crash
{
    const char *way;
    int signal;
    bool dumped;
    bool logged;
};

void PrintTo(const Crash &crash, std::ostream *out)
{
    *out << crash.way;
}

class CrashDumpTest : public ::testing::Test
{
protected:
    CrashDumpTest() { m_folder.removeRecursively(); }

    void start(const char *way)
    {
        // What the callback does is no signal handler's business; ThreadSanitizer's reports would take long.
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TSAN_OPTIONS", environment.value("TSAN_OPTIONS") + " report_signal_unsafe=0");
        m_process.setProcessEnvironment(environment);
        m_process.start(CRASHPEER, {way});
        ASSERT_TRUE(m_process.waitForStarted());
    }

    void expectEndBy(int signal)
    {
        ASSERT_TRUE(m_process.waitForFinished(20000));
        EXPECT_EQ(m_process.exitStatus(), QProcess::CrashExit);
        EXPECT_EQ(m_process.exitCode(), signal) << m_process.readAllStandardError().left(1500).constData();
        m_log += m_process.readAllStandardOutput();
    }

    QString dump() const { return m_folder.entryList({"*.dmp"}).value(0); }

    QDir m_folder{QDir::temp().filePath("Orelia/logs/dump/aidump")};
    QProcess m_process;
    QByteArray m_log;
};

class CrashWays : public CrashDumpTest, public ::testing::WithParamInterface<Crash>
{
};

TEST_P(CrashWays, LeaveADumpAndEndBySignal)
{
    start(GetParam().way);
    expectEndBy(GetParam().signal);
    EXPECT_EQ(m_folder.entryList({"*.dmp"}).size(), GetParam().dumped ? 1 : 0);
    EXPECT_TRUE(m_log.contains("init dump handle :" + m_folder.path().toUtf8())) << m_log.constData();
    EXPECT_EQ(m_log.contains("callback    ==>>"), GetParam().logged);
    EXPECT_EQ(m_log.contains("dump failed"), !GetParam().dumped);
    if (GetParam().dumped && GetParam().logged) {
        const QByteArray guid = QFileInfo(dump()).completeBaseName().toUtf8();
        EXPECT_TRUE(m_log.contains("dump guid is " + guid + "  ")) << m_log.constData();
    }
    EXPECT_EQ(m_log.contains("callback ran"), GetParam().way == QByteArray("callback"));
}

INSTANTIATE_TEST_SUITE_P(
    Crashes, CrashWays,
    testing::Values(Crash{"segv", SIGSEGV, true, true}, Crash{"thread", SIGSEGV, true, true},
                    Crash{"abort", SIGABRT, true, true}, Crash{"overflow", SIGSEGV, true, true},
                    Crash{"callback", SIGSEGV, true, true}, Crash{"nofolder", SIGSEGV, false, true},
                    Crash{"locked", SIGALRM, true, false}),
    [](const auto &crash) { return std::string(crash.param.way); });

TEST_F(CrashDumpTest, SignalFromOutsideLeavesAReadableDump)
{
    start("wait");
    ASSERT_TRUE(eventually([&] {
        m_log += m_process.readAllStandardOutput();
        return m_log.contains("init dump handle");
    }));
    // The line comes before the handler is installed: ask until the handler shows in the process's state.
    ASSERT_TRUE(eventually([&] {
        QFile status(QString("/proc/%1/status").arg(m_process.processId()));
        if (!status.open(QFile::ReadOnly))
            return false;
        const auto match = QRegularExpression("SigCgt:\\s*([0-9a-f]+)").match(status.readAll());
        return (match.captured(1).toULongLong(nullptr, 16) & (1ull << (SIGSEGV - 1))) != 0;
    }));
    ASSERT_EQ(kill(pid_t(m_process.processId()), SIGSEGV), 0);
    expectEndBy(SIGSEGV);
    EXPECT_TRUE(QRegularExpression("^[0-9a-f-]{36}\\.dmp$").match(dump()).hasMatch()) << qPrintable(dump());

    QProcess stackwalk;
    stackwalk.start(MINIDUMP_STACKWALK, {m_folder.filePath(dump())});
    ASSERT_TRUE(stackwalk.waitForFinished(20000)) << MINIDUMP_STACKWALK;
    EXPECT_EQ(stackwalk.exitCode(), 0);
    const QByteArray report = stackwalk.readAllStandardOutput();
    EXPECT_TRUE(report.contains("Crash reason:  SIGSEGV")) << report.left(2000).constData();
    EXPECT_TRUE(report.contains("crashpeer"));
}

} // namespace

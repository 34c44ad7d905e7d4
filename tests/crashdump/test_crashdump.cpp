#include "crash_dump.h"
#include "mylog.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QProcess>
#include <QRegularExpression>

#include <csignal>
#include <map>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

const char dumpFolder[] = "Orelia/logs/dump/aidump";

void crash()
{
    void *const forbidden = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    *static_cast<volatile int *>(forbidden) = 1;
}

int overflow(volatile int depth)
{
    volatile char room[4096] = {};
    room[std::size_t(depth) % sizeof room] = 1;
    return depth < 0 ? 0 : overflow(depth + 1) + room[0];
}

/// A lock of the log that is not given back holds whoever logs.
void crashWithTheLogLocked()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) { sleep(20); });
    crash();
}

void callback()
{
    const char text[] = "callback ran\n";
    if (write(STDOUT_FILENO, text, sizeof text - 1) < 0)
        _exit(99);
}

/// In a process of its own: with the handler, and a log that the test reads, to an end of some kind.
void endBy(void (*crashing)())
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    std::signal(SIGSEGV, SIG_DFL); // a sanitizer's handler would take the crash that leaves no dump
    dup2(STDERR_FILENO, STDOUT_FILENO);
    MyLog::init("peer", QDir(QDir::temp().filePath("Orelia/logs")), {}, 0, 10000);
    MyLog::setConsole(true);
    CrashDump::init(dumpFolder, callback);
    for (int i = 0; i < 100; ++i)
        qInfo("line %d.", i);
    crashing();
}

/// What such a process logs, which the signal is to end.
std::string logOf(void (*crashing)(), int signal)
{
    std::string log;
    EXPECT_EXIT(endBy(crashing), ::testing::KilledBySignal(signal),
                ::testing::Truly([&log](const std::string &text) {
                    log = text;
                    return true;
                }));
    return log;
}

/// The names of the dumps, and what can be read in each.
std::map<QString, std::string> takeDumps()
{
    QDir folder(QDir::temp().filePath(dumpFolder));
    std::map<QString, std::string> dumps;
    for (const QString &name : folder.entryList({"*.dmp"})) {
        QProcess stackwalk;
        stackwalk.start(MINIDUMP_STACKWALK, {folder.filePath(name)});
        stackwalk.waitForFinished(-1);
        dumps[name] = stackwalk.readAllStandardOutput().toStdString();
    }
    folder.removeRecursively();
    return dumps;
}

TEST(CrashDump, EachCrashLeavesTheDumpThatTheLogNames)
{
    const auto onAThread = [] { std::thread(crash).join(); };
    const auto byRecursion = [] { overflow(0); };
    const std::tuple<void (*)(), int, const char *> crashes[] = {{crash, SIGSEGV, "SIGSEGV"},
                                                                 {onAThread, SIGSEGV, "SIGSEGV"},
                                                                 {byRecursion, SIGSEGV, "SIGSEGV"},
                                                                 {std::abort, SIGABRT, "SIGABRT"}};
    for (const auto &[crashing, signal, reason] : crashes) {
        const std::string log = logOf(crashing, signal);
        const auto dumps = takeDumps();
        ASSERT_EQ(dumps.size(), 1U) << log;
        const auto &[file, content] = *dumps.begin();
        EXPECT_THAT(content, HasSubstr(reason));
        const auto name = QRegularExpression("^([0-9a-f-]{36})\\.dmp$").match(file);
        EXPECT_THAT(log, HasSubstr("dump guid is " + name.captured(1).toStdString() + "  "));
        EXPECT_THAT(log, HasSubstr("callback ran"));
        EXPECT_THAT(log, HasSubstr("line 99."));
    }
}

TEST(CrashDump, WithoutAFolderTheLogTellsThatItFailed)
{
    const auto crashing = [] {
        if (QDir(QDir::temp().filePath(dumpFolder)).removeRecursively())
            crash();
    };
    const std::string log = logOf(crashing, SIGSEGV);
    EXPECT_THAT(log, HasSubstr("init dump handle :" + QDir::temp().filePath(dumpFolder).toStdString()));
    EXPECT_THAT(log, HasSubstr("dump failed"));
}

TEST(CrashDump, ALogThatIsLockedDoesNotKeepTheProcess)
{
    const std::string log = logOf(crashWithTheLogLocked, SIGALRM);
    EXPECT_THAT(log, AllOf(HasSubstr("line 99."), Not(HasSubstr("callback    ==>>"))));
    EXPECT_EQ(takeDumps().size(), 1U);
}

} // namespace

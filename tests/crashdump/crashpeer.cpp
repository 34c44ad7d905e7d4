// A process that crashes in the way its first argument tells. It logs to the console.
#include "crash_dump.h"
#include "mylog.h"

#include <QCoreApplication>
#include <QDebug>

#include <csignal>
#include <cstdlib>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

std::mutex logLock;
QtMessageHandler nextHandler = nullptr;

void lockedHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    std::lock_guard<std::mutex> guard(logLock);
    nextHandler(type, context, message);
}

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

void callback()
{
    const char text[] = "callback ran\n";
    if (write(STDOUT_FILENO, text, sizeof text - 1) < 0)
        _exit(99);
}

} // namespace

int main(int argc, char **argv)
{
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    QCoreApplication application(argc, argv);
    std::signal(SIGSEGV, SIG_DFL); // a sanitizer's handler would take the crash that leaves no dump
    const std::string way = argc > 1 ? argv[1] : "";

    MyLog::init("peer", QDir(QDir::temp().filePath("Orelia/logs")), {}, 0, 10000);
    MyLog::setConsole(true);
    CrashDump::init("Orelia/logs/dump/aidump", way == "callback" ? callback : nullptr);

    if (way == "segv" || way == "callback")
        crash();
    if (way == "thread")
        std::thread(crash).join();
    if (way == "abort")
        std::abort();
    if (way == "overflow")
        return overflow(0);
    if (way == "nofolder" && QDir(QDir::temp().filePath("Orelia/logs/dump")).removeRecursively())
        crash();
    if (way == "locked") {
        nextHandler = qInstallMessageHandler(lockedHandler);
        logLock.lock();
        crash();
    }
    return QCoreApplication::exec();
}

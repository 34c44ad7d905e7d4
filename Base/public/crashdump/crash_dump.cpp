#include "crash_dump.h"

#include "mylog.h"

#include <QDebug>
#include <QDir>

#include <memory>

#ifdef Q_OS_WIN
#include <client/windows/handler/exception_handler.h>
#else
#include <client/linux/handler/exception_handler.h>

#include <QFile>
#include <QFileInfo>

#include <csignal>
#include <sys/time.h>
#endif

namespace {

void (*storedCallback)() = nullptr;
google_breakpad::ExceptionHandler *handler = nullptr;

bool reportDump(const QString &guid, bool succeeded)
{
    MyLog::writeAtOnce();
    qDebug() << "callback";
    if (succeeded)
        qDebug().noquote().nospace() << "dump guid is " << guid;
    else
        qDebug() << "dump failed";
    if (storedCallback)
        storedCallback();
    return succeeded;
}

} // namespace

#ifdef Q_OS_WIN

void CrashDump::init(QString dumpFolder, void (*callback)())
{
    const QString folder = QDir::temp().filePath(dumpFolder);
    QDir().mkpath(folder);
    storedCallback = callback;
    qDebug().noquote().nospace() << "init dump handle :" << folder;
    handler = std::make_unique<google_breakpad::ExceptionHandler>(
                  folder.toStdWString(), nullptr, &CrashDump::DumpCallback, nullptr,
                  google_breakpad::ExceptionHandler::HANDLER_ALL)
                  .release();
}

bool CrashDump::DumpCallback(const wchar_t *, const wchar_t *minidumpId, void *, _EXCEPTION_POINTERS *,
                             MDRawAssertionInfo *, bool succeeded)
{
    return reportDump(QString::fromWCharArray(minidumpId), succeeded);
}

#else

namespace {

/// The handler runs on a stack of its own, because an overflow may be the cause of the crash. Formatting
/// log lines needs more of it than a handler usually gets.
void installHandlerStack()
{
    constexpr std::size_t needed = 131072;
    static char stack[needed];
    stack_t current = {};
    if (sigaltstack(nullptr, &current) == 0 && current.ss_sp && current.ss_size >= needed)
        return;
    stack_t own = {};
    own.ss_sp = stack;
    own.ss_size = needed;
    sigaltstack(&own, nullptr);
}

/// Ends the process, by SIGALRM, 700 ms from now unless it is gone by then.
void limitRemainingTime()
{
    std::signal(SIGALRM, SIG_DFL);
    sigset_t alarmOnly;
    sigemptyset(&alarmOnly);
    sigaddset(&alarmOnly, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarmOnly, nullptr);

    itimerval timer = {};
    timer.it_value.tv_usec = 700000;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

void CrashDump::init(QString dumpFolder, void (*callback)())
{
    const QString folder = QDir::temp().filePath(dumpFolder);
    QDir().mkpath(folder);
    storedCallback = callback;
    qDebug().noquote().nospace() << "init dump handle :" << folder;

    installHandlerStack();
    const google_breakpad::MinidumpDescriptor descriptor(QFile::encodeName(folder).toStdString());
    handler = std::make_unique<google_breakpad::ExceptionHandler>(descriptor, nullptr,
                                                                  &CrashDump::DumpCallback, nullptr, true, -1)
                  .release();
}

bool CrashDump::DumpCallback(const google_breakpad::MinidumpDescriptor &descriptor, void *, bool succeeded)
{
    limitRemainingTime();
    const QString path = QFile::decodeName(descriptor.path());
    return reportDump(QFileInfo(path).completeBaseName(), succeeded);
}

#endif

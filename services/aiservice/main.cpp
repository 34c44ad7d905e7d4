#include "aiconfig.h"
#include "aiservice.h"
#include "counters.h"
#include "crash_dump.h"
#include "heap.h"
#include "kqstartservice.h"
#include "leftfiles.h"
#include "messageSender.h"
#include "mylog.h"
#include "ownfiles.h"
#include "videorecorder.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QTextCodec>

#include <csignal>
#include <cstdlib>

#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

namespace {

constexpr char serviceName[] = "AI";
constexpr int everyLevel = 0;
constexpr qint64 longestInfo = 10000; // bytes

/// The console's reader may go while the service lives; writing to it must not end the process.
void ignoreBrokenPipes()
{
#ifdef SIGPIPE
    std::signal(SIGPIPE, SIG_IGN);
#endif
}

} // namespace

int main(int argc, char *argv[])
{
#ifndef Q_OS_WIN
    umask(S_IRWXG | S_IRWXO); // pictures of children lie in what is made from here on
#endif
    heap::keepFreed();
    ignoreBrokenPipes();
    qputenv("QT_NO_GLIB", "1"); // Qt's own event loops make do with fewer system calls
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("utf-8"));
    QCoreApplication application(argc, argv);

    MyLog::init(QLatin1String(left_files::logName),
                QDir(QDir::temp().filePath(QLatin1String(left_files::logFolder))), QStringList(), everyLevel,
                longestInfo);
    MyLog::setConsole(true);
    qInfo("AIService Start,version: %s", qUtf8Printable(AIService::version()));
    CrashDump::init(QLatin1String(left_files::dumpFolder), nullptr);
    QString problem;
    if (!counters::open(QDir::temp(), problem))
        qWarning().noquote() << "[counters] nobody sees them:" << problem;
    AIConfig::instance().load();
    OwnFiles files(QDir::temp(), QDir::current());
    files.close();
    files.keepFor(AIConfig::instance().keepLogDays);

    auto *service = new AIService;
    KQStartService(QLatin1String(serviceName), service, argc, argv);
    MessageSender::instance()->setService(service);
    const int result = QCoreApplication::exec();

    // Threads still run and log, and nothing of this is taken down in order: a file that is being recorded
    // is closed, so that it plays, unless its disk hangs; the log is written, and the process ends before any
    // destructor.
    VideoRecorder::instance()->finish();
    counters::end();
    MyLog::flush();
    std::_Exit(result);
}

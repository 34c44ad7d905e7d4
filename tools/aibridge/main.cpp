#include "bridge.h"
#include "report.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QLockFile>

#include <csignal>

namespace {

constexpr int endCheckInterval = 50; // milliseconds

enum ExitCode
{
    Done = 0,
    Failed = 1,
    WrongUse = 2
};

volatile std::sig_atomic_t endAsked = 0;

void askToEnd(int)
{
    endAsked = 1;
}

int fail(ExitCode code, const QString &why)
{
    report(why);
    return code;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("aibridge"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "The one connection to the vision service that stays: keeps running what the room's file wants,\n"
        "lets other clients look without ending anything, and tells an MQTT broker what happens.\n\n"
        "The service's socket is looked for in the temporary folder (TMPDIR). SIGTERM ends it in order.\n"
        "Exit code 0 at the end, 1 when another bridge has the room, 2 for wrong use and for a file that\n"
        "says something wrong or that others can read although it holds a secret."));
    parser.addHelpOption();
    const QCommandLineOption check("check", "Read the file, say what is wrong with it, and end.");
    parser.addOption(check);
    parser.addPositionalArgument("FILE", "The room's file, such as /etc/aiservice/101.conf.");
    if (!parser.parse(application.arguments()))
        return fail(WrongUse, parser.errorText());
    if (parser.isSet("help"))
        parser.showHelp(Done);
    if (parser.positionalArguments().size() != 1)
        return fail(WrongUse, QStringLiteral("the room's file is needed; --help tells more"));

    Settings settings;
    QString error;
    if (!settings.read(parser.positionalArguments().first(), error))
        return fail(WrongUse, error);
    if (parser.isSet(check))
        return Done;

    QLockFile lock(QDir::temp().filePath("aibridge.lock"));
    lock.setStaleLockTime(0);
    if (!lock.tryLock(0))
        return fail(Failed, QStringLiteral("another bridge serves %1").arg(QDir::tempPath()));

    std::signal(SIGINT, askToEnd);
    std::signal(SIGTERM, askToEnd);
    std::signal(SIGPIPE, SIG_IGN);
    QTimer endTimer;
    QObject::connect(&endTimer, &QTimer::timeout, [] {
        if (endAsked)
            QCoreApplication::exit(Done);
    });
    endTimer.start(endCheckInterval);
    int result = Done;
    {
        Bridge bridge(settings);
        bridge.start();
        result = QCoreApplication::exec();
    }
    report(QStringLiteral("ended by a signal"));
    return result;
}

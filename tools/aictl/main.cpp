#include "command.h"

#include <QCoreApplication>

#include <cstdio>
#ifndef Q_OS_WIN
#include <sys/stat.h>
#endif

namespace {

/// Libraries speak up only when something is really wrong; all else is told by the commands.
void logCriticalOnly(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtCriticalMsg || type == QtFatalMsg)
        Console::complain(message);
}

} // namespace

int main(int argc, char **argv)
{
#ifndef Q_OS_WIN
    umask(S_IRWXG | S_IRWXO); // pictures of children are saved
#endif
    qInstallMessageHandler(logCriticalOnly);
    QCoreApplication application(argc, argv);

    QString socketName; // empty: the room's bridge, or without one the service
    int timeout = AiClient::defaultTimeout;
    auto words = application.arguments().mid(1);
    while (!words.isEmpty() && words.first().startsWith('-')) {
        const auto option = words.takeFirst();
        if (option == "--help" || option == "-h") {
            Console::print(helpText());
            return Console::outputLost() ? Failure : Success;
        }
        if (option == "--direct") {
            socketName = QStringLiteral("AI");
            continue;
        }
        const bool isKnown = option == "--socket" || option == "--timeout";
        bool isGood = isKnown && !words.isEmpty();
        if (isGood && option == "--socket")
            socketName = words.takeFirst();
        else if (isGood)
            isGood = readSeconds(words.takeFirst(), &timeout) && timeout > 0;
        if (!isGood) {
            Console::complain(isKnown ? option + " needs a value that makes sense"
                                      : "unknown option " + option);
            return WrongUsage;
        }
    }
    if (words.isEmpty()) {
        std::fputs(helpText().toUtf8().constData(), stderr);
        return WrongUsage;
    }
    Console console(socketName, timeout);
    const int result = runCommand(console, words);
    return result == Success && Console::outputLost() ? Failure : result;
}

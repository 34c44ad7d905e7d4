#include "command.h"

#include <QCoreApplication>

#include <cstdio>

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
    qInstallMessageHandler(logCriticalOnly);
    QCoreApplication application(argc, argv);

    QString socketName = QStringLiteral("AI");
    int timeout = AiClient::defaultTimeout;
    auto words = application.arguments().mid(1);
    while (!words.isEmpty() && words.first().startsWith('-')) {
        const auto option = words.takeFirst();
        if (option == "--help" || option == "-h") {
            Console::print(helpText());
            return Success;
        }
        const bool isKnown = option == "--socket" || option == "--timeout";
        bool isGood = isKnown && !words.isEmpty();
        if (isGood && option == "--socket")
            socketName = words.takeFirst();
        else if (isGood)
            timeout = int(words.takeFirst().toDouble(&isGood) * 1000);
        if (!isGood || timeout <= 0) {
            Console::complain(isKnown ? option + " needs a value" : "unknown option " + option);
            return WrongUsage;
        }
    }
    if (words.isEmpty()) {
        std::fputs(helpText().toUtf8().constData(), stderr);
        return WrongUsage;
    }
    Console console(socketName, timeout);
    return runCommand(console, words);
}

#include "command.h"

#include <QFile>
#include <QSocketNotifier>

#include <functional>

#ifndef Q_OS_WIN
#include <unistd.h>
#endif

namespace {

const QCommandLineOption prettyOption{"pretty", "Print one readable line for each event instead of JSON."};
const QCommandLineOption shortOption{"short", "Leave the pictures out of the JSON."};
const QCommandLineOption drawOption{
    "draw", "Draw each event on the frame that it came with, into numbered JPEG files in this folder.",
    "dir"};
const QCommandLineOption filterOption{"filter", "Only events with these codes, separated by commas.",
                                      "codes"};

bool readStyle(const Arguments &arguments, Console::EventStyle *style)
{
    style->pretty = arguments.has("pretty");
    style->pictures = !arguments.has("short");
    style->drawFolder = arguments.value("draw");
    for (const auto &code : arguments.value("filter").split(',', Qt::SkipEmptyParts)) {
        bool isNumber = false;
        style->codes.append(code.trimmed().toUInt(&isNumber));
        if (!isNumber) {
            Console::complain(QStringLiteral("not an event code: %1").arg(code));
            return false;
        }
    }
    return true;
}

int runWatch(Console &console, const Arguments &arguments)
{
    Console::EventStyle style;
    int milliseconds = 0;
    if (!readStyle(arguments, &style) || !readFor(arguments, &milliseconds))
        return WrongUsage;
    const auto count = arguments.value("count").toInt();
    if (arguments.has("count") && count < 1) {
        Console::complain(
            QStringLiteral("--count takes a number of events, not %1").arg(arguments.value("count")));
        return WrongUsage;
    }
    if (!console.connectToService())
        return Failure;
    console.showEvents(style);
    if (console.inSession())
        return Success;
    Console::catchInterrupts();
    const auto enough = [&] { return count > 0 && console.shownEvents() >= count; };
    console.runUntil(enough, milliseconds);
    return console.isConnected() && (count == 0 || enough()) ? Success : Failure;
}

/// The lines of a file or of standard input, as they come.
class LineSource : public QObject
{
public:
    LineSource(const QString &file, std::function<void()> arrived) : m_arrived(std::move(arrived))
    {
        if (!file.isEmpty() && file != "-") {
            QFile input(file);
            m_opened = input.open(QIODevice::ReadOnly);
            add(input.readAll());
            m_ended = true;
            return;
        }
#ifdef Q_OS_WIN
        QFile input;
        m_opened = input.open(stdin, QIODevice::ReadOnly);
        add(input.readAll());
        m_ended = true;
#else
        m_notifier.reset(new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read));
        connect(m_notifier.data(), &QSocketNotifier::activated, this, &LineSource::readSome);
#endif
    }

    bool isOpen() const
    {
        return m_opened;
    }
    bool hasLine() const
    {
        return m_bytes.contains('\n') || (m_ended && !m_bytes.isEmpty());
    }
    bool atEnd() const
    {
        return m_ended && m_bytes.isEmpty();
    }

    QString takeLine()
    {
        const auto end = m_bytes.indexOf('\n');
        const auto line = end < 0 ? m_bytes : m_bytes.left(end);
        m_bytes.remove(0, end < 0 ? m_bytes.size() : end + 1);
        return QString::fromUtf8(line).trimmed();
    }

private:
    void add(const QByteArray &bytes)
    {
        m_bytes += bytes;
        m_arrived();
    }

#ifndef Q_OS_WIN
    void readSome()
    {
        char bytes[4096];
        const auto count = ::read(STDIN_FILENO, bytes, sizeof bytes);
        if (count <= 0) {
            m_ended = true;
            m_notifier->setEnabled(false);
        }
        add(QByteArray(bytes, int(std::max<ssize_t>(0, count))));
    }
#endif

    std::function<void()> m_arrived;
    QScopedPointer<QSocketNotifier> m_notifier;
    QByteArray m_bytes;
    bool m_opened = true;
    bool m_ended = false;
};

int runLine(Console &console, const QString &line)
{
    QString error;
    const auto words = splitLine(line, &error);
    if (!error.isEmpty()) {
        Console::complain(error);
        return WrongUsage;
    }
    if (words.isEmpty())
        return Success;
    if (words.first() == "session") {
        Console::complain("a session cannot start another one");
        return WrongUsage;
    }
    if (words.first() != "wait" && words.first() != "sleep")
        console.forgetEvents();
    return runCommand(console, words);
}

int runSession(Console &console, const Arguments &arguments)
{
    Console::EventStyle style;
    if (!readStyle(arguments, &style))
        return WrongUsage;
    LineSource source(arguments.at(0), [&console] { emit console.changed(); });
    if (!source.isOpen()) {
        Console::complain("cannot read " + arguments.at(0));
        return Failure;
    }
    if (!console.connectToService())
        return Failure;
    Console::catchInterrupts();
    console.setInSession(true);
    console.showEvents(style);

    int worst = Success;
    while (console.isConnected() && !Console::interrupted()) {
        if (!source.hasLine()) {
            if (source.atEnd())
                break;
            console.runUntil([&source] { return source.hasLine() || source.atEnd(); });
            continue;
        }
        const auto line = source.takeLine();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (style.pretty)
            Console::print("> " + line + '\n');
        worst = std::max(worst, runLine(console, line));
        if (worst != Success && arguments.has("stop-on-error"))
            break;
    }
    if (!console.isConnected())
        return console.isEndExpected() ? worst : Failure;
    if (arguments.has("at-end")) {
        Console::clearInterrupt();
        worst = std::max(worst, runLine(console, arguments.value("at-end")));
    }
    return worst;
}

int runWait(Console &console, const Arguments &arguments)
{
    bool isCode = false;
    bool isCount = true;
    int milliseconds = 60000;
    const auto code = arguments.at(0).toUInt(&isCode);
    const auto count = arguments.positional.size() > 1 ? arguments.at(1).toInt(&isCount) : 1;
    const auto isTime = arguments.positional.size() < 3 || readSeconds(arguments.at(2), &milliseconds);
    if (!isCode || !isCount || !isTime || count < 1) {
        Console::complain("EVENTCODE [COUNT] [SECONDS] are numbers");
        return WrongUsage;
    }
    if (!console.connectToService())
        return Failure;
    if (console.takeEvents(code, count, milliseconds))
        return Success;
    if (!Console::interrupted())
        Console::complain(QStringLiteral("event %1 did not come %2 times within %3 seconds")
                              .arg(code)
                              .arg(count)
                              .arg(milliseconds / 1000.0));
    return Failure;
}

int runSleep(Console &console, const Arguments &arguments)
{
    int milliseconds = 0;
    if (!readSeconds(arguments.at(0), &milliseconds)) {
        Console::complain(QStringLiteral("SECONDS is a number, not %1").arg(arguments.at(0)));
        return WrongUsage;
    }
    if (!console.connectToService())
        return Failure;
    if (milliseconds > 0)
        console.runUntil([] { return false; }, milliseconds);
    return console.isConnected() ? Success : Failure;
}

int runHelp(Console &, const Arguments &arguments)
{
    const auto text = helpText(arguments.at(0));
    if (text.isEmpty()) {
        Console::complain("no such command: " + arguments.at(0));
        return WrongUsage;
    }
    Console::print(text);
    return Success;
}

} // namespace

std::vector<Command> sessionCommands()
{
    return {
        {"watch",
         "[--filter CODES] [--count N] [--pretty] [--draw DIR]",
         "Prints the events of the service as they come, one JSON line each, until Ctrl-C. In a session it "
         "sets, for the rest of the session, which events are printed and how.",
         0,
         0,
         {filterOption,
          {"count", "End after so many events, with success.", "n"},
          {"for", "End after this time.", "seconds"},
          prettyOption,
          shortOption,
          drawOption},
         runWatch},
        {"session",
         "[FILE|-]",
         "Runs many commands on one connection. They stand one a line in a file or come from standard "
         "input; replies and events are printed as they come. Empty lines and lines that begin with # are "
         "skipped; words with blanks and JSON stand in quotes. Ends with the input, on Ctrl-C, and with the "
         "service. The exit code is that of the worst command.",
         0,
         1,
         {prettyOption,
          shortOption,
          drawOption,
          filterOption,
          {{"e", "stop-on-error"}, "End at the first command that fails."},
          {"at-end", "A command to run at the end, also after Ctrl-C; for example quit.", "command"}},
         runSession},
        {"wait",
         "EVENTCODE [COUNT] [SECONDS]",
         "Waits in a session for events. Counted are those of the code that came since the last other "
         "command was sent; COUNT is 1 by default. Fails after SECONDS (default 60).",
         1,
         3,
         {},
         runWait},
        {"sleep", "SECONDS", "Lets a session wait, printing events.", 1, 1, {}, runSleep},
        {"help", "[COMMAND]", "Prints the help of a command or this overview.", 0, 1, {}, runHelp},
    };
}

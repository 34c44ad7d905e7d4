#include "command.h"

#include <QTextStream>

#include <algorithm>
#include <iterator>

namespace {

const Command *findCommand(const QString &name)
{
    const auto &commands = allCommands();
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&name](const Command &command) { return command.name == name; });
    return found == commands.end() ? nullptr : &*found;
}

QString firstSentence(const QString &text)
{
    return text.left(text.indexOf('.') + 1);
}

void prepare(QCommandLineParser &parser, const Command &command)
{
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsOptions);
    parser.addOptions(command.options);
    parser.addOption({{"h", "help"}, "Prints this help."});
}

QString overview()
{
    QString text;
    QTextStream out(&text);
    out << "Usage: aictl [--direct|--socket NAME] [--timeout SECONDS] COMMAND [ARGUMENTS]\n\n"
           "The command line client of the vision service. Replies and events are JSON, one line each.\n"
           "The exit code is 0 only when the service answered with \"rsp_error\" 0; 2 is wrong usage.\n"
           "Every client that disconnects, aictl included, ends the running analyses of the service; so a\n"
           "command that starts one stays until Ctrl-C, and a session keeps one connection for many.\n"
           "Where a bridge runs (aibridge) the way goes through it, and leaving ends nothing.\n\n"
           "Options:\n"
           "  --direct           the service's own socket, also where a bridge runs\n"
           "  --socket NAME      name or full path of a socket (default: the bridge's, else AI)\n"
           "  --timeout SECONDS  how long an answer is waited for (default: 60)\n\n"
           "Commands (aictl COMMAND --help tells more):\n";
    for (const auto &command : allCommands())
        out << "  " << command.name.leftJustified(15) << firstSentence(command.description) << '\n';
    return text;
}

QString commandHelp(const Command &command)
{
    QCommandLineParser parser;
    prepare(parser, command);
    const auto generated = parser.helpText();
    return QStringLiteral("Usage: aictl %1 %2\n\n%3\n\n%4")
        .arg(command.name, command.synopsis, command.description,
             generated.mid(generated.indexOf("Options:")));
}

int wrongUsage(const QString &command, const QString &problem)
{
    Console::complain(QStringLiteral("%1; see aictl %2 --help").arg(problem, command));
    return WrongUsage;
}

} // namespace

const std::vector<Command> &allCommands()
{
    static const auto commands = [] {
        std::vector<Command> all;
        for (const auto &group : {serviceCommands(), counterCommands(), galleryCommands(), erasureCommands(),
                                  analysisCommands(), sessionCommands()})
            std::copy(group.begin(), group.end(), std::back_inserter(all));
        return all;
    }();
    return commands;
}

QString helpText(const QString &commandName)
{
    if (commandName.isEmpty())
        return overview();
    const auto *command = findCommand(commandName);
    return command ? commandHelp(*command) : QString();
}

bool readFor(const Arguments &arguments, int *milliseconds)
{
    *milliseconds = 0;
    if (!arguments.has("for") || (readSeconds(arguments.value("for"), milliseconds) && *milliseconds > 0))
        return true;
    Console::complain(QStringLiteral("--for takes seconds, not %1").arg(arguments.value("for")));
    return false;
}

int runCommand(Console &console, const QStringList &words)
{
    const auto name = words.value(0);
    const auto *command = findCommand(name);
    Console::setCommand(command ? name : QString());
    if (!command) {
        Console::complain(QStringLiteral("no such command: %1; see aictl --help").arg(name));
        return WrongUsage;
    }
    QCommandLineParser parser;
    prepare(parser, *command);
    if (!parser.parse(words))
        return wrongUsage(name, parser.errorText());
    if (parser.isSet("help")) {
        Console::print(commandHelp(*command));
        return Success;
    }
    const auto positional = parser.positionalArguments();
    if (positional.size() < command->least)
        return wrongUsage(name, "an argument is missing");
    if (command->most >= 0 && positional.size() > command->most)
        return wrongUsage(name, "too many arguments");
    return command->run(console, {positional, parser});
}

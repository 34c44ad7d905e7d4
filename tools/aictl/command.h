#pragma once

#include "arguments.h"
#include "console.h"

#include <vector>

/// Results of a command, and exit codes of the program.
enum Result
{
    Success = 0,
    Failure = 1,
    WrongUsage = 2
};

/// One command of aictl. The same table serves single calls and the lines of a session.
struct Command
{
    QString name;
    /// The arguments after the name, for the usage line: "STUDENT [DIR]".
    QString synopsis;
    /// What it does. The first sentence stands in the overview.
    QString description;
    /// How many positional arguments it takes; -1 for any number.
    int least;
    int most;
    QList<QCommandLineOption> options;
    int (*run)(Console &console, const Arguments &arguments);
};

std::vector<Command> serviceCommands();
std::vector<Command> counterCommands();
std::vector<Command> galleryCommands();
std::vector<Command> erasureCommands();
std::vector<Command> analysisCommands();
std::vector<Command> sessionCommands();

/// All of the above, in the order of the overview.
const std::vector<Command> &allCommands();

/// The overview of all commands, or the help of one of them. An unknown name gets an empty text.
QString helpText(const QString &commandName = {});

/// The time of the option "for" in milliseconds, 0 when it is not given. False, with a complaint, when it is
/// no time.
bool readFor(const Arguments &arguments, int *milliseconds);

/// Runs the command that the words name; "--help" among them prints its help instead. Wrong usage is told
/// on standard error.
int runCommand(Console &console, const QStringList &words);

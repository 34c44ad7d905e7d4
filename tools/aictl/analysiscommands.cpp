#include "command.h"

#include <QDir>

namespace {

const QList<QCommandLineOption> stayOptions{
    {"for", "Stop after this time instead of waiting for Ctrl-C.", "seconds"},
    {"pretty", "Print one readable line for each event instead of JSON."}};

/// Shows the events of an analysis that was just started until Ctrl-C, then stops it. In a session, where
/// events are shown anyway, it only returns.
int stay(Console &console, const Arguments &arguments, const QList<ai::Event> &events,
         const std::function<AiReply()> &start, const std::function<AiReply()> &stop)
{
    int milliseconds = 0;
    if (!readFor(arguments, &milliseconds))
        return WrongUsage;
    if (!console.inSession()) {
        Console::catchInterrupts();
        Console::EventStyle style;
        style.pretty = arguments.has("pretty");
        for (const ai::Event event : events)
            style.codes.append(code(event));
        console.showEvents(style);
    }
    if (!start().ok())
        return Failure;
    if (console.inSession())
        return Success;
    console.runUntil([] { return false; }, milliseconds);
    if (!console.isConnected())
        return Failure;
    Console::clearInterrupt();
    return stop().ok() ? Success : Failure;
}

bool isStop(const Arguments &arguments)
{
    return arguments.at(0) == "stop";
}

bool checkStartOrStop(const Arguments &arguments)
{
    if (arguments.at(0) == "start" || isStop(arguments))
        return true;
    Console::complain(QStringLiteral("start or stop, not %1").arg(arguments.at(0)));
    return false;
}

int startOrStop(Console &console, const Arguments &arguments, ai::Command start, ai::Command end,
                const QList<ai::Event> &events)
{
    if (!checkStartOrStop(arguments))
        return WrongUsage;
    const auto stop = [&] { return console.execute(end); };
    if (isStop(arguments))
        return stop().ok() ? Success : Failure;
    return stay(
        console, arguments, events, [&] { return console.execute(start); }, stop);
}

int runHandup(Console &console, const Arguments &arguments)
{
    return startOrStop(console, arguments, ai::Command::StartHands, ai::Command::StopHands,
                       {ai::Event::Hands});
}

int runConcentration(Console &console, const Arguments &arguments)
{
    return startOrStop(console, arguments, ai::Command::StartAttention, ai::Command::StopAttention,
                       {ai::Event::Attention, ai::Event::Smile});
}

int runAttributes(Console &console, const Arguments &)
{
    QVariantMap info;
    if (!console.executeForEvent(ai::Command::Attributes, {}, ai::Event::Attributes, &info))
        return Failure;
    console.printInfo(info);
    return Success;
}

int runTrack(Console &console, const Arguments &arguments)
{
    const auto student = arguments.at(0);
    const auto stop = [&](const QString &id) {
        return console.execute(ai::Command::StopFollowing,
                               QVariantMap{{"stuID", student}, {"requestID", id}});
    };
    if (arguments.has("stop"))
        return stop(arguments.value("stop")).ok() ? Success : Failure;
    const auto id = arguments.has("id") ? arguments.value("id") : "track-" + student;
    return stay(
        console, arguments, {ai::Event::Followed},
        [&] {
            return console.execute(ai::Command::StartFollowing, QVariantMap{{"stuID", student}}, id);
        },
        [&] { return stop(id); });
}

int runGame(Console &console, const Arguments &arguments)
{
    if (!checkStartOrStop(arguments))
        return WrongUsage;
    const auto stop = [&] { return console.execute(ai::Command::StopGame); };
    if (isStop(arguments))
        return stop().ok() ? Success : Failure;
    QVariantList students;
    for (const auto &student : arguments.positional.mid(1))
        students.append(QVariantMap{{"stuID", student}});
    if (students.isEmpty()) {
        Console::complain("nobody to play");
        return WrongUsage;
    }
    return stay(
        console, arguments, {ai::Event::GameRegions, ai::Event::Game},
        [&] {
            return console.execute(ai::Command::StartGame, QVariantMap{{"stuList", students}});
        },
        stop);
}

int runRecord(Console &console, const Arguments &arguments)
{
    if (!checkStartOrStop(arguments))
        return WrongUsage;
    if (isStop(arguments))
        return console.execute(ai::Command::StopRecording).ok() ? Success : Failure;
    // The service has a working folder of its own.
    const auto folder =
        arguments.at(1).isEmpty() ? QString() : QDir::current().absoluteFilePath(arguments.at(1));
    const auto reply = console.execute(ai::Command::StartRecording, QVariantMap{{"recordPath", folder}});
    return reply.ok() ? Success : Failure;
}

} // namespace

std::vector<Command> analysisCommands()
{
    const auto trackOptions =
        stayOptions + QList<QCommandLineOption>{
                          {"id", "Identifier of this tracking (default: track-STUDENT).", "id"},
                          {"stop", "Stop the tracking of this identifier instead of starting one.", "id"}};
    return {
        {"handup", "start|stop",
         "Reports whose hand is up. Stays and prints event 1013 until Ctrl-C, then stops the analysis.", 1, 1,
         stayOptions, runHandup},
        {"concentration", "start|stop",
         "Reports how attentive the class is, and who smiles. Stays and prints the events 1012 and 1019 "
         "until Ctrl-C, then stops the analysis.",
         1, 1, stayOptions, runConcentration},
        {"attributes",
         "",
         "Asks once for the row and the glasses of each student. Looks at the faces of the students that "
         "another analysis found last.",
         0,
         0,
         {},
         runAttributes},
        {"track", "STUDENT [--stop ID]",
         "Follows a student through the picture. Stays and prints event 1014 until Ctrl-C, then stops.", 1, 1,
         trackOptions, runTrack},
        {"game", "start STUDENT...|stop",
         "Plays the body game with some students. Stays and prints the events 1015 and 1016 until Ctrl-C, "
         "then stops the game.",
         1, -1, stayOptions, runGame},
        {"record",
         "start [DIR]|stop",
         "Records the picture, one frame in thirty. It goes on when the client leaves. Without a "
         "folder the service picks the disk with the most room.",
         1,
         2,
         {},
         runRecord},
    };
}

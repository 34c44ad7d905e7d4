#include "command.h"
#include "json.h"
#include "messages.h"

#include <QFile>

namespace {

QStringList namesOf(ai::Rows<ai::Key> keys)
{
    QStringList names;
    for (const ai::Key &key : keys)
        names.append(key.name);
    return names;
}

/// The recognisers that a client can ask for; those with an open library are loaded by default.
const QStringList openModels = namesOf(ai::recogniserKeys);
const QStringList allModels = openModels + namesOf(ai::poseNetworkKeys);

int result(const AiReply &reply)
{
    return reply.ok() ? Success : Failure;
}

int runStatus(Console &console, const Arguments &)
{
    return result(console.send(AiClient::Info, code(ai::Question::Status)));
}

int runOpen(Console &console, const Arguments &)
{
    return result(console.send(AiClient::Open, 0));
}

int runInit(Console &console, const Arguments &arguments)
{
    QStringList models = openModels;
    if (arguments.has("models"))
        models = arguments.value("models").split(',', Qt::SkipEmptyParts);
    QVariantMap data;
    for (const auto &model : models) {
        if (!allModels.contains(model)) {
            Console::complain(
                QStringLiteral("no such model: %1; there are %2").arg(model, allModels.join(", ")));
            return WrongUsage;
        }
        data[model] = true;
    }
    data["identify"] = arguments.value("identify");
    if (arguments.has("emotion")) {
        const auto emotion = arguments.value("emotion");
        if (emotion != "on" && emotion != "off") {
            Console::complain("--emotion is on or off");
            return WrongUsage;
        }
        data["enableEmotion"] = emotion == "on";
    }
    return result(console.execute(ai::Command::Initialise, data));
}

int runClose(Console &console, const Arguments &)
{
    return result(console.send(AiClient::Close, 0));
}

int runQuit(Console &console, const Arguments &)
{
    if (!console.connectToService())
        return Failure;
    console.sendSelfKill();
    console.runUntil([] { return false; }, 2000);
    if (console.isConnected() && !Console::interrupted()) {
        Console::complain(
            "the service ends when what it does is done; it waits for a camera if none has come since "
            "it was opened: start one, for example camerafeed");
        console.runUntil([] { return false; }, 8000);
    }
    if (!console.isConnected())
        return Success;
    Console::complain("the service was told to end, but is still there");
    return Failure;
}

int runReset(Console &console, const Arguments &)
{
    return result(console.execute(ai::Command::Reset));
}

int runCall(Console &console, const Arguments &arguments)
{
    bool isNumber = false;
    const auto code = arguments.at(0).toUInt(&isNumber);
    if (!isNumber) {
        Console::complain(QStringLiteral("not a code: %1").arg(arguments.at(0)));
        return WrongUsage;
    }
    auto text = arguments.at(1).toUtf8();
    if (text == "-") {
        if (console.inSession()) {
            Console::complain("in a session standard input carries the commands");
            return WrongUsage;
        }
        QFile input;
        input.open(stdin, QIODevice::ReadOnly);
        text = input.readAll();
    }
    QString error;
    const auto data = json::parse(text, &error);
    if (!error.isEmpty()) {
        Console::complain(error);
        return WrongUsage;
    }
    static const QMap<QString, AiClient::Kind> kinds{{"open", AiClient::Open},
                                                     {"close", AiClient::Close},
                                                     {"execute", AiClient::Execute},
                                                     {"info", AiClient::Info}};
    const auto kind = kinds.constFind(arguments.value("kind"));
    if (kind == kinds.constEnd()) {
        Console::complain(QStringLiteral("no such kind: %1").arg(arguments.value("kind")));
        return WrongUsage;
    }
    return result(console.send(*kind, code, data, arguments.value("id")));
}

} // namespace

std::vector<Command> serviceCommands()
{
    return {
        {"status",
         "",
         "Asks for the state of the service: 0 closed, 1 open, 2 initialised. "
         "Answered also while another command runs.",
         0,
         0,
         {},
         runStatus},
        {"open",
         "",
         "Opens the service: it starts to look for camera frames, and its store begins empty. "
         "An open service answers \"aiservice already open\", with success, and keeps its store.",
         0,
         0,
         {},
         runOpen},
        {"init",
         "[--models LIST] [--identify TEXT] [--emotion on|off]",
         "Loads the recognisers and applies the settings. The service must be open. Models that were loaded "
         "once stay wanted.",
         0,
         0,
         {{"models",
           "Models to load, separated by commas (default: all but the pose networks): " +
               allModels.join(", ") + ".",
           "list"},
          {"identify", "First part of the names of recorded files.", "text"},
          {"emotion", "Look for smiles while the attention is measured (default: as it was).", "on|off"}},
         runInit},
        {"close",
         "",
         "Closes the service: analyses, recording and students end, the process stays. Waits for a camera "
         "when none has come since the service was opened.",
         0,
         0,
         {},
         runClose},
        {"quit",
         "",
         "Ends the process of the service in order. Like close it waits for a camera when none has come "
         "since the service was opened.",
         0,
         0,
         {},
         runQuit},
        {"reset",
         "",
         "Removes all students, external faces and the store. The service stays open; to store again it has "
         "to be closed and opened.",
         0,
         0,
         {},
         runReset},
        {"call",
         "CODE [JSON|-]",
         "Sends any request, with its parameters as JSON or, with -, from standard input. Whole numbers are "
         "sent as int where they fit. The kinds open and close ignore the code.",
         1,
         2,
         {{"kind", "open, close, execute (default) or info.", "kind", "execute"},
          {"id", "The request identifier; events of the request carry it.", "id"}},
         runCall},
    };
}

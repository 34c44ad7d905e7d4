// A complete client in C++: prints whose hand is up. docs/protocol.md tells commands, events and codes.
//
//   hands [REPORTS [SOCKET]]       30 reports, of about one a second, from the service "AI"
//
// The students have to be enrolled, for example with aictl: only hands of known students are reported.

#include <aiclient.h>

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

namespace {

constexpr uint initialise = 1001; // and, as info, the question for the state
constexpr uint startHands = 1030;
constexpr uint stopHands = 1031;
constexpr uint handsEvent = 1013;
constexpr int noCameraYet = -9;

int fail(const QString &why)
{
    std::fprintf(stderr, "hands: %s\n", qPrintable(why));
    return EXIT_FAILURE;
}

/// Opens and initialises the service as far as nobody has done so; the reply to the last step, or to the one
/// that failed. Opening an open service would be harmless; a fresh one begins with an empty store.
AiReply prepare(AiClient &client)
{
    AiReply reply = client.call(AiClient::Info, initialise);
    const int state = reply.data.toMap().value("status").toInt(); // 0 closed, 1 open, 2 initialised
    if (reply.ok() && state < 1)
        reply = client.call(AiClient::Open);
    if (reply.ok() && state < 2)
        reply = client.call(
            AiClient::Execute, initialise,
            QVariantMap{
                {"faceMtcnn", true}, {"faceid", true}, {"ssd", true}, {"handup", true}, {"bodypose", true}});
    return reply;
}

/// Right after the opening the service may not have found the camera yet; it looks twice a second.
AiReply start(AiClient &client)
{
    AiReply reply;
    for (int tries = 0; tries < 20; ++tries) {
        reply = client.call(AiClient::Execute, startHands, {}, "hands");
        if (reply.error != noCameraYet)
            break;
        client.waitForMessages(500);
    }
    return reply;
}

void print(const QVariantMap &report)
{
    QStringList names;
    for (const QVariant &student : report.value("handupStudents").toList())
        names.append(student.toMap().value("stuID").toString());
    std::printf("hands up: %s\n", names.isEmpty() ? "nobody" : qPrintable(names.join(", ")));
    std::fflush(stdout);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    bool isNumber = true;
    int left = arguments.size() > 1 ? arguments[1].toInt(&isNumber) : 30;
    if (!isNumber || left < 1)
        return fail("the first argument is a number of reports");

    AiClient client;
    const auto stop = [&client] {
        const AiReply stopped = client.call(AiClient::Execute, stopHands);
        QCoreApplication::exit(stopped.ok() ? EXIT_SUCCESS : fail(stopped.errorText()));
    };
    QObject::connect(&client, &AiClient::eventReceived, [&](const AiEvent &event) {
        if (event.code != handsEvent || left == 0)
            return; // of other analyses: every event goes to every client
        print(event.info);
        if (--left == 0)
            QTimer::singleShot(0, stop);
    });
    QObject::connect(&client, &AiClient::disconnected,
                     [](const QString &reason) { QCoreApplication::exit(fail(reason)); });
    if (!client.connectToService(arguments.value(2, "AI")))
        return fail(client.errorString());
    AiReply reply = prepare(client);
    if (reply.ok())
        reply = start(client);
    if (!reply.ok())
        return fail(reply.errorText());

    // The connection has to stay for as long as the analysis is to run: whoever leaves ends all of them.
    return QCoreApplication::exec();
}

#include "console.h"

#include "errortext.h"
#include "eventtext.h"
#include "json.h"
#include "picture.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QTime>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#ifndef Q_OS_WIN
#include <poll.h>
#include <unistd.h>
#endif

namespace {

/// How long a wait goes on before Ctrl-C is looked at again, in milliseconds.
constexpr int slice = 50;

volatile std::sig_atomic_t interruptMark = 0;
bool isOutputLost = false;

QString commandName;

void markInterrupt(int signal)
{
    interruptMark = 1;
    std::signal(signal, SIG_DFL);
}

/// Nobody reads the output any more: what goes on for its sake alone has to end.
void loseOutput()
{
    isOutputLost = true;
    interruptMark = 1;
}

/// Whether the output is a pipe that is closed at its other end. Told also while nothing is written.
bool isReaderGone()
{
#ifdef Q_OS_WIN
    return false;
#else
    pollfd output{STDOUT_FILENO, 0, 0};
    return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
#endif
}

} // namespace

Console::Console(const QString &socketName, int timeout) : m_socketName(socketName), m_timeout(timeout)
{
    connect(&m_client, &AiClient::eventReceived, this, &Console::onEvent);
}

Console::~Console() = default;

bool Console::connectToService()
{
    if (tryToConnect())
        return true;
    complain(m_client.errorString());
    return false;
}

bool Console::tryToConnect()
{
    if (m_client.isConnected())
        return true;
    return m_socketName.isEmpty() ? m_client.connectToRoom() : m_client.connectToService(m_socketName);
}

QString Console::newRequestID()
{
    return QStringLiteral("aictl-%1-%2").arg(QCoreApplication::applicationPid()).arg(++m_lastID);
}

AiReply Console::exchange(AiClient::Kind kind, uint code, const QVariant &data, const QString &requestID)
{
    AiReply answer;
    if (!connectToService())
        return answer;
    // Shared with the callback, which outlives this call when Ctrl-C ends it early.
    struct Mailbox
    {
        bool done = false;
        AiReply reply;
    };
    const auto mailbox = std::make_shared<Mailbox>();
    m_client.request(
        kind, code, data, requestID,
        [mailbox](const AiReply &reply) {
            mailbox->reply = reply;
            mailbox->done = true;
        },
        m_timeout);
    while (!mailbox->done && !interrupted())
        m_client.waitForMessages(slice);
    if (!mailbox->done)
        mailbox->reply.detail = QStringLiteral("interrupted");
    return mailbox->reply;
}

AiReply Console::send(AiClient::Kind kind, uint code, const QVariant &data, const QString &requestID)
{
    auto reply = exchange(kind, code, data, requestID.isEmpty() ? newRequestID() : requestID);
    printReply(reply);
    return reply;
}

void Console::sendSelfKill()
{
    m_endExpected = true;
    m_client.request(AiClient::Close, 0, {}, QStringLiteral("self-kill"), {});
}

AiReply Console::execute(ai::Command command, const QVariant &data, const QString &requestID)
{
    return send(AiClient::Execute, code(command), data, requestID);
}

bool Console::executeForEvent(ai::Command command, const QVariant &data, ai::Event event, QVariantMap *info)
{
    m_awaitedID = newRequestID();
    m_awaitedEvent = event;
    m_awaitedCame = false;
    const auto reply = exchange(AiClient::Execute, code(command), data, m_awaitedID);
    if (reply.ok()) {
        QElapsedTimer clock;
        clock.start();
        while (!m_awaitedCame && isConnected() && !interrupted() && clock.elapsed() < m_timeout)
            m_client.waitForMessages(slice);
    } else {
        printReply(reply);
    }
    m_awaitedID.clear();
    if (!reply.ok())
        return false;
    if (!m_awaitedCame) {
        complain(QStringLiteral("event %1 did not come; does the camera deliver frames?").arg(code(event)));
        return false;
    }
    *info = std::move(m_awaitedInfo);
    m_awaitedInfo.clear();
    return true;
}

void Console::printReply(const AiReply &reply)
{
    if (reply.outcome == AiReply::Answered) {
        auto object = json::fromVariant(reply.map).toObject();
        object.remove("type");
        printJson(object);
    }
    if (!reply.ok() && !reply.errorText().isEmpty())
        complain(errorText(reply));
}

void Console::onEvent(const AiEvent &event)
{
    ++m_unclaimed[event.code];
    if (!m_awaitedID.isEmpty() && event.requestID == m_awaitedID && event.event() == m_awaitedEvent) {
        m_awaitedCame = true;
        m_awaitedInfo = event.info;
        return;
    }
    if (m_showing && (m_style.codes.isEmpty() || m_style.codes.contains(event.code)))
        show(event);
}

void Console::showEvents(const EventStyle &style)
{
    m_style = style;
    m_showing = true;
    m_shownEvents = 0;
    if (!style.drawFolder.isEmpty())
        m_camera = std::make_unique<CameraPicture>();
}

void Console::show(const AiEvent &event)
{
    ++m_shownEvents;
    if (m_style.pretty)
        print(QTime::currentTime().toString("HH:mm:ss.zzz ") + eventText(event) + '\n');
    else
        printJson(eventObject(event, m_style.pictures));
    if (m_style.drawFolder.isEmpty())
        return;
    const auto drawn = m_drawing.draw(event, [this] { return m_camera->current(); });
    if (drawn.empty())
        return;
    const auto file = QStringLiteral("%1-%2.jpg").arg(m_shownEvents, 6, 10, QChar('0')).arg(event.code);
    QString error;
    if (!picture::save(QDir(m_style.drawFolder).filePath(file), drawn, &error))
        complain(error);
}

bool Console::takeEvents(uint code, int count, int timeout)
{
    QElapsedTimer clock;
    clock.start();
    while (m_unclaimed[code] < count) {
        if (interrupted() || !isConnected() || clock.elapsed() > timeout)
            return false;
        m_client.waitForMessages(slice);
    }
    m_unclaimed[code] -= count;
    return true;
}

void Console::runUntil(const std::function<bool()> &condition, int timeout)
{
    QEventLoop loop;
    QElapsedTimer clock;
    clock.start();
    const auto check = [&] {
        if (interrupted() || !isConnected() || condition() || (timeout > 0 && clock.elapsed() >= timeout))
            loop.quit();
    };
    QTimer timer;
    connect(&timer, &QTimer::timeout, &loop, check);
    connect(this, &Console::changed, &loop, check);
    connect(&m_client, &AiClient::disconnected, &loop, check);
    connect(&m_client, &AiClient::eventReceived, &loop, check);
    timer.start(slice);
    if (isConnected())
        loop.exec();
    if (!isConnected() && !m_endExpected)
        complain(m_client.errorString());
}

void Console::setCommand(const QString &name)
{
    commandName = name;
}

void Console::catchInterrupts()
{
    std::signal(SIGINT, markInterrupt);
    std::signal(SIGTERM, markInterrupt);
}

bool Console::interrupted()
{
    if (!isOutputLost && isReaderGone())
        loseOutput();
    return interruptMark != 0;
}

void Console::clearInterrupt()
{
    interruptMark = 0;
}

bool Console::outputLost()
{
    return isOutputLost;
}

void Console::print(const QString &text)
{
    if (isOutputLost)
        return;
    if (std::fputs(text.toUtf8().constData(), stdout) >= 0 && std::fflush(stdout) == 0)
        return;
    if (errno != EPIPE) // who reads only the first lines has what he wants
        complain(
            QStringLiteral("cannot write the output: %1").arg(QString::fromLocal8Bit(std::strerror(errno))));
    loseOutput();
}

void Console::printJson(const QJsonObject &object)
{
    print(json::line(object) + '\n');
}

void Console::printInfo(const QVariantMap &info)
{
    printJson(json::fromVariant(info).toObject());
}

void Console::complain(const QString &text)
{
    const auto speaker = commandName.isEmpty() ? QString() : commandName + ": ";
    std::fputs(("aictl: " + speaker + text + '\n').toUtf8().constData(), stderr);
}

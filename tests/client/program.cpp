#include "program.h"

#include "eventually.h"

#include <QJsonDocument>

#include <csignal>

Program::Program(const QString &program, const QStringList &arguments, const QByteArray &input,
                 const QString &temporaryFolder)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    if (!temporaryFolder.isEmpty())
        environment.insert("TMPDIR", temporaryFolder);
    m_process.setProcessEnvironment(environment);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, [this] { read(); });
    QObject::connect(&m_process, &QProcess::readyReadStandardError, [this] { read(); });
    m_process.start(program, arguments);
    m_process.waitForStarted();
    m_process.write(input);
    m_process.closeWriteChannel();
}

Program::~Program()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.kill();
    m_process.waitForFinished();
}

void Program::read()
{
    m_out += m_process.readAllStandardOutput();
    m_errors += m_process.readAllStandardError();
}

int Program::exitCode()
{
    const bool ended = eventually([this] { return m_process.state() == QProcess::NotRunning; }, 20000);
    read();
    return ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

bool Program::hasLines(int count)
{
    return eventually([&] { return lines().size() >= count; });
}

void Program::interrupt() const
{
    ::kill(pid_t(m_process.processId()), SIGINT);
}

QJsonObject Program::json(int line) const
{
    return QJsonDocument::fromJson(lines().value(line).toUtf8()).object();
}

int exitCodeOf(const QString &program, const QStringList &arguments, const QByteArray &input)
{
    return Program(program, arguments, input).exitCode();
}

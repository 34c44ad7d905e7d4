#pragma once

#include "eventually.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <csignal>

/// A program under test, running beside the test; in the same temporary folder unless another is given.
class Program
{
public:
    Program(const QString &program, const QStringList &arguments, const QByteArray &input = {},
            const QString &temporaryFolder = QDir::tempPath())
    {
        auto environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TMPDIR", temporaryFolder);
        m_process.setProcessEnvironment(environment);
        m_process.start(program, arguments);
        m_process.waitForStarted();
        m_process.write(input);
        m_process.closeWriteChannel();
    }
    ~Program()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

    /// Waits for the end; -1 when it does not come within 20 seconds, or comes by a signal.
    int exitCode()
    {
        const bool ended = eventually([this] { return m_process.state() == QProcess::NotRunning; }, 20000);
        return ended && m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    /// Waits until standard output has so many lines.
    bool hasLines(int count)
    {
        return eventually([&] { return lines().size() >= count; });
    }
    void interrupt() const { ::kill(pid_t(m_process.processId()), SIGINT); }
    void terminate() { m_process.terminate(); }

    QStringList lines()
    {
        m_out += m_process.readAllStandardOutput();
        return QString::fromUtf8(m_out).split('\n', Qt::SkipEmptyParts);
    }
    QJsonObject json(int line) { return QJsonDocument::fromJson(lines().value(line).toUtf8()).object(); }
    std::string errors()
    {
        m_errors += m_process.readAllStandardError();
        return m_errors.toStdString();
    }

private:
    QProcess m_process;
    QByteArray m_out;
    QByteArray m_errors;
};

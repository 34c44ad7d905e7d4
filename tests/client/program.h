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
        m_process.waitForStarted(-1);
        m_process.write(input);
        m_process.closeWriteChannel();
    }
    ~Program()
    {
        m_process.kill();
        m_process.waitForFinished(-1);
    }

    /// Waits for the end; -1 when it comes by a signal.
    int exitCode()
    {
        eventually([this] { return hasEnded(); });
        return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
    }
    /// Waits until standard output has so many lines. False when the program ends with fewer.
    bool hasLines(int count)
    {
        eventually([&] { return lines().size() >= count || hasEnded(); });
        return lines().size() >= count;
    }
    pid_t processId() const { return pid_t(m_process.processId()); }
    void interrupt() const { ::kill(processId(), SIGINT); }
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
    bool hasEnded() const { return m_process.state() == QProcess::NotRunning; }

    QProcess m_process;
    QByteArray m_out;
    QByteArray m_errors;
};

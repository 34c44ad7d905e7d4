#pragma once

#include <QJsonObject>
#include <QProcess>
#include <QStringList>

/// A program under test, running beside the test; in the same temporary folder unless another is given.
class Program
{
public:
    Program(const QString &program, const QStringList &arguments, const QByteArray &input = {},
            const QString &temporaryFolder = {});
    ~Program();

    /// Waits for the end; -1 when it does not come within 20 seconds, or comes by a signal.
    int exitCode();
    /// Waits until standard output has so many lines.
    bool hasLines(int count);
    void interrupt() const;
    void terminate() { m_process.terminate(); }

    QStringList lines() const { return QString::fromUtf8(m_out).split('\n', Qt::SkipEmptyParts); }
    QJsonObject json(int line) const;
    std::string errors() const { return m_errors.toStdString(); }

private:
    void read();

    QProcess m_process;
    QByteArray m_out;
    QByteArray m_errors;
};

/// Runs to the end and returns the exit code.
int exitCodeOf(const QString &program, const QStringList &arguments, const QByteArray &input = {});

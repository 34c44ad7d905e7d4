#pragma once

#include "testclient.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

/**
 * The real service in a folder of its own, which is its working directory and its temporary folder: socket,
 * logs, dumps, store and shared-memory keys lie in there, so tests can run at the same time. The folder goes
 * with the object, and with it the segments and semaphores of the folder; it stays when the test has failed.
 *
 * Needs no event loop. A wait ends with what it waits for, or when the process does.
 */
class ServiceProcess
{
public:
    ServiceProcess();
    ~ServiceProcess();

    /// Another program than the service as it was built, for example an installed one.
    void setProgram(const QString &path) { program = path; }
    /// Holds from the next start.
    void setEnvironment(const QString &name, const QString &value) { environment.insert(name, value); }

    /// True as soon as the service listens; false when it ends before. Nothing connects to it, since the end
    /// of any connection stops what runs.
    bool start(const QStringList &arguments = {});
    /// Starts a process that is not expected to listen.
    bool launch(const QStringList &arguments);

    /// Ends the process as a crash would: nothing is flushed, nothing is closed.
    void crash();
    void signal(int number);
    bool waitForExit();
    /// The service lives and serves a new client.
    ::testing::AssertionResult alive() const;
    bool isRunning() const { return process.state() == QProcess::Running; }
    /// The exit code; -1 for a process that runs or has crashed.
    int exitCode() const;
    qint64 processId() const { return process.processId(); }

    QString home() const { return folder.path(); }
    QString filePath(const QString &name) const { return folder.filePath(name); }
    QString socketPath() const { return filePath("AI"); }

    /// What the process wrote to its standard output and standard error, over all starts.
    QByteArray standardOutput() const { return content("stdout.txt"); }
    QByteArray standardError() const { return content("stderr.txt"); }
    /// The log files, which reach the disk with a delay of some seconds.
    QByteArray log() const;
    /// Waits until the standard output, where log lines appear within milliseconds, holds the text `times`
    /// times. False when the process ends before.
    bool waitForOutput(const QByteArray &text, int times = 1) const;

    /// Kilobytes that the process has in memory; 0 when it is gone.
    qint64 residentKilobytes() const;

    /// Of a file below its home; nothing when there is none.
    QByteArray content(const QString &name) const;

private:
    QTemporaryDir folder;
    QProcess process;
    QProcessEnvironment environment;
    QString program;
};

/**
 * A camera: a process that puts frames of 1920 by 1080 RGB pixels into the segment "Camera" of a folder. Ends
 * with the object.
 */
class FrameSource
{
public:
    /// @param serviceHome temporary folder of the service that is to see the frames
    explicit FrameSource(QString serviceHome) : home(std::move(serviceHome)) {}
    ~FrameSource() { stop(); }

    /// Returns when the segment is there. Without a file of pixels the frames are a moving pattern; the ring,
    /// and cameras that do harm, are told in framesource.cpp.
    bool start(int intervalMilliseconds = 40, const QString &pixelFile = {}, const QStringList &ring = {});
    /// Waits each time for some frames more, of a camera that was told its ring.
    bool isWriting();
    /// Ends it without any tidying, as a killed camera program would.
    void stop();
    /// Lets it tidy up.
    void end();

private:
    QString home;
    QProcess process;
};

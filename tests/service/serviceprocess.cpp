#include "serviceprocess.h"

#include "eventually.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>

#include <csignal>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>

namespace {

/// Tells one socket file from another that is later put in its place.
QString fileIdentity(const QString &path)
{
    struct stat status = {};
    if (stat(QFile::encodeName(path).constData(), &status) != 0)
        return {};
    return QString("%1 %2 %3").arg(status.st_ino).arg(status.st_ctim.tv_sec).arg(status.st_ctim.tv_nsec);
}

} // namespace

// Beside the temporary folder of the test program and not in it, which goes with the program.
ServiceProcess::ServiceProcess()
    : folder(QDir::tempPath() + "-service-XXXXXX"),
      environment(QProcessEnvironment::systemEnvironment()),
      program(AISERVICE_BINARY)
{
    environment.insert("TMPDIR", home());
    process.setWorkingDirectory(home());
    // Files, because a pipe that nobody reads would block the process.
    process.setStandardOutputFile(filePath("stdout.txt"), QIODevice::Append);
    process.setStandardErrorFile(filePath("stderr.txt"), QIODevice::Append);
}

ServiceProcess::~ServiceProcess()
{
    crash();
    removeSharedMemory(home());
    if (::testing::Test::HasFailure()) {
        folder.setAutoRemove(false);
        qWarning("what the service left is in %s", qPrintable(home()));
    }
}

bool ServiceProcess::start(const QStringList &arguments, int milliseconds)
{
    const QString before = fileIdentity(socketPath());
    if (!launch(arguments))
        return false;
    return eventually(
               [&] {
                   const QString now = fileIdentity(socketPath());
                   return !isRunning() || (!now.isEmpty() && now != before);
               },
               milliseconds) &&
           isRunning();
}

bool ServiceProcess::launch(const QStringList &arguments)
{
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    return process.waitForStarted(10000);
}

void ServiceProcess::crash()
{
    if (!isRunning())
        return;
    process.kill();
    process.waitForFinished(10000);
}

void ServiceProcess::signal(int number)
{
    if (isRunning())
        ::kill(static_cast<pid_t>(processId()), number);
}

bool ServiceProcess::waitForExit(int milliseconds)
{
    return !isRunning() || process.waitForFinished(milliseconds);
}

int ServiceProcess::exitCode() const
{
    const bool exited = !isRunning() && process.exitStatus() == QProcess::NormalExit;
    return exited ? process.exitCode() : -1;
}

QByteArray ServiceProcess::log() const
{
    QByteArray lines;
    QDirIterator files(filePath("Orelia/logs"), QDir::Files);
    while (files.hasNext()) {
        QFile file(files.next());
        if (file.open(QIODevice::ReadOnly))
            lines += file.readAll();
    }
    return lines;
}

bool ServiceProcess::waitForOutput(const QByteArray &text, int times, int milliseconds) const
{
    return eventually([&] { return standardOutput().count(text) >= times; }, milliseconds);
}

QByteArray ServiceProcess::content(const QString &name) const
{
    QFile file(filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

qint64 ServiceProcess::statusValue(const QByteArray &name) const
{
    QFile file(QString("/proc/%1/status").arg(processId()));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (line.startsWith(name))
            return line.mid(name.size()).simplified().split(' ').first().toLongLong();
    }
    return 0;
}

void removeSharedMemory(const QString &folder)
{
    const auto keyFiles = QDir(folder).entryInfoList({"qipc_*"}, QDir::Files | QDir::System | QDir::Hidden);
    for (const QFileInfo &file : keyFiles) {
        const key_t key = ftok(QFile::encodeName(file.filePath()).constData(), 'Q');
        if (key == -1)
            continue;
        if (file.fileName().startsWith("qipc_sharedmemory_"))
            shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        const int semaphore = semget(key, 0, 0);
        if (semaphore != -1)
            semctl(semaphore, 0, IPC_RMID);
    }
}

bool FrameSource::start(int intervalMilliseconds, const QString &pixelFile)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TMPDIR", home);
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QStringList arguments{QString::number(intervalMilliseconds)};
    if (!pixelFile.isEmpty())
        arguments.append(pixelFile);
    process.start(FRAMESOURCE_BINARY, arguments);
    return process.waitForReadyRead(10000) && process.readLine() == "writing\n";
}

void FrameSource::stop()
{
    process.kill();
    process.waitForFinished(10000);
}

#include "serviceprocess.h"

#include "eventually.h"

#include <QDateTime>
#include <QDir>
#include <QFile>

#include <csignal>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

/// Removes the System V segments and semaphores whose key files lie in a folder. Their keys come from the
/// inodes of these files, so they have to go before the folder does.
void removeSharedMemory(const QString &folder)
{
    const auto keyFiles = QDir(folder).entryInfoList({"qipc_*"}, QDir::Files | QDir::System | QDir::Hidden);
    for (const QFileInfo &file : keyFiles) {
        const key_t key = ftok(QFile::encodeName(file.filePath()).constData(), 'Q');
        if (key == -1)
            continue;
        if (file.fileName().startsWith("qipc_sharedmemory_"))
            shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
        semctl(semget(key, 0, 0), 0, IPC_RMID);
    }
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

bool ServiceProcess::start(const QStringList &arguments)
{
    // A service that was killed has left its socket there.
    const QDateTime before = QFileInfo(socketPath()).metadataChangeTime();
    const auto listens = [&] {
        const QFileInfo file(socketPath());
        return file.exists() && file.metadataChangeTime() != before;
    };
    return launch(arguments) && eventually([&] { return !isRunning() || listens(); }) && isRunning();
}

bool ServiceProcess::launch(const QStringList &arguments)
{
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    return process.waitForStarted(-1);
}

void ServiceProcess::crash()
{
    process.kill();
    process.waitForFinished(-1);
}

void ServiceProcess::signal(int number)
{
    if (isRunning())
        ::kill(static_cast<pid_t>(processId()), number);
}

bool ServiceProcess::waitForExit()
{
    return !isRunning() || process.waitForFinished(-1);
}

int ServiceProcess::exitCode() const
{
    return !isRunning() && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

::testing::AssertionResult ServiceProcess::alive() const
{
    if (isRunning() && TestClient(socketPath()).info(1001)["rsp_error"] == 0)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << standardError().right(2000).constData();
}

QByteArray ServiceProcess::log() const
{
    QByteArray lines;
    for (const QString &name : QDir(filePath("Orelia/logs")).entryList(QDir::Files))
        lines += content("Orelia/logs/" + name);
    return lines;
}

bool ServiceProcess::waitForOutput(const QByteArray &text, int times) const
{
    const auto isThere = [&] { return standardOutput().count(text) >= times; };
    return eventually([&] { return isThere() || !isRunning(); }) && isThere();
}

QByteArray ServiceProcess::content(const QString &name) const
{
    QFile file(filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

qint64 ServiceProcess::residentKilobytes() const
{
    QFile file(QString("/proc/%1/statm").arg(processId()));
    file.open(QIODevice::ReadOnly);
    return file.readAll().split(' ').value(1).toLongLong() * sysconf(_SC_PAGESIZE) / 1024;
}

bool FrameSource::start(int intervalMilliseconds, const QString &pixelFile, const QStringList &ring)
{
    auto environment = QProcessEnvironment::systemEnvironment();
    environment.insert("TMPDIR", home);
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.start(FRAMESOURCE_BINARY, QStringList{QString::number(intervalMilliseconds), pixelFile} + ring);
    return isWriting();
}

bool FrameSource::isWriting()
{
    return (process.canReadLine() || process.waitForReadyRead(-1)) && process.readLine() == "writing\n";
}

void FrameSource::end()
{
    process.terminate();
    process.waitForFinished(-1);
}

void FrameSource::stop()
{
    process.kill();
    process.waitForFinished(-1);
}

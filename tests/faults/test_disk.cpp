// A disk that is full, or that may not be written to. A small file system of its own, in a mount namespace of
// the service, holds its working folder, its logs, dumps and recordings; the test reaches it through /proc.

#include "faultyservice.h"

#include <QFile>

#include <csignal>
#include <unistd.h>

namespace {

class DiskFaults : public FaultTest
{
protected:
    void SetUp() override
    {
        QProcess probe;
        probe.start("unshare", {namespaceOption(), "mount", "-t", "tmpfs", "none", service.home()});
        if (!probe.waitForFinished(-1) || probe.exitCode() != 0)
            GTEST_SKIP() << "needs the right to mount namespaces";
        service.setProgram("unshare");
        QDir(service.home()).mkpath("disk");
    }

    static QString namespaceOption() { return geteuid() == 0 ? "-m" : "-rm"; }
    /// Arguments of unshare that start the service on a disk of its own. `prepare` runs in its folder.
    QStringList onTinyDisk(const QString &prepare) const
    {
        const QString script =
            "mount -t tmpfs -o size=24m tiny disk && cd disk && mkdir work Orelia video && "
            "ln -s disk/Orelia .. && " +
            prepare + " && cd work && exec \"$0\"";
        return {namespaceOption(), "sh", "-ec", script, AISERVICE_BINARY};
    }
    QString onDisk(const QString &name) const
    {
        return QString("/proc/%1/root%2/disk/%3").arg(service.processId()).arg(service.home(), name);
    }
    /// Until nothing more goes onto it.
    void fillDisk()
    {
        QFile filler(onDisk("filler"));
        ASSERT_TRUE(filler.open(QFile::WriteOnly | QFile::Unbuffered));
        for (const int size : {1 << 20, 4096, 1}) {
            const QByteArray bytes(size, 'x');
            while (filler.write(bytes) == size) {
            }
        }
    }
    /// Read from a copy: SQLite would look for the place of the file itself.
    QStringList rows() const
    {
        const QString copy = service.filePath("copy");
        QFile::remove(copy);
        EXPECT_TRUE(QFile::copy(onDisk("work/ai.data"), copy));
        return storedStudents(copy);
    }
};

TEST_F(DiskFaults, AFullDiskCostsWhatWasToBeWritten)
{
    ASSERT_TRUE(camera.start(10));
    startService(onTinyDisk("true"));
    openClass();
    ASSERT_EQ(enrol({"Ada"}), QStringList{"Ada"});
    const QString videoFolder = service.filePath("disk/video");
    ASSERT_EQ(code(1039, {{"recordPath", videoFolder}}), 0);
    ASSERT_FALSE(client->event(1020).isEmpty());

    fillDisk();
    ASSERT_EQ(code(1030), 0);
    EXPECT_FALSE(client->event(1013).isEmpty());
    EXPECT_EQ(enrol({"Ben"}), QStringList{"Ben"});
    EXPECT_TRUE(service.waitForOutput("sqlite exec add student failed,error: "));
    EXPECT_TRUE(eventually([&] { return service.standardError().contains("LOG ERROR"); }));
    EXPECT_EQ(code(1040), 0);
    EXPECT_EQ(code(1039, {{"recordPath", videoFolder}}), 0);
    EXPECT_FALSE(client->event(1020).isEmpty());
    EXPECT_EQ(code(1040), 0);
    EXPECT_EQ(studentsOf(*client), QStringList({"Ada", "Ben"}));
    EXPECT_EQ(rows(), QStringList{"Ada"});

    ASSERT_TRUE(QFile::remove(onDisk("filler")));
    EXPECT_EQ(enrol({"Cleo"}), QStringList{"Cleo"});
    EXPECT_EQ(rows(), QStringList({"Ada", "Cleo"}));
    EXPECT_TRUE(service.alive());
}

TEST_F(DiskFaults, AReadOnlyDiskCostsStoreAndRecording)
{
    ASSERT_TRUE(camera.start(10));
    startService(
        onTinyDisk("mkdir ../logs && mount -o remount,ro . && rm ../Orelia && ln -s logs ../Orelia"));
    openClass();
    EXPECT_TRUE(service.waitForOutput("database open failed,error: "));
    EXPECT_EQ(enrol({"Ada"}), QStringList{"Ada"});
    EXPECT_EQ(code(1039, {{"recordPath", service.filePath("disk/video/more")}}), 0);
    EXPECT_TRUE(service.waitForOutput("record path check failed"));
    EXPECT_EQ(code(1040), -15);
    // A folder that is there passes the check; its file can't be made, and nothing else happens.
    EXPECT_EQ(code(1039, {{"recordPath", service.filePath("disk/video")}}), 0);
    EXPECT_FALSE(client->event(1020).isEmpty());
    EXPECT_EQ(code(1040), 0);
    EXPECT_TRUE(service.waitForOutput(".mp4: Read-only file system"));
    EXPECT_EQ(studentsOf(*client), QStringList{"Ada"});
}

#if !AI_SANITIZED // whose writes can't be intercepted

using FrozenDisk = FaultTest;

TEST_F(FrozenDisk, ARecordingHoldsUpNobodyForLong)
{
    startClass(100);
    ASSERT_EQ(code(1039, {{"recordPath", service.filePath("video")}}), 0);
    ASSERT_FALSE(client->event(1020).isEmpty());
    service.faults.frozen = true;
    EXPECT_EQ(client->close()["rsp_error"], QVariant(0));
    EXPECT_TRUE(service.waitForOutput("[VideoRecorder] file not complete after 5 s: "));
    // The next class isn't held up, and neither is the end.
    openClass();
    EXPECT_EQ(code(1039, {{"recordPath", service.filePath("video")}}), 0);
    EXPECT_EQ(code(1040), 0);
    client->send(makeRequest(ai::Kind::Close, 0, {}, "self-kill"));
    EXPECT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), 0);
}

#endif

/// Nothing else could be told to anybody: it ends, at once and saying why.
TEST_F(DiskFaults, NoLogFileNoService)
{
    ASSERT_TRUE(service.launch(onTinyDisk("mkdir Orelia/logs && mount -o remount,ro .")));
    ASSERT_TRUE(service.waitForExit());
    EXPECT_EQ(service.exitCode(), -1);
    EXPECT_TRUE(service.standardError().contains("Failed opening file"));
}

TEST_F(DiskFaults, ACrashOnAFullDiskEndsTheProcessWithoutADump)
{
    startService(onTinyDisk("true"));
    fillDisk();
    service.signal(SIGSEGV);
    EXPECT_TRUE(service.waitForExit());
    EXPECT_NE(service.exitCode(), 0);
    EXPECT_TRUE(service.waitForOutput("callback"));
}

} // namespace

#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QFile>
#include <QProcess>

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// Runs a program to its end and returns its output, both streams; empty, with a failure, unless it ends
/// well.
std::string run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool ended = process.waitForFinished(60000);
    const std::string output = process.readAll().toStdString();
    if (ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        return output;
    ADD_FAILURE() << program.toStdString() << ' ' << arguments.join(' ').toStdString() << ":\n" << output;
    return {};
}

/// An empty folder, into which the package is put.
class Package : public ::testing::Test
{
protected:
    QString path(const QString &name) const { return folder.filePath(name); }

    /// Starts the service below the prefix, and asks and initialises it with the client from there.
    void expectService(const QString &prefix)
    {
        const QString bin = prefix + "/" BIN_FOLDER "/";
        ServiceProcess service;
        service.setProgram(bin + "AIService");
        service.setEnvironment("LD_LIBRARY_PATH", "");
        ASSERT_TRUE(service.start()) << service.standardError().constData();
        const auto client = [&](const QString &command) {
            return run(bin + "aictl", {"--socket", service.socketPath(), command});
        };
        EXPECT_THAT(client("status"), HasSubstr("\"version\":\"0.8\""));
        client("open");
        // Every recogniser finds its file: the model folder is there and complete.
        client("init");
        EXPECT_THAT(client("status"), HasSubstr("\"status\":2"));

        QFile maps(QString("/proc/%1/maps").arg(service.processId()));
        ASSERT_TRUE(maps.open(QIODevice::ReadOnly));
        const std::string loaded = maps.readAll().toStdString();
        const QString recogniser = prefix + "/" HOME_FOLDER "/libFaceIDDetection.so";
        EXPECT_THAT(loaded, HasSubstr(QDir(recogniser).canonicalPath().toStdString()));
        EXPECT_THAT(loaded, Not(HasSubstr(BUILD_FOLDER)));
    }

private:
    QTemporaryDir folder;
};

TEST_F(Package, AnInstalledServiceRunsFromItsOwnFiles)
{
    run(CMAKE_PROGRAM, {"--install", BUILD_FOLDER, "--prefix", path("there")});
    // A tree that was moved finds everything again.
    ASSERT_TRUE(QDir().rename(path("there"), path("elsewhere")));
    expectService(path("elsewhere"));
    EXPECT_THAT(run(path("elsewhere/" BIN_FOLDER "/camerafeed"), {"--help"}), HasSubstr("camerafeed"));
}

TEST_F(Package, OthersBuildClientsAndRecognisersWithIt)
{
    run(CMAKE_PROGRAM, {"--install", BUILD_FOLDER, "--prefix", path("root")});
    run(CMAKE_PROGRAM, {"-G", "Ninja", "-S", SOURCE_FOLDER "/consumer", "-B", path("consumer"),
                        "-DCMAKE_PREFIX_PATH=" + path("root")});
    run(CMAKE_PROGRAM, {"--build", path("consumer")});

    ServiceProcess service;
    service.setProgram(path("root/" BIN_FOLDER "/AIService"));
    service.setEnvironment("LD_LIBRARY_PATH", path("consumer"));
    ASSERT_TRUE(service.start()) << service.standardError().constData();
    EXPECT_EQ(run(path("consumer/statusclient"), {service.socketPath()}), "status 2\n");
    EXPECT_EQ(service.standardError(), "somebody else's recogniser\n");
}

TEST_F(Package, TheDebianPackageHoldsARunningService)
{
    if (QString(DPKG_DEB_PROGRAM).isEmpty())
        GTEST_SKIP() << "dpkg-deb is not installed";
    run(CPACK_PROGRAM, {"--config", BUILD_FOLDER "/CPackConfig.cmake", "-G", "DEB", "-B", path("packed")});
    const QStringList files = QDir(path("packed")).entryList({"aiservice_*.deb"});
    ASSERT_EQ(files.size(), 1);
    const QString file = path("packed/" + files.first());
    const std::string depends = run(DPKG_DEB_PROGRAM, {"--field", file, "Depends"});
    EXPECT_THAT(depends, HasSubstr("libqt5sql5-sqlite"));
    EXPECT_THAT(depends, HasSubstr("libqt5gui5"));
    run(DPKG_DEB_PROGRAM, {"--extract", file, path("root")});
    expectService(path("root/usr"));
}

} // namespace

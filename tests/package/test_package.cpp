#include "faultcontrol.h"
#include "serviceprocess.h"

#include <gmock/gmock.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRegularExpression>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

/// Runs a program to its end, which has to be a good one, and returns its output, both streams.
std::string run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool ended = process.waitForFinished(-1);
    std::string output = process.readAll().toStdString();
    EXPECT_TRUE(ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0)
        << program.toStdString() << ' ' << arguments.join(' ').toStdString() << ":\n"
        << output;
    return output;
}

/// The files that the process has mapped, its libraries among them.
std::string filesOf(const ServiceProcess &service)
{
    QFile maps(QString("/proc/%1/maps").arg(service.processId()));
    EXPECT_TRUE(maps.open(QIODevice::ReadOnly));
    return maps.readAll().toStdString();
}

/// The folders of a program's RUNPATH; an empty one is the working folder.
QStringList runPath(const QString &program)
{
    const QString dynamic = QString::fromStdString(run("readelf", {"--dynamic", program}));
    return QRegularExpression("runpath: \\[(.*)\\]").match(dynamic).captured(1).split(':');
}

/// The links of the pages below a folder that lead to no file.
QStringList brokenLinks(const QString &folder)
{
    const QRegularExpression link("\\]\\((?!https?:)([^)#]+)[^)]*\\)");
    QStringList broken;
    int links = 0;
    QDirIterator pages(folder, {"*.md"}, QDir::Files, QDirIterator::Subdirectories);
    while (pages.hasNext()) {
        QFile page(pages.next());
        EXPECT_TRUE(page.open(QIODevice::ReadOnly));
        for (auto matches = link.globalMatch(QString::fromUtf8(page.readAll())); matches.hasNext(); ++links) {
            const QString target = matches.next().captured(1);
            if (!QFileInfo::exists(pages.fileInfo().dir().filePath(target)))
                broken.append(page.fileName() + ": " + target);
        }
    }
    EXPECT_GT(links, 10);
    return broken;
}

TEST(Package, TheDebianPackageMayLieAnywhereAndOthersBuildWithIt)
{
    const QTemporaryDir folder;
    const QString build = BUILD_FOLDER;
    run(CPACK_PROGRAM, {"--config", build + "/CPackConfig.cmake", "-G", "DEB", "-B", folder.path()});
    const QString file = folder.filePath(QDir(folder.path()).entryList({"aiservice_*.deb"}).value(0));
    const std::string depends = run("dpkg-deb", {"--field", file, "Depends"});
    EXPECT_THAT(depends, AllOf(HasSubstr("libqt5sql5-sqlite"), HasSubstr("libqt5gui5")));
    EXPECT_THAT(depends, AllOf(Not(HasSubstr("libqt5widgets5")), Not(HasSubstr("libgl1"))));
    run("dpkg-deb", {"--extract", file, folder.path()});
    const QString headers = QDir(folder.path()).entryList({"libaiclient-dev_*.deb"}).value(0);
    run("dpkg-deb", {"--extract", folder.filePath(headers), folder.path()});

    const QString root = folder.filePath("usr");
    const QString bin = root + "/" BIN_FOLDER "/";
    EXPECT_THAT(run(bin + "camerafeed", {"--help"}), HasSubstr("camerafeed"));
    for (const QString &folderOfPrograms : {bin, QString(BUILD_FOLDER "/bin/")}) {
        for (const char *program : {"AIService", "aictl"})
            EXPECT_FALSE(runPath(folderOfPrograms + program).contains("")) << program;
    }
#ifdef WITH_VIEWER
    EXPECT_FALSE(QFile::exists(bin + "classview")) << "a package of its own";
    const QString viewer =
        folder.filePath(QDir(folder.path()).entryList({"aiservice-viewer_*.deb"}).value(0));
    EXPECT_THAT(run("dpkg-deb", {"--field", viewer, "Depends"}),
                AllOf(HasSubstr("aiservice (="), HasSubstr("libqt5widgets5"), HasSubstr("libqt5svg5")));
    run("dpkg-deb", {"--extract", viewer, folder.path()});
    EXPECT_THAT(run("env", {"QT_QPA_PLATFORM=offscreen", bin + "classview", "--help"}),
                HasSubstr("--screenshot"));
    EXPECT_TRUE(QFile::exists(root + "/share/applications/aiservice-viewer.desktop"));
#endif
    ServiceProcess service;
    service.setProgram(bin + "AIService");
    service.setEnvironment("LD_LIBRARY_PATH", "");
    ASSERT_TRUE(service.start()) << service.standardError().constData();
    const auto client = [&](const QString &command) {
        return run(bin + "aictl", {"--socket", service.socketPath(), command});
    };
    EXPECT_THAT(client("status"), HasSubstr("\"version\":\"0.8\""));
    client("open");
    client("init"); // every recogniser finds its file: the model folder is there and complete
    const std::string own = (root + "/" HOME_FOLDER "/libHandupClassify.so").toStdString();
    EXPECT_THAT(filesOf(service), AllOf(HasSubstr(own), Not(HasSubstr(BUILD_FOLDER))));
    EXPECT_EQ(brokenLinks(root + "/share/doc/aiservice").join('\n').toStdString(), "");

    const QString examples = folder.filePath("examples");
    run(CMAKE_PROGRAM, {"-G", "Ninja", "-S", root + "/share/doc/aiservice/examples", "-B", examples,
                        "-DCMAKE_PREFIX_PATH=" + root});
    run(CMAKE_PROGRAM, {"--build", examples});
    service.crash();
    FrameSource camera(service.home());
    ASSERT_TRUE(camera.start());
    FaultControl::map(service.filePath("faults").toLocal8Bit().constData());
    service.setEnvironment("AI_FAULTS", service.filePath("faults"));
    service.setEnvironment("LD_LIBRARY_PATH", FAULTY_RECOGNISERS); // they find three people in every picture
    ASSERT_TRUE(service.start()) << service.standardError().constData();
    EXPECT_EQ(run(examples + "/hands", {"1", service.socketPath()}),
              "hands up: nobody\n"); // none is enrolled
    service.crash();

    const QString vendor = folder.filePath("vendor");
    run(CMAKE_PROGRAM, {"-G", "Ninja", "-S", QString(SOURCE_FOLDER) + "/vendor", "-B", vendor,
                        "-DCMAKE_PREFIX_PATH=" + root});
    run(CMAKE_PROGRAM, {"--build", vendor});
    service.setEnvironment("LD_LIBRARY_PATH", vendor); // in the place of its own
    ASSERT_TRUE(service.start()) << service.standardError().constData();
    EXPECT_THAT(filesOf(service),
                AllOf(HasSubstr(vendor.toStdString() + "/libHandupClassify.so"), Not(HasSubstr(own))));
}

} // namespace

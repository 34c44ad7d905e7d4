// What the service leaves of the children that it has seen: on the disk, for other users, after an erasure.

#include "classroom.h"
#include "picture.h"
#include "program.h"

#include <gmock/gmock.h>
#include <opencv2/imgcodecs.hpp>

#include <QDateTime>
#include <QDirIterator>
#include <QSet>

#include <sys/stat.h>

namespace {

using ::testing::HasSubstr;

/// Files and folders below a folder.
QStringList entriesOf(const QString &folder)
{
    QStringList paths;
    QDirIterator entries(folder, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext())
        paths.append(entries.next());
    return paths;
}

/// The files below a folder, or the file, that hold one of these pieces.
QStringList filesWith(const QList<QByteArray> &pieces, const QString &folder)
{
    QStringList found;
    for (const QString &path : QStringList(folder) + entriesOf(folder)) {
        QFile file(path);
        const QByteArray content = file.open(QFile::ReadOnly) ? file.readAll() : QByteArray();
        if (std::any_of(pieces.begin(), pieces.end(), [&](const auto &one) { return content.contains(one); }))
            found.append(path);
    }
    return found;
}

class PrivacyTest : public ClassroomTest<ServiceProcess>
{
protected:
    PrivacyTest() : maskBefore(umask(0)) {}
    ~PrivacyTest() override
    {
        client.reset();
        umask(maskBefore);
    }

    QString path(const QString &name) const { return service.filePath(name); }
    void write(const QString &name, const QByteArray &content, int ageInDays = 0) const
    {
        QDir().mkpath(QFileInfo(path(name)).path());
        QFile file(path(name));
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        file.write(content);
        file.flush();
        file.setFileTime(QDateTime::currentDateTime().addDays(-ageInDays), QFileDevice::FileModificationTime);
    }
    int mode(const QString &file) const
    {
        struct stat entry = {};
        lstat(QFile::encodeName(file).constData(), &entry);
        return entry.st_mode & 0777;
    }
    Program aictl(const QStringList &arguments, const QByteArray &input = {}) const
    {
        return {AICTL_BINARY, arguments, input, service.home()};
    }

    void startLesson()
    {
        cv::imwrite(path("room.png").toStdString(), cv::Mat(90, 160, CV_8UC3, cv::Scalar(90, 100, 110)));
        feed = std::make_unique<Program>(CAMERAFEED, QStringList{path("room.png")}, QByteArray(),
                                         service.home());
        ASSERT_TRUE(feed->hasLines(1)) << feed->errors();
        startService();
        openClass();
        ASSERT_EQ(code(1021), 0);
    }
    static QByteArray jpegOf(unsigned number)
    {
        return picture::jpegOf(galleryOf("", number)["faceImg"].toString());
    }
    /// The pieces of the face's picture and of its text; what comes before a JPEG's scan is in all.
    static QList<QByteArray> piecesOf(unsigned number)
    {
        const QByteArray jpeg = jpegOf(number);
        QList<QByteArray> pieces;
        constexpr int header = 700, size = 48;
        for (int at = header; at + size < jpeg.size(); at += size) {
            pieces.append(jpeg.mid(at, size));
            for (int phase = 0; phase < 3; ++phase)
                pieces.append(jpeg.mid(at + phase, size - 3).toBase64());
        }
        return pieces;
    }

    /// Asked by a client of its own, since events of the tool's requests reach all others.
    QStringList known() const
    {
        TestClient other(service.socketPath());
        return studentsOf(other);
    }

    const mode_t maskBefore; ///< the laxest one holds in a test
    std::unique_ptr<Program> feed;
};

/// With the configuration that is shipped.
TEST_F(PrivacyTest, WhatEarlierRunsLeftIsClosedAndAged)
{
    const QString logs = "Orelia/logs/", dumps = "Orelia/logs/dump/aidump/";
    const QStringList kept{logs + "AI_2020-01-02_03-04-05.log",
                           logs + "AI_notes.log",
                           logs + "other_2020-01-01_00-00-00.log",
                           logs + "link.log",
                           dumps + "01234567-89ab-cdef-0123-456789abcdef.dmp",
                           dumps + "core.dmp"};
    const QStringList old{logs + "AI_2020-01-01_00-00-00.log",
                          dumps + "76543210-89ab-cdef-0123-456789abcdef.dmp"};
    for (const QString &name : kept)
        write(name, "x", name == kept[0] || name == kept[4] ? 29 : 31);
    for (const QString &name : old)
        write(name, "x", 31);
    write("ai.data", "x");
    QFile::link(path("ai.data"), path(logs + "AI_2020-01-01_00-00-01.log"));
    ASSERT_TRUE(service.start());
    EXPECT_EQ(mode(path(kept[0])), 0600);
    EXPECT_EQ(mode(path(kept[4])), 0600);
    EXPECT_EQ(mode(path("ai.data")), 0600);
    EXPECT_EQ(mode(path(kept[2])), 0666) << "which is somebody else's";
    EXPECT_EQ(mode(path("Orelia/logs")), 0777) << "which the service has not made";
    for (const QString &name : kept)
        EXPECT_TRUE(QFile::exists(path(name))) << qPrintable(name);
    for (const QString &name : old)
        EXPECT_FALSE(QFile::exists(path(name))) << qPrintable(name);
    EXPECT_TRUE(QFile::exists(path("ai.data")));
}

TEST_F(PrivacyTest, ALessonIsForItsUserAloneAndNoLogShowsAFace)
{
    chmod(QFile::encodeName(service.home()).constData(), 0755);
    QDir().mkdir(path("videos"));
    startLesson();
    enrolFaces({galleryOf("anna", 1), galleryOf("ben", 2)});
    EXPECT_EQ(code(1023, galleryOf("ben", 3)), 0);
    EXPECT_EQ(code(1020, {{"galleries", QVariantList{galleryOf("carla", 4)}}}), 0);
    EXPECT_EQ(studentsOf(*client), (QStringList{"anna", "ben"}));
    for (const char *folder : {"videos", "made"}) {
        ASSERT_EQ(code(1039, {{"recordPath", path(folder)}}), 0);
        const QVariantMap video = client->event(1020)["event_info"].toMap();
        EXPECT_TRUE(video["videoLocalPath"].toString().startsWith(path(folder)));
        ASSERT_EQ(code(1040), 0);
    }
    EXPECT_EQ(aictl({"students", "--save", path("saved/of/anna")}).exitCode(), 0);
    service.signal(SIGSEGV);
    ASSERT_TRUE(service.waitForExit());
    startService({"--recovery"});

    // What the test made itself.
    const QSet<QString> others{path("videos"), path("room.png"), path("stdout.txt"), path("stderr.txt")};
    QStringList closed;
    for (const QString &entry : entriesOf(service.home())) {
        if (others.contains(entry))
            continue;
        closed.append(entry);
        EXPECT_EQ(mode(entry) & 0077, 0) << qPrintable(entry);
    }
    EXPECT_EQ(mode(path("videos")), 0777);
    const QString listed = closed.join('\n');
    for (const char *made : {"AI_", ".dmp", "ai.data", "made/", "videos/", "of/anna/ben.jpg"})
        EXPECT_TRUE(listed.contains(made)) << made;

    const QByteArray written = service.standardOutput() + service.log();
    EXPECT_TRUE(written.contains("<picture jp"));
    EXPECT_EQ(written.count("base64"), 0);
    for (const unsigned number : {1U, 2U, 3U, 4U})
        EXPECT_EQ(filesWith(piecesOf(number), path("Orelia")), QStringList());
}

TEST_F(PrivacyTest, AnErasureLeavesNoTrace)
{
    const QString oldLog = path("Orelia/logs/AI_2020-01-01_00-00-00.log");
    startLesson();
    enrolFaces({galleryOf("anna", 1), galleryOf("annabel", 2), galleryOf("ben", 3)});
    EXPECT_EQ(code(1020, {{"galleries", QVariantList{galleryOf("anna", 4), galleryOf("dora", 5)}}}), 0);
    // As a log of an earlier version, and as somebody would look for a piece.
    write("Orelia/logs/AI_2020-01-01_00-00-00.log", "[debug] faceImg: " + jpegOf(1).mid(800, 90).toBase64());
    write("Orelia/logs/dump/aidump/01234567-89ab-cdef-0123-456789abcdef.dmp", "of anna");
    write("videos/room_20260101080000.mp4", "film");
    write("videos/holiday.mp4", "film");

    auto unsure = aictl({"erase", "anna"}, "no\n");
    EXPECT_EQ(unsure.exitCode(), 1);
    EXPECT_EQ(known(), (QStringList{"anna", "annabel", "ben"}));
    auto half = aictl({"erase", "anna", "--yes"});
    EXPECT_EQ(half.exitCode(), 1);
    EXPECT_THAT(half.errors(), HasSubstr("a piece of a picture is still in " + oldLog.toStdString()));
    EXPECT_THAT(half.errors(), HasSubstr("anna is still named in "));

    auto whole = aictl({"erase", "anna", "ben", "--logs", "--dumps", "--recordings", "--recorded-in",
                        path("videos"), "--yes"});
    EXPECT_EQ(whole.exitCode(), 0) << whole.errors();
    const std::string told = whole.lines().join('\n').toStdString();
    EXPECT_THAT(told, HasSubstr("removed: ben, from the running service"));
    EXPECT_THAT(told, HasSubstr("removed: " + oldLog.toStdString()));
    EXPECT_THAT(told, HasSubstr("backups"));
    EXPECT_EQ(QDir(path("videos")).entryList(QDir::Files), QStringList("holiday.mp4"));
    EXPECT_EQ(known(), QStringList("annabel"));
    for (const unsigned number : {1U, 3U, 4U})
        EXPECT_EQ(filesWith(piecesOf(number), service.home()), QStringList()) << number;
    EXPECT_EQ(filesWith(piecesOf(2), service.home()), QStringList(path("ai.data")));
    EXPECT_EQ(filesWith(piecesOf(5), service.home()), QStringList(path("ai.data")))
        << "another's external face";
    EXPECT_EQ(filesWith({"ben"}, path("ai.data")), QStringList());
    for (const QString &file : filesWith({"ben"}, service.home())) {
        EXPECT_TRUE(file.contains("/AI_20") || file == path("stdout.txt")) << qPrintable(file);
        EXPECT_THAT(told, HasSubstr("still named in: " + file.toStdString()));
    }

    // Without a service: what it left, and nobody comes back.
    service.crash();
    QFile::remove(path("stdout.txt"));
    auto nowhere = aictl({"erase", "annabel", "--yes", "--store", path("videos")});
    EXPECT_EQ(nowhere.exitCode(), 1);
    auto offline = aictl({"erase", "--all", "--logs", "--yes", "--store", service.home()});
    EXPECT_EQ(offline.exitCode(), 0) << offline.errors();
    for (const unsigned number : {2U, 5U})
        EXPECT_EQ(filesWith(piecesOf(number), service.home()), QStringList()) << number;
    for (const char *name : {"anna", "ben", "dora"})
        EXPECT_EQ(filesWith({name}, service.home()), QStringList()) << name;
    startService({"--recovery"});
    EXPECT_EQ(known(), QStringList());
}

} // namespace

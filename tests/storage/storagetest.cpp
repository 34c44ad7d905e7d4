#include "logcapture.h"
#include "qstorage.h"

#include <gtest/gtest.h>
#include <QDir>
#include <QTemporaryDir>
#include <thread>

namespace {

/// The store in a folder of its own; every warning that a test does not take is a failure, Qt's own included.
class StorageTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        ASSERT_TRUE(QDir::setCurrent(home.path()));
    }

    void TearDown() override
    {
        EXPECT_EQ(takeWarnings(), QStringList());
        store->remove();
        QDir::setCurrent(QDir::tempPath());
    }

    QStringList takeWarnings() { return log.takeLines().filter(QRegExp("^(warning|critical)")); }

    /// The first column of what a statement gives, read over a connection of our own.
    static QStringList column(const QString &statement)
    {
        QStringList result;
        {
            QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "reader");
            database.setDatabaseName("ai.data");
            database.open();
            QSqlQuery query(statement, database);
            while (query.next())
                result.append(query.value(0).toString());
        }
        QSqlDatabase::removeDatabase("reader");
        return result;
    }

    static QVariantMap entry(const QString &stuID, const QString &faceImg)
    {
        return {{"stuID", stuID}, {"faceImg", faceImg}};
    }

    static QVariantMap galleries(const QVariantList &entries) { return {{"galleries", entries}}; }

    static StudentInfo student(const QString &stuID)
    {
        StudentInfo info;
        info.stuID = stuID;
        info.faceRect = cv::Rect(1, 2, 3, 4);
        info.bodyRect = cv::Rect(-5, 6, 7, 8);
        info.galleryScore = 0.8125;
        info.bestGallery = cv::Mat(8, 8, CV_8UC3, cv::Scalar(255, 0, 0));
        return info;
    }

    /// Runs every operation that writes a row and expects one warning of each, with the reason in it.
    void expectFailedWrites(const QString &reason)
    {
        store->setConfig(1, "room");
        store->addFaceMat("a", "img", cv::Rect());
        store->updateStudentInfo(student("a"));
        store->updateStudentName("a", "b");
        store->deleteStudent("a");
        store->setHistoryGalleries("a", "img");
        store->clearHistoryGalleries();
        QStringList warnings = takeWarnings();
        EXPECT_EQ(warnings.filter(reason).size(), warnings.size()) << qPrintable(warnings.join('\n'));
        warnings.replaceInStrings(QRegExp("error: .*"), "error: ");
        EXPECT_EQ(warnings, QStringList({"warning: sqlite exec add config failed,error: ",
                                         "warning: sqlite exec add student failed,error: ",
                                         "warning: sqlite exec add student failed,error: ",
                                         "warning: sqlite exec update student name student failed,error: ",
                                         "warning: sqlite exec delete student failed,error: ",
                                         "warning: sqlite exec add gallery history failed,error: ",
                                         "warning: sqlite exec clear gallery history failed,error: "}));
    }

    LogCapture log;
    QTemporaryDir home;
    QSqliteStorage *store = QSqliteStorage::instance();
};

TEST_F(StorageTest, AFreshFileReplacesAnOldOne)
{
    store->open(true);
    store->setConfig(1, "old");
    log.takeLines();
    store->open(true);
    EXPECT_EQ(log.takeLines(), QStringList("info: remove aidata"));
    EXPECT_EQ(
        column("select sql from sqlite_master order by rowid"),
        QStringList(
            {"CREATE TABLE ai_student (stuID TEXT,faceImg TEXT,faceX int,faceY int, \t\t\t\t\tfaceW int,"
             "faceH int,bodyX int,bodyY int,bodyW int,bodyH int, \t\t\t\t\tgalleryScore double,"
             "bestGallery TEXT)",
             "CREATE TABLE ai_galleries_history(stuID TEXT,faceImg TEXT)",
             "CREATE TABLE ai_config(modelLoadFlag int,identify TEXT)"}));
    EXPECT_EQ(column("select * from ai_config"), QStringList());
}

TEST_F(StorageTest, KeepsEverythingThroughARestart)
{
    const QString hostile = QString::fromUtf8("ä'); drop table ai_student; -- ? :stuID");
    store->open(true);
    store->setConfig(0x81241049, "room1");
    store->setConfig(7, "room2");
    store->addFaceMat(hostile, hostile, cv::Rect(10, 20, 30, 40));
    store->addFaceMat("a", "img", cv::Rect(-1, 2, 3, 4));
    store->updateStudentInfo(student("a"));
    store->setHistoryGalleries("x", "1");
    store->setHistoryGalleries("x", "2");
    log.takeLines();

    store->open(false);
    unsigned int flag = 0;
    QString identify;
    ASSERT_TRUE(store->getConfig(flag, identify));
    EXPECT_EQ(flag, 0x81241049);
    EXPECT_EQ(identify, "room1");
    EXPECT_EQ(store->fetchStudentInfo(), galleries({entry(hostile, hostile), entry("a", "img")}));
    EXPECT_EQ(store->getHistoryGalleries(), galleries({entry("x", "1"), entry("x", "2")}));
    EXPECT_EQ(log.takeLines(),
              QStringList({"info:  model: 2166624329 identify: room1", "info: [storage] fetch student info",
                           "info: [storage] fetch galleries, stuID: " + hostile + " faceImg: " + hostile,
                           "info: [storage] fetch galleries, stuID: a faceImg: img",
                           "info: [storage] fetch history galleries, stuID: x faceImg: 1",
                           "info: [storage] fetch history galleries, stuID: x faceImg: 2"}));

    const QString picture = ai_image::convertMat2Base64(student("a").bestGallery);
    const QVariantMap never{{"stuID", hostile}, {"faceX", 10},         {"faceY", 20},      {"faceW", 30},
                            {"faceH", 40},      {"bodyX", 0},          {"bodyY", 0},       {"bodyW", 0},
                            {"bodyH", 0},       {"galleryScore", 0.0}, {"bestGallery", ""}};
    const QVariantMap saved{
        {"stuID", "a"},          {"faceX", 1}, {"faceY", 2}, {"faceW", 3}, {"faceH", 4},
        {"bodyX", -5},           {"bodyY", 6}, {"bodyW", 7}, {"bodyH", 8}, {"galleryScore", 0.8125},
        {"bestGallery", picture}};
    EXPECT_EQ(store->getStudentInfo(), QVariantList({never, saved}));
}

TEST_F(StorageTest, ChangesEveryRowOfAnId)
{
    store->open(true);
    for (const char *stuID : {"a", "b", "a"})
        store->addFaceMat(stuID, "img", cv::Rect());
    store->updateStudentName("a", "c");
    store->updateStudentInfo(student("c"));
    EXPECT_EQ(column("select stuID from ai_student"), QStringList({"c", "b", "c"}));
    EXPECT_EQ(column("select bodyX from ai_student"), QStringList({"-5", "", "-5"}));
    store->deleteStudent("c");
    EXPECT_EQ(store->fetchStudentInfo(), galleries({entry("b", "img")}));

    store->setHistoryGalleries("x", "1");
    store->clearHistoryGalleries();
    EXPECT_EQ(store->getHistoryGalleries(), galleries({}));
}

TEST_F(StorageTest, AMissingFileBecomesAnEmptyOne)
{
    store->open(false);
    EXPECT_TRUE(QFile::exists("ai.data"));
    unsigned int flag = 3;
    QString identify = "kept";
    EXPECT_FALSE(store->getConfig(flag, identify));
    EXPECT_EQ(flag, 3U);
    EXPECT_EQ(identify, "kept");
    EXPECT_EQ(takeWarnings(), QStringList("warning: config read failed"));
    EXPECT_EQ(store->fetchStudentInfo(), galleries({}));
    EXPECT_EQ(store->getHistoryGalleries(), galleries({}));
    EXPECT_TRUE(store->getStudentInfo().isEmpty());

    // Any statement would warn: there are no tables.
    store->addFaceMat("", "img", cv::Rect());
    store->addFaceMat("a", "", cv::Rect());
    store->updateStudentInfo(StudentInfo());
    store->updateStudentName("", "b");
    store->updateStudentName("a", "");
    store->deleteStudent("");
    store->setHistoryGalleries("", "img");
    store->setHistoryGalleries("a", "");
}

TEST_F(StorageTest, AFailedWriteIsToldOnce)
{
    store->open(false);
    expectFailedWrites("no such table");

    store->open(true);
    store->remove();
    expectFailedWrites("not open");
    EXPECT_EQ(QDir().entryList(QDir::Files), QStringList());

    QFile file("ai.data");
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(4096, 'x'));
    file.close();
    store->open(false);
    expectFailedWrites("not a database");
    store->open(true);
    store->remove();

    ASSERT_TRUE(QDir().mkdir("ai.data")); // no file can be made there
    store->open(true);
    EXPECT_EQ(takeWarnings().filter(QRegExp("^warning: database open failed,error: .")).size(), 1);
    EXPECT_TRUE(QDir().rmdir("ai.data"));
}

TEST_F(StorageTest, AnyThreadMayOpenWriteAndRemove)
{
    const auto onThread = [](auto work) { std::thread(work).join(); };
    for (int round = 0; round < 3; ++round) {
        onThread([&] { store->open(true); });
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&, i] {
                const QString stuID = QString::number(i);
                for (int j = 0; j < 5; ++j) {
                    store->addFaceMat(stuID, "img", cv::Rect());
                    store->updateStudentInfo(student(stuID));
                    store->getStudentInfo();
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        onThread([&] { store->open(false); });
        EXPECT_EQ(store->getStudentInfo().size(), 20);
        if (round == 1)
            onThread([&] { store->remove(); });
    }
}

} // namespace

#include "atonce.h"
#include "logcapture.h"
#include "qstorage.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QTemporaryDir>

namespace {

/// The store in a folder of its own; every warning that a test does not take is a failure, Qt's own included.
class StorageTest : public ::testing::Test
{
protected:
    StorageTest() { QDir::setCurrent(home.path()); }

    ~StorageTest() override
    {
        EXPECT_EQ(takeWarnings(), QStringList());
        store->remove();
        QDir::setCurrent(QDir::tempPath());
    }

    QStringList takeWarnings() { return log.takeLines().filter(QRegExp("^(warning|critical)")); }

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

    LogCapture log;
    QTemporaryDir home;
    QSqliteStorage *store = QSqliteStorage::instance();
};

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

    store->open(false);
    unsigned int flag = 0;
    QString identify;
    ASSERT_TRUE(store->getConfig(flag, identify));
    EXPECT_EQ(flag, 0x81241049);
    EXPECT_EQ(identify, "room1");
    EXPECT_EQ(store->fetchStudentInfo(), galleries({entry(hostile, hostile), entry("a", "img")}));
    EXPECT_EQ(store->getHistoryGalleries(), galleries({entry("x", "1"), entry("x", "2")}));
    const QVariantMap saved = store->getStudentInfo()[1].toMap();
    QStringList values;
    for (const char *name :
         {"faceX", "faceY", "faceW", "faceH", "bodyX", "bodyY", "bodyW", "bodyH", "galleryScore"})
        values.append(saved[name].toString());
    EXPECT_EQ(values.join(' '), "1 2 3 4 -5 6 7 8 0.8125");
    EXPECT_EQ(saved["bestGallery"], ai_image::convertMat2Base64(student("a").bestGallery));
}

TEST_F(StorageTest, ChangesEveryRowOfAnIdAndAFreshFileHasNone)
{
    store->open(true);
    for (const char *stuID : {"a", "b", "a"})
        store->addFaceMat(stuID, "img", cv::Rect());
    store->updateStudentName("a", "c");
    store->updateStudentInfo(student("c"));
    QStringList rows;
    for (const QVariant &row : store->getStudentInfo())
        rows.append(row.toMap()["stuID"].toString() + row.toMap()["bodyX"].toString());
    EXPECT_EQ(rows, QStringList({"c-5", "b0", "c-5"}));
    store->deleteStudent("c");
    EXPECT_EQ(store->fetchStudentInfo(), galleries({entry("b", "img")}));
    store->setHistoryGalleries("x", "1");
    store->clearHistoryGalleries();
    EXPECT_EQ(store->getHistoryGalleries(), galleries({}));

    log.takeLines();
    store->open(true);
    EXPECT_EQ(log.takeLines(), QStringList("info: remove aidata"));
    EXPECT_TRUE(store->getStudentInfo().isEmpty());
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
    EXPECT_EQ(store->fetchStudentInfo(), galleries({}));
    EXPECT_EQ(store->getHistoryGalleries(), galleries({}));
    EXPECT_TRUE(store->getStudentInfo().isEmpty());
    const QStringList warnings = takeWarnings();
    ASSERT_EQ(warnings.size(), 5); // one a read, and one more for the configuration
    EXPECT_EQ(warnings[1], "warning: config read failed");
    EXPECT_TRUE(warnings[2].startsWith("warning: sqlite exec select * from ai_student failed,error: "));
    EXPECT_TRUE(warnings[2].contains("no such table"));

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

TEST_F(StorageTest, AConfigurationThatNobodyWroteIsNone)
{
    const auto reads = [&] {
        unsigned int flag = 3;
        QString identify;
        const bool found = store->getConfig(flag, identify);
        EXPECT_EQ(found, flag != 3);
        takeWarnings();
        return found;
    };
    for (const char *values : {"'all','x'", "null,'x'", "-1,'x'", "4294967296,'x'", "1.5,'x'", "x'07','x'"}) {
        store->open(true);
        QSqlQuery().exec(QString("insert into ai_config values(%1)").arg(values));
        EXPECT_FALSE(reads()) << values;
    }
    store->open(true);
    QSqlQuery().exec("drop table ai_config");
    QSqlQuery().exec("create table ai_config(identify TEXT)");
    QSqlQuery().exec("insert into ai_config values('7 rooms')");
    EXPECT_FALSE(reads());
    store->open(true);
    store->setConfig(0xffffffff, "");
    EXPECT_TRUE(reads());
}

TEST_F(StorageTest, ADamagedPageEndsTheReadingWithAWarning)
{
    store->open(true);
    for (int i = 0; i < 8; ++i)
        store->addFaceMat(QString::number(i), QString(1500, 'x'), {});
    QFile file("ai.data");
    ASSERT_TRUE(file.open(QFile::ReadWrite));
    constexpr int pageSize = 4096;
    constexpr char leafOfTable = 0x0d;
    qint64 page = file.size();
    QByteArray start;
    while (!start.startsWith(leafOfTable)) {
        page -= pageSize;
        ASSERT_TRUE(page > 0 && file.seek(page));
        start = file.read(1);
    }
    file.seek(page); // the last students
    file.write(QByteArray(pageSize, '\xff'));
    file.close();
    store->open(false);

    const auto isTold = [&] {
        const QStringList warnings = takeWarnings();
        return warnings.size() == 1 && warnings[0].contains("select * from ai_student failed,error: ") &&
               warnings[0].contains("malformed");
    };
    const int read = store->getStudentInfo().size();
    EXPECT_GT(read, 0);
    EXPECT_LT(read, 8);
    EXPECT_TRUE(isTold());
    EXPECT_EQ(store->fetchStudentInfo()["galleries"].toList().size(), read);
    EXPECT_TRUE(isTold());
}

TEST_F(StorageTest, MissingTablesAreMadeAndOthersLeft)
{
    store->createMissingTables(); // not open
    store->open(false);
    store->createMissingTables();
    store->addFaceMat("a", "img", {});
    store->setConfig(7, "room1");
    store->open(false);
    QSqlQuery().exec("drop table ai_galleries_history");
    store->createMissingTables();
    store->setHistoryGalleries("x", "1");
    EXPECT_EQ(store->getHistoryGalleries(), galleries({entry("x", "1")}));
    EXPECT_EQ(store->fetchStudentInfo(), galleries({entry("a", "img")}));
    store->remove();
    store->createMissingTables();
    EXPECT_FALSE(QFile::exists("ai.data"));
}

/// On the handle of the service, and in the file.
TEST_F(StorageTest, WhatIsDeletedOrReplacedIsOverwritten)
{
    const auto isLeft = [](const QString &text) {
        QFile file("ai.data");
        EXPECT_TRUE(file.open(QFile::ReadOnly));
        return file.readAll().contains(text.toUtf8());
    };
    const QString first(64, 'F'), second(64, 'S'), third(64, 'T');
    for (const bool create : {true, false}) {
        store->open(create);
        QSqlQuery setting("PRAGMA secure_delete");
        ASSERT_TRUE(setting.next());
        EXPECT_EQ(setting.value(0), 1);
        setting.finish();
        for (int i = 0; i < 20; ++i) {
            const QString picture = QString(3000, 'x') + first + QString(9000, 'x');
            store->addFaceMat(QString::number(i), picture, {});
            store->setHistoryGalleries(QString::number(i), second + picture);
        }
        EXPECT_TRUE(isLeft(first) && isLeft(second));
        store->addFaceMat("kept", third, {});
        for (int i = 0; i < 20; ++i)
            store->deleteStudent(QString::number(i));
        store->clearHistoryGalleries();
        EXPECT_FALSE(isLeft(first) || isLeft(second));
        EXPECT_TRUE(isLeft(third));
        EXPECT_EQ(QDir().entryList(QDir::Files), QStringList("ai.data"));
    }
}

TEST_F(StorageTest, AnyThreadMayOpenWriteAndRemove)
{
    const auto onThread = [](auto work) { std::thread(work).join(); };
    for (int round = 0; round < 2; ++round) {
        onThread([&] { store->open(true); });
        store->setConfig(7, "room1");
        atOnce(5, {[&](int) {
                       store->addFaceMat("a", "img", cv::Rect());
                       store->updateStudentInfo(student("a"));
                       store->setHistoryGalleries("x", "1");
                   },
                   [&](int) {
                       store->addFaceMat("b", "img", cv::Rect());
                       store->updateStudentName("b", "c");
                       store->setConfig(7, "room2");
                   },
                   [&](int) {
                       store->addFaceMat("d", "img", cv::Rect());
                       store->deleteStudent("d");
                       store->clearHistoryGalleries();
                   },
                   [&](int) {
                       store->getStudentInfo();
                       store->fetchStudentInfo();
                       store->getHistoryGalleries();
                       unsigned int flag = 0;
                       QString identify;
                       store->getConfig(flag, identify);
                       EXPECT_EQ(identify, "room1");
                   }});
        // Statements that meet no row, and so no disk, meet each other most.
        atOnce(1000,
               {[&](int) { store->updateStudentInfo(student("nobody")); },
                [&](int) { store->updateStudentName("nobody", "e"); },
                [&](int) { store->deleteStudent("nobody"); }, [&](int) { store->getHistoryGalleries(); }});
        onThread([&] { store->open(false); });
        EXPECT_EQ(store->getStudentInfo().size(), 10);
        onThread([&] { store->remove(); });
    }
}

} // namespace

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

TEST_F(StorageTest, AnyThreadMayOpenWriteAndRemove)
{
    const auto onThread = [](auto work) { std::thread(work).join(); };
    for (int round = 0; round < 2; ++round) {
        onThread([&] { store->open(true); });
        std::vector<std::thread> threads(4);
        for (std::thread &thread : threads) {
            thread = std::thread([this] {
                for (const char *name : {"a", "b", "c", "d", "e"}) {
                    store->addFaceMat(name, "img", cv::Rect());
                    store->updateStudentInfo(student(name));
                    store->getStudentInfo();
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        onThread([&] { store->open(false); });
        EXPECT_EQ(store->getStudentInfo().size(), 20);
        onThread([&] { store->remove(); });
    }
}

} // namespace

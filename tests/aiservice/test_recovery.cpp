#include "fixture.h"

#include <QSqlError>
#include <QSqlQuery>

namespace {

/// Runs statements on the store's file through a connection of its own.
void alter(const QStringList &statements)
{
    {
        QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", "test");
        database.setDatabaseName("ai.data");
        ASSERT_TRUE(database.open());
        for (const QString &statement : statements) {
            QSqlQuery query(database);
            EXPECT_TRUE(query.exec(statement)) << qPrintable(query.lastError().text());
        }
    }
    QSqlDatabase::removeDatabase("test");
}

/// What a crashed service leaves behind, and a controller that starts from it.
class RecoveryTest : public ControllerTest
{
protected:
    /// Forgets what lives in the process, as a crash does, and recovers from the file.
    void crashAndRecover()
    {
        recognisers.ids->entries.clear();
        DataManager::instance()->clear();
        ExternalGallery::instance()->clear();
        QSqliteStorage::instance()->open(false);
        controller->recovery();
    }
};

TEST_F(RecoveryTest, StudentsAndExternalFacesComeBackAndNothingIsWrittenTwice)
{
    controller->setExternalGallery({{"galleries", QVariantList{gallery("a", 50), gallery("guest", 60)}}}, "");
    enrol({gallery("a", 50, {10, 20, 30, 100}), gallery("b", 90, {300, 300, 80, 80}), gallery("c", 110)});
    controller->updateStudentID({{"oldStuID", "b"}, {"newStuID", "renamed"}});
    controller->deleteGallery({{"stuID", "c"}});
    crashAndRecover();

    EXPECT_EQ(known(), QStringList({"a", "renamed"}));
    EXPECT_EQ(stored(), QStringList({"a", "renamed"}));
    EXPECT_EQ(externals(), QStringList("guest"));
    EXPECT_EQ(QSqliteStorage::instance()->getHistoryGalleries()["galleries"].toList().size(), 2);
    EXPECT_EQ(recognisers.ids->entries.size(), 2U);
    const StudentInfo a = students::get("a");
    EXPECT_EQ(a.faceRect, cv::Rect(10, 20, 30, 100));
    EXPECT_TRUE(a.faceIDValid);     // enrolled although his face is small
    EXPECT_EQ(a.galleryScore, 0.0); // the six-minute timer never met him
    EXPECT_TRUE(a.bodyRect.empty());
    const auto events = catcher.events(1018);
    EXPECT_EQ(events.back().type, "service");
}

TEST_F(RecoveryTest, WhatTheTimerSavedShapesTheRecord)
{
    enrol({gallery("a", 50)});
    StudentInfo student = students::get("a");
    student.bodyRect = {1, 2, 3, 4};
    student.galleryScore = 0.9;
    student.bestGallery = cv::Mat(128, 128, CV_8UC3, cv::Scalar::all(200));
    DataManager::instance()->updateStudent(student);
    controller->onStorageTimeDone();
    crashAndRecover();

    const StudentInfo back = students::get("a");
    EXPECT_EQ(back.bodyRect, cv::Rect(1, 2, 3, 4));
    EXPECT_EQ(back.bodyCenterX, 0);
    EXPECT_EQ(back.galleryScore, 0.9);
    EXPECT_NEAR(cv::mean(back.bestGallery)[0], 50, 3); // still the registered picture
    EXPECT_EQ(back.meanFeature.at<float>(0, 200), 1.0F);
    EXPECT_EQ(back.registerFeature.at<float>(0, 50), 1.0F);
}

TEST_F(RecoveryTest, WithoutACameraOnlyExternalFacesComeBack)
{
    controller->setExternalGallery({{"galleries", QVariantList{gallery("guest", 60)}}}, "");
    enrol({gallery("a", 50)});
    recognisers.ids->entries.clear();
    DataManager::instance()->clear();
    ExternalGallery::instance()->clear();
    QSqliteStorage::instance()->open(false);
    AIServiceController unconnected(nullptr);
    unconnected.recovery();
    EXPECT_TRUE(known().isEmpty());
    EXPECT_EQ(externals(), QStringList("guest"));
    EXPECT_EQ(stored(), QStringList("a")); // for the next recovery
}

TEST_F(RecoveryTest, DamagedRowsCostTheirStudentOnly)
{
    enrol({gallery("a", 50), gallery("b", 90), gallery("c", 110)});
    alter({"update ai_student set faceImg = NULL where stuID = 'a'",
           "update ai_student set faceX = NULL where stuID = 'b'",
           "update ai_student set bodyX = 'text', galleryScore = 'text', bestGallery = 'no picture' where "
           "stuID = 'b'",
           "insert into ai_student(stuID) values(NULL)"});
    crashAndRecover();
    EXPECT_EQ(known(), QStringList({"b", "c"}));
    EXPECT_EQ(students::get("b").faceRect.x, 0);
}

TEST_F(RecoveryTest, MissingTablesAndAnAbsentFileBringAnEmptyClass)
{
    enrol({gallery("a", 50)});
    alter({"drop table ai_galleries_history"});
    crashAndRecover();
    EXPECT_EQ(known(), QStringList("a"));
    alter({"drop table ai_student"});
    crashAndRecover();
    EXPECT_TRUE(known().isEmpty());
    QSqliteStorage::instance()->remove();
    crashAndRecover();
    EXPECT_TRUE(known().isEmpty());
}

} // namespace

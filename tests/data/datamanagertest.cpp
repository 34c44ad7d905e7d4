#include "datamanager.h"
#include "logcapture.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <thread>

namespace {

const cv::Mat FACE(4, 4, CV_8UC3, cv::Scalar(1, 2, 3));

cv::Mat feature(std::vector<float> values)
{
    return cv::Mat(values, true).reshape(1, 1);
}

bool same(const cv::Mat &first, const cv::Mat &second)
{
    return cv::norm(first, second, cv::NORM_INF) == 0;
}

StudentInfo student(const QString &stuID, int faceID)
{
    StudentInfo info;
    info.stuID = stuID;
    info.faceID = faceID;
    return info;
}

QString ids(const QVector<StudentInfo> &students)
{
    QStringList result;
    for (const StudentInfo &info : students)
        result.append(info.stuID);
    return result.join(' ');
}

class DataManagerTest : public ::testing::Test
{
protected:
    DataManagerTest() { manager->clear(); }

    void addWithFeature(const cv::Mat &registered)
    {
        StudentInfo info = student("a", 1);
        info.meanFeature = registered.clone();
        info.bestGallery = FACE.clone();
        manager->addStudent(info);
    }

    LogCapture log;
    DataManager *manager = DataManager::instance();
};

TEST_F(DataManagerTest, KeepsOneRecordForAKeyAndFindsNobodyForOthers)
{
    EXPECT_TRUE(manager->addStudent(student("b", 2)));
    EXPECT_TRUE(manager->addStudent(student("a", 1)));
    EXPECT_FALSE(manager->addStudent(student("a", 9)));
    EXPECT_EQ(manager->getFaceID("a"), 1);
    EXPECT_EQ(ids(manager->getAllStudents()), "a b");
    EXPECT_TRUE(manager->updateStudent(student("a", 5)));
    EXPECT_FALSE(manager->updateStudent(student("c", 3)));
    EXPECT_TRUE(manager->updateStudentID("a", "b"));
    EXPECT_FALSE(manager->updateStudentID("a", "c"));
    EXPECT_EQ(manager->count(), 1);
    EXPECT_EQ(manager->getStudentInfo(5).stuID, "b");
    EXPECT_TRUE(manager->removeStudent("b"));
    EXPECT_FALSE(manager->removeStudent("b"));
    EXPECT_EQ(log.takeLines(), QStringList({"info: add stuid: b fid: 2", "info: add stuid: a fid: 1",
                                            "warning: can not add a student who has exist",
                                            "warning: can not update a student who don't exist",
                                            "warning: update studentID,old student id: a can't found"}));

    EXPECT_TRUE(manager->getStudentInfo("b").stuID.isEmpty());
    EXPECT_TRUE(manager->getStudentID(5).isEmpty());
    EXPECT_EQ(manager->getFaceID("b"), -1);
    EXPECT_FALSE(manager->updateBodyRect(-1, cv::Rect(1, 2, 3, 4), 1));
    EXPECT_FALSE(manager->updateFaceRect(5, cv::Rect(), feature({1}), FACE));
}

TEST_F(DataManagerTest, ListsByTheStateOfTheMatchingPass)
{
    for (int i = 0; i < 4; ++i) {
        StudentInfo info = student(QString::number(i), i);
        info.faceIDValid = i < 2;
        manager->addStudent(info);
    }
    manager->updateBodyRect(0, cv::Rect(10, 21, 5, 7), 3);
    manager->updateBodyRect(1, cv::Rect(1, 1, 1, 1), 0);
    manager->updateBodyRect(2, cv::Rect(1, 1, 0, 9), -2);
    EXPECT_EQ(manager->getStudentInfo(0).bodyCenterX, 12);
    EXPECT_EQ(manager->getStudentInfo(0).bodyCenterY, 24);
    EXPECT_EQ(ids(manager->getFoundStudents()), "0");
    EXPECT_EQ(ids(manager->getNoFaceIDStudents()), "2 3");
    EXPECT_EQ(ids(manager->getUnfoundBodyStudents()), "1");

    manager->updateBodyRect(0, cv::Rect(1, 2, 3, 4), 0);
    EXPECT_EQ(manager->getStudentInfo(0).status, 3);
    manager->resetStatus();
    EXPECT_EQ(ids(manager->getFoundStudents()), "");
    EXPECT_EQ(ids(manager->getUnfoundBodyStudents()), "0 1");
}

TEST_F(DataManagerTest, FoldsFeaturesByTheFormula)
{
    addWithFeature(feature({1, 0}));
    const StudentInfo before = manager->getStudentInfo(1);

    // 1 * (1, 0) + (0, 2) / 2 = (1, 1)
    EXPECT_TRUE(manager->updateFaceRect(1, cv::Rect(1, 2, 3, 4), feature({0, 2}), FACE * 2));
    StudentInfo info = manager->getStudentInfo(1);
    EXPECT_EQ(info.faceRect, cv::Rect(1, 2, 3, 4));
    EXPECT_EQ(info.featureCount, 1);
    EXPECT_TRUE(same(info.meanFeature, feature({1, 1})));
    EXPECT_NEAR(info.galleryScore, std::sqrt(0.5), 1e-15); // just above 0.7
    EXPECT_TRUE(same(info.bestGallery, FACE * 2));

    // 2 * (1, 1) + (6, 0) / 3 = (4, 2), a better match; 3 * (4, 2) + (0, 8) / 4 = (12, 8), a worse one.
    manager->updateFaceRect(1, cv::Rect(), feature({6, 0}), FACE * 3);
    manager->updateFaceRect(1, cv::Rect(), feature({0, 8}), FACE * 4);
    info = manager->getStudentInfo(1);
    EXPECT_TRUE(same(info.meanFeature, feature({12, 8})));
    EXPECT_NEAR(info.galleryScore, 4 / std::sqrt(20.0), 1e-15);
    EXPECT_TRUE(same(info.bestGallery, FACE * 3));
    EXPECT_TRUE(same(before.meanFeature, feature({1, 0}))) << "a copy's pixels were written";

    info.meanFeature = feature({3, 4});
    info.galleryScore = 1.0;
    manager->updateStudent(info);
    manager->updateFaceRect(1, cv::Rect(), feature({3, 4}), FACE * 5);
    EXPECT_TRUE(same(manager->getStudentInfo(1).bestGallery, FACE * 3)) << "an equal score is no better one";
}

TEST_F(DataManagerTest, AForeignFeatureOnlyMovesTheFace)
{
    addWithFeature(feature({3, 4}));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float infinity = std::numeric_limits<float>::infinity();
    int x = 0;
    for (const cv::Mat &other :
         {cv::Mat(), feature({1, 2, 3}), cv::Mat(feature({1, 2}).t()), cv::Mat(1, 2, CV_64F, cv::Scalar(1)),
          cv::Mat(1, 2, CV_8U, cv::Scalar(1)), feature({nan, 1}), feature({1, infinity})}) {
        EXPECT_TRUE(manager->updateFaceRect(1, cv::Rect(++x, 2, 3, 4), other, FACE * 2));
        const StudentInfo info = manager->getStudentInfo(1);
        EXPECT_EQ(info.faceRect.x, x);
        EXPECT_EQ(info.featureCount, 0);
        EXPECT_TRUE(same(info.meanFeature, feature({3, 4})));
    }
    manager->updateFaceRect(1, cv::Rect(), feature({0, 0}), FACE * 2); // no direction, so no match
    EXPECT_EQ(manager->getStudentInfo(1).galleryScore, 0.7);
}

TEST_F(DataManagerTest, NumbersRowsFromTheirLowestStudent)
{
    // Upper edge of the body: row.
    const std::vector<std::vector<std::pair<int, int>>> classes = {
        {{500, 1}, {410, 1}},
        {{500, 1}, {409, 2}},
        {{409, 2}, {349, 2}, {500, 1}, {319, 2}, {318, 3}, {0, 4}},
        {{std::numeric_limits<int>::max(), 1}, {std::numeric_limits<int>::min(), 2}},
    };
    for (const auto &members : classes) {
        manager->clear();
        for (const auto &[y, row] : members) {
            const int faceID = manager->count();
            manager->addStudent(student(QString::number(faceID), faceID));
            manager->updateBodyRect(faceID, cv::Rect(1, y, 10, 10), 0);
        }
        manager->sortStudentRows();
        int faceID = 0;
        for (const auto &[y, row] : members)
            EXPECT_EQ(manager->getStudentInfo(faceID++).row, row) << y;
    }
}

TEST_F(DataManagerTest, DrawsWhatItCanAndOpensNoWindow)
{
    const int far = std::numeric_limits<int>::max();
    for (const cv::Rect &rect :
         {cv::Rect(10, 40, 50, 30), cv::Rect(far, far, far, far), cv::Rect(-far, -far, -1, far)}) {
        const int faceID = manager->count();
        manager->addStudent(student(QString::number(faceID), faceID));
        manager->updateBodyRect(faceID, rect, 1);
    }
    cv::Mat frame = cv::Mat::zeros(100, 400, CV_8UC3);
    for (const cv::Mat &picture : {frame, cv::Mat(), cv::Mat(20, 20, CV_16F)})
        EXPECT_NO_THROW(manager->showStudents(picture));
    EXPECT_EQ(frame.at<cv::Vec3b>(69, 10), cv::Vec3b(255, 0, 0));
}

/// Under ThreadSanitizer this reports a writer that writes into pixels which copies of a record share.
TEST_F(DataManagerTest, ReadersMayKeepCopiesWhileWritersGoOn)
{
    addWithFeature(feature({1, 1}));
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            manager->updateFaceRect(1, cv::Rect(i, i, i, i), feature({1, 1}), FACE);
            manager->updateBodyMat(1, FACE);
        }
        done = true;
    });
    while (!done) {
        for (const StudentInfo &info : manager->getAllStudents()) {
            ASSERT_EQ(info.meanFeature.at<float>(0), info.meanFeature.at<float>(1));
            ASSERT_EQ(info.faceRect.x, info.faceRect.height);
        }
    }
    writer.join();
    EXPECT_EQ(manager->getStudentInfo(1).featureCount, 2000);
}

} // namespace

#include "atonce.h"
#include "datamanager.h"
#include "externalgallery.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <limits>

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

    DataManager *manager = DataManager::instance();
};

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

    info.meanFeature = feature({1, 0});
    info.galleryScore = 1.0;
    manager->updateStudent(info);
    manager->updateFaceRect(1, cv::Rect(), feature({1, 0}), FACE * 5);
    EXPECT_TRUE(same(manager->getStudentInfo(1).bestGallery, FACE * 3)) << "an equal score is no better one";
}

TEST_F(DataManagerTest, AForeignFeatureOnlyMovesTheFace)
{
    addWithFeature(feature({3, 4}));
    int x = 0;
    for (const cv::Mat &other :
         {cv::Mat(), feature({1, 2, 3}), cv::Mat(feature({1, 2}).t()), cv::Mat(1, 2, CV_64F, cv::Scalar(1)),
          cv::Mat(1, 2, CV_8U, cv::Scalar(1)), feature({NAN, 1}), feature({1, INFINITY})}) {
        EXPECT_TRUE(manager->updateFaceRect(1, cv::Rect(++x, 2, 3, 4), other, FACE * 2));
        const StudentInfo info = manager->getStudentInfo(1);
        EXPECT_EQ(info.faceRect.x, x);
        EXPECT_EQ(info.featureCount, 0);
        EXPECT_TRUE(same(info.meanFeature, feature({3, 4})));
    }
    manager->updateFaceRect(1, cv::Rect(), feature({0, 0}), FACE * 2); // no direction, so no match
    EXPECT_EQ(manager->getStudentInfo(1).galleryScore, 0.7);
}

TEST_F(DataManagerTest, WhoIsNotThereIsTold)
{
    EXPECT_TRUE(manager->addStudent(student("a", 1)));
    EXPECT_FALSE(manager->addStudent(student("a", 2)));
    EXPECT_EQ(manager->getFaceID("a"), 1);
    EXPECT_FALSE(manager->updateStudent(student("b", 2)));
    EXPECT_FALSE(manager->updateStudentID("b", "a"));
    EXPECT_FALSE(manager->removeStudent("b"));
    EXPECT_FALSE(manager->updateBodyRect(2, cv::Rect(1, 2, 3, 4), 1));
    EXPECT_TRUE(manager->updateBodyRect(1, cv::Rect(10, 20, 31, 60), 1));
    EXPECT_EQ(manager->getStudentInfo(1).bodyCenterX, 25);
    EXPECT_EQ(manager->getStudentInfo(1).bodyCenterY, 50);
    EXPECT_TRUE(manager->updateBodyRect(1, cv::Rect(), 0)); // which leaves the status
    EXPECT_EQ(manager->getStudentInfo(1).status, 1);
    EXPECT_EQ(manager->getStudentInfo(1).row, -1) << "before any were sorted";
    EXPECT_FALSE(manager->updateFaceRect(2, cv::Rect(1, 2, 3, 4), cv::Mat(), FACE));
    EXPECT_FALSE(manager->updateBodyMat(2, FACE));
    EXPECT_EQ(manager->getFaceID("b"), -1);
    EXPECT_TRUE(manager->updateStudentID("a", "c"));
    EXPECT_EQ(manager->getStudentInfo("c").stuID, "c");
    EXPECT_EQ(manager->getFaceID("c"), 1);
    EXPECT_EQ(manager->count(), 1);
    EXPECT_TRUE(manager->removeStudent("c"));
    EXPECT_EQ(manager->count(), 0);
}

TEST_F(DataManagerTest, EveryOperationMayMeetEveryOther)
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    const auto id = [](int number) { return QString::number(number % 16); };
    ExternalGallery *externals = ExternalGallery::instance();
    atOnce(4000, {[&](int i) {
                      manager->addStudent(student(id(i), i % 16));
                      manager->removeStudent(id(i + 7));
                      cv::Mat face = feature({1, 2});
                      externals->addFaceFeature(id(i), face);
                      if (i % 20 == 0) {
                          manager->clear();
                          externals->clear();
                      }
                  },
                  [&](int i) {
                      manager->updateStudentID(id(i), id(i + 5));
                      manager->updateStudent(student(id(i), i % 16));
                      manager->updateBodyRect(i % 16, cv::Rect(1, i, 3, 4), i % 4);
                      manager->updateFaceRect(i % 16, cv::Rect(), feature({1, 2}), FACE);
                      manager->updateBodyMat(i % 16, FACE);
                      externals->setFaceFeature(id(i), i % 2);
                  },
                  [&](int i) {
                      manager->isStudentExist(id(i));
                      EXPECT_LE(manager->count(), 16);
                      EXPECT_LT(manager->getFaceID(id(i)), 16);
                      manager->getStudentInfo(id(i));
                      manager->getStudentInfo(i % 16);
                      manager->getStudentID(i % 16);
                      for (const auto &item : externals->getValidFaceFeatures())
                          EXPECT_EQ(cv::Mat(item->feature).cols, 2);
                  },
                  [&](int) {
                      manager->getAllStudents();
                      manager->getFoundStudents();
                      manager->getNoFaceIDStudents();
                      manager->getUnfoundBodyStudents();
                      manager->resetStatus();
                      manager->sortStudentRows();
                  }});
    qInstallMessageHandler(nullptr);
}

TEST(ExternalGalleryTest, ListsTheValidOnesByTheirIds)
{
    ExternalGallery *gallery = ExternalGallery::instance();
    gallery->clear();
    cv::Mat face = feature({1, 2});
    for (const char *stuID : {"b", "a", ""})
        gallery->addFaceFeature(stuID, face);
    const auto names = [gallery] {
        QStringList result;
        for (const auto &item : gallery->getValidFaceFeatures())
            result.append(item->stuID);
        return result;
    };
    EXPECT_EQ(names(), QStringList({"a", "b"}));
    gallery->disableFaceFeature("a");
    gallery->addFaceFeature("a", face); // stays out
    EXPECT_EQ(names(), QStringList("b"));
    gallery->enableFaceFeature("a");
    EXPECT_EQ(names(), QStringList({"a", "b"}));
    gallery->clear();
    EXPECT_EQ(names(), QStringList());
}

TEST_F(DataManagerTest, ListsAreByWhatWasFound)
{
    const auto add = [this](const QString &stuID, int status, const cv::Rect &body, bool faceIDValid) {
        StudentInfo info = student(stuID, manager->count());
        info.status = status;
        info.bodyRect = body;
        info.faceIDValid = faceIDValid;
        manager->addStudent(info);
    };
    const cv::Rect smallest(0, 0, 1, 1);
    add("by body", 1, smallest, true);
    add("by face", 2, smallest, true);
    add("seen before", 0, smallest, true);
    add("narrow", 0, cv::Rect(0, 0, 0, 1), true);
    add("flat", 0, cv::Rect(0, 0, 1, 0), false);
    const auto names = [](const QVector<StudentInfo> &students) {
        QStringList result;
        for (const StudentInfo &info : students)
            result.append(info.stuID);
        return result;
    };
    EXPECT_EQ(names(manager->getFoundStudents()), (QStringList{"by body", "by face"}));
    EXPECT_EQ(names(manager->getUnfoundBodyStudents()), QStringList{"seen before"});
    EXPECT_EQ(names(manager->getNoFaceIDStudents()), QStringList{"flat"});
    manager->resetStatus();
    EXPECT_EQ(names(manager->getFoundStudents()), QStringList());
}

TEST_F(DataManagerTest, NumbersRowsFromTheirLowestStudent)
{
    // Upper edge of the body: row.
    const std::vector<std::pair<int, int>> classes[] = {
        {{500, 1}, {410, 1}},
        {{500, 1}, {409, 2}},
        {{409, 2}, {349, 2}, {500, 1}, {319, 2}, {318, 3}, {0, 4}},
        {{std::numeric_limits<int>::max(), 1}, {std::numeric_limits<int>::min(), 2}},
        {40, {500, 1}},
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

} // namespace

#include "fixture.h"

namespace {

/// What a crashed service leaves behind, and a controller that starts from it.
class RecoveryTest : public ControllerTest
{
protected:
    /// Forgets what lives in the process, as a crash does, and recovers from the file.
    void crashAndRecover(AIServiceController &next)
    {
        recognisers.ids->entries.clear();
        DataManager::instance()->clear();
        ExternalGallery::instance()->clear();
        store->open(false);
        next.recovery();
    }
};

TEST_F(RecoveryTest, StudentsComeBackAsTheTimerSavedThem)
{
    enrol({gallery("b", 50), gallery("c", 110)});
    StudentInfo student = students::get("b");
    student.bodyRect = {1, 2, 3, 4};
    student.galleryScore = 0.9;
    student.bestGallery = cv::Mat(128, 128, CV_8UC3, cv::Scalar::all(200));
    DataManager::instance()->updateStudent(student);
    controller->onStorageTimeDone();
    enrol({gallery("a", 90, {10, 20, 30, 100})});
    controller->updateStudentID({{"oldStuID", "b"}, {"newStuID", "renamed"}});
    controller->deleteGallery({{"stuID", "c"}});
    crashAndRecover(*controller);

    EXPECT_EQ(known(), QStringList({"a", "renamed"}));
    EXPECT_EQ(recognisers.ids->entries.size(), 2U);
    EXPECT_EQ(event(1018, 3).type, "service");
    const StudentInfo saved = students::get("renamed");
    EXPECT_EQ(saved.bodyRect, cv::Rect(1, 2, 3, 4));
    EXPECT_EQ(saved.bodyCenterX, 0);
    EXPECT_EQ(saved.galleryScore, 0.9);
    EXPECT_NEAR(cv::mean(saved.bestGallery)[0], 50, 3); // still the registered picture
    EXPECT_EQ(saved.meanFeature.at<float>(0, 200), 1.0F);
    EXPECT_EQ(saved.registerFeature.at<float>(0, 50), 1.0F);
    const StudentInfo a = students::get("a"); // whom the timer never met
    EXPECT_EQ(a.faceRect, cv::Rect(10, 20, 30, 100));
    EXPECT_TRUE(a.faceIDValid); // enrolled although his face is small
    EXPECT_EQ(a.galleryScore, 0.0);
    EXPECT_TRUE(a.bodyRect.empty());
}

TEST_F(RecoveryTest, NothingIsWrittenTwiceAndWithoutACameraOnlyExternalFacesComeBack)
{
    setExternal({gallery("a", 50), gallery("guest", 60)});
    enrol({gallery("a", 50)});
    crashAndRecover(*controller);
    EXPECT_EQ(externals(), QStringList("guest"));
    AIServiceController unconnected(nullptr);
    crashAndRecover(unconnected);
    EXPECT_TRUE(known().isEmpty());
    EXPECT_EQ(externals(), QStringList({"a", "guest"}));
    EXPECT_EQ(stored(), QStringList("a")); // for the next recovery
    EXPECT_EQ(storedExternals(), QStringList({"a", "guest"}));
}

TEST_F(RecoveryTest, DamageCostsOnlyWhatItHits)
{
    store->addFaceMat("broken", "no picture", {});
    enrol({gallery("a", 50)});
    crashAndRecover(*controller);
    EXPECT_EQ(known(), QStringList("a"));
    store->remove(); // the next one finds no tables
    crashAndRecover(*controller);
    EXPECT_TRUE(known().isEmpty());
}

} // namespace

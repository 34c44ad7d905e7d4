#include "fixture.h"
#include "logcapture.h"

#include <chrono>

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
    store->remove(); // the next one finds no tables
    crashAndRecover(*controller);
    EXPECT_TRUE(known().isEmpty());
}

/// Memory that runs out once.
class FailingAllocator : public cv::MatAllocator
{
public:
    cv::UMatData *allocate(int dims, const int *sizes, int type, void *data, size_t *step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        if (fails.exchange(false))
            throw std::bad_alloc();
        return standard->allocate(dims, sizes, type, data, step, flags, usage);
    }
    bool allocate(cv::UMatData *data, cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        return standard->allocate(data, flags, usage);
    }
    void deallocate(cv::UMatData *data) const override { standard->deallocate(data); }

    mutable std::atomic<bool> fails{false};
    cv::MatAllocator *const standard = cv::Mat::getStdAllocator();
};

/// Takes its time over one face, refuses another one, and takes the memory away behind a third.
struct HardFaces : scripted::FaceID
{
    int registerFace(const cv::Mat &face, int id) override
    {
        if (brightness(face) < 60)
            std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        return brightness(face) > 180 ? -5 : scripted::FaceID::registerFace(face, id);
    }
    int extractFeature(const cv::Mat &face, cv::Mat *feature, bool) override
    {
        *feature = featureOf(face);
        allocator.fails = std::abs(brightness(face) - 150) < 3;
        return 0;
    }

    FailingAllocator allocator;
};

TEST_F(RecoveryTest, DamageCostsOneStudentAndProgressAndEndAreTold)
{
    const auto hard = std::make_shared<HardFaces>();
    for (const char *list : {"a 50", "lost 150", "refused 200", "b 90"}) {
        const QStringList words = QString(list).split(' ');
        store->addFaceMat(words[0], faceText(words[1].toInt()), {});
        store->setHistoryGalleries("guest " + words[0], faceText(words[1].toInt()));
    }
    store->addFaceMat("broken", "no picture", {});
    recognisers.ids = hard;
    recognisers.install();
    cv::Mat::setDefaultAllocator(&hard->allocator);
    LogCapture log;
    QElapsedTimer clock;
    clock.start();
    crashAndRecover(*controller);
    const qint64 seconds = clock.elapsed() / 1000;
    const QStringList lines = log.takeLines();
    cv::Mat::setDefaultAllocator(hard->allocator.standard);

    EXPECT_EQ(known(), QStringList({"a", "b"}));
    EXPECT_EQ(externals(), QStringList({"guest a", "guest b", "guest refused"}));
    EXPECT_EQ(lines.filter("critical: [recover] student lost is lost: ").size(), 1);
    EXPECT_EQ(lines.filter("critical: [recover] student guest lost is lost: ").size(), 1);
    EXPECT_TRUE(lines.contains("info: [recover] students: 1 of 5"));
    EXPECT_LE(lines.filter(" of ").size(), seconds);
    EXPECT_EQ(lines.last(), "info: [recover] students read: 5 brought back: 2 refused by the recogniser: 1");
    enrol({gallery("c", 110)});
    EXPECT_EQ(stored().last(), "c");
}

/// An event's receiver that throws.
TEST_F(RecoveryTest, AnyOtherExceptionEndsTheRecoveryAlone)
{
    enrol({gallery("a", 50)});
    const auto thrower = QObject::connect(&catcher, &IService::serviceMessgeSignal,
                                          [] { throw std::runtime_error("no event"); });
    EXPECT_THROW(crashAndRecover(*controller), std::runtime_error);
    QObject::disconnect(thrower);
    enrol({gallery("b", 90)});
    EXPECT_EQ(stored(), QStringList({"a", "b"})); // what comes later is stored again
}

} // namespace

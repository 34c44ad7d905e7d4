#include "eventcatcher.h"
#include "externalgallery.h"
#include "gallerystrategy.h"
#include "imageutil.h"
#include "newgallerystrategy.h"
#include "students.h"

#include <gmock/gmock.h>

using ::testing::ElementsAre;

namespace {

class Gallery : public ::testing::Test
{
protected:
    void SetUp() override
    {
        DataManager::instance()->clear();
        ExternalGallery::instance()->clear();
        strategy = new NewGalleryStrategy("42");
        QObject::connect(
            strategy, &BaseStrategy::finished, strategy, [this] { ++finished; }, Qt::DirectConnection);
    }
    void TearDown() override
    {
        BaseStrategy::release(strategy);
        DataManager::instance()->clear();
        ExternalGallery::instance()->clear();
    }

    void addExternal(const QString &stuID, int brightness)
    {
        cv::Mat feature =
            scripted::FaceID::featureOf(cv::Mat(128, 128, CV_8UC3, cv::Scalar::all(brightness)));
        ExternalGallery::instance()->addFaceFeature(stuID, feature);
    }
    void show(const std::vector<std::pair<cv::Rect, int>> &faces)
    {
        std::vector<cv::Rect> rects;
        for (const auto &[rect, brightness] : faces) {
            students::paint(frame, rect, brightness);
            rects.push_back(rect);
        }
        recognisers.faces->finds(rects);
    }
    QVariantMap onlyEvent() const
    {
        const auto events = catcher.events(1011);
        EXPECT_EQ(events.size(), 1U);
        if (events.empty())
            return {};
        EXPECT_EQ(events[0].type, "execute");
        EXPECT_EQ(events[0].requestID, "42");
        EXPECT_EQ(events[0].info.keys(), QStringList({"galleries", "image"}));
        return events[0].info;
    }
    static QVariantMap entry(const QVariantMap &info, int index)
    {
        return info["galleries"].toList().value(index).toMap();
    }

    EventCatcher &catcher = EventCatcher::fresh();
    ModelManagerTestAccess::Recognisers recognisers;
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(10));
    NewGalleryStrategy *strategy = nullptr;
    int finished = 0;
};

TEST_F(Gallery, AClassWithoutFacesIsToldAfterThreeFrames)
{
    strategy->handleFrame(frame);
    strategy->handleFrame(frame);
    EXPECT_TRUE(catcher.events().empty());
    strategy->handleFrame(frame);
    const QVariantMap info = onlyEvent();
    EXPECT_TRUE(info["galleries"].toList().isEmpty());
    EXPECT_EQ(ai_image::convertBase642Mat(info["image"].toString()).size(), frame.size());
    EXPECT_EQ(finished, 0); // the frame budget's job
}

TEST_F(Gallery, EveryFaceComesWithItsCropsAndItsPlace)
{
    show({{{300, 300, 90, 90}, 50}, {{900, 400, 120, 120}, 100}});
    strategy->handleFrame(frame);
    const QVariantMap info = onlyEvent();
    EXPECT_EQ(finished, 1);
    ASSERT_EQ(info["galleries"].toList().size(), 2);
    const QVariantMap second = entry(info, 1);
    EXPECT_EQ(second.keys(),
              QStringList({"faceImg", "gid", "height", "isDetected", "showImg", "stuID", "width", "x", "y"}));
    EXPECT_EQ(second["gid"], QVariant(1));
    EXPECT_EQ(second["stuID"], QVariant(QString()));
    EXPECT_EQ(second["isDetected"], QVariant(false));
    EXPECT_EQ(second["isDetected"].type(), QVariant::Bool);
    EXPECT_EQ(second["x"], QVariant(895));
    EXPECT_EQ(second["height"], QVariant(130));
    for (const char *crop : {"faceImg", "showImg"})
        EXPECT_EQ(ai_image::convertBase642Mat(second[crop].toString()).size(), cv::Size(128, 128));
}

TEST_F(Gallery, ExternalFacesAreNamedAndEnrolledOnesWin)
{
    addExternal("guest", 50);
    addExternal("also guest", 50); // one face is one person
    addExternal("student's double", 100);
    students::enrol(*recognisers.ids, "student", 100);
    recognisers.ids->matchScore = 0.43; // exactly the threshold
    show({{{300, 300, 90, 90}, 50}, {{900, 400, 120, 120}, 100}, {{1500, 400, 120, 120}, 200}});
    strategy->handleFrame(frame);
    const QVariantMap info = onlyEvent();
    EXPECT_EQ(entry(info, 0)["stuID"], "also guest"); // first of equal ones, in the order of the ids
    EXPECT_EQ(entry(info, 0)["isDetected"], QVariant(false));
    EXPECT_EQ(entry(info, 1)["stuID"], "student");
    EXPECT_EQ(entry(info, 1)["isDetected"], QVariant(true));
    EXPECT_EQ(entry(info, 2)["stuID"], "");
}

TEST_F(Gallery, AFaceThatTheRecordsDontKnowIsDetectedWithoutName)
{
    students::enrol(*recognisers.ids, "other", 200);
    recognisers.ids->registerFace(cv::Mat(128, 128, CV_8UC3, cv::Scalar::all(100)),
                                  -1); // in the gallery only
    show({{{900, 400, 120, 120}, 100}});
    strategy->handleFrame(frame);
    const QVariantMap only = entry(onlyEvent(), 0);
    EXPECT_EQ(only["isDetected"], QVariant(true));
    EXPECT_EQ(only["stuID"], "");
}

TEST_F(Gallery, FeaturesOfOtherLengthsMatchNobody)
{
    cv::Mat odd = cv::Mat::ones(1, 3, CV_64F);
    ExternalGallery::instance()->addFaceFeature("odd", odd);
    cv::Mat zero = cv::Mat::zeros(1, 256, CV_32F);
    ExternalGallery::instance()->addFaceFeature("zero", zero);
    show({{{900, 400, 120, 120}, 100}});
    strategy->handleFrame(frame);
    EXPECT_EQ(entry(onlyEvent(), 0)["stuID"], "");
}

TEST_F(Gallery, OneStudentIsLookedForAroundHisPlace)
{
    show({{{900, 400, 120, 120}, 100}});
    cv::Size region;
    recognisers.faces->script = [&](const cv::Mat &image, std::vector<cv::Rect> &faces,
                                    std::vector<std::vector<cv::Point>> &landmarks) {
        region = image.size();
        faces = {{50, 40, 90, 90}};
        landmarks = {{{80, 75}, {110, 75}, {95, 90}, {80, 110}, {110, 110}}};
    };
    strategy->setParameters({{"x", 1000}, {"y", 20}, {"width", 100}, {"height", 80}, {"stuID", "s"}});
    strategy->handleFrame(frame);
    EXPECT_EQ(region, cv::Size(220, 200)); // 60 on each side, cut at the top
    const QVariantMap only = entry(onlyEvent(), 0);
    EXPECT_EQ(only["stuID"], "s");
    EXPECT_EQ(only["gid"], QVariant(0));
    EXPECT_EQ(only["isDetected"], QVariant(0));
    EXPECT_EQ(only["isDetected"].type(), QVariant::Int);
    EXPECT_EQ(only["x"], QVariant(940 + 45));
    EXPECT_EQ(only["y"], QVariant(0 + 35));
    EXPECT_EQ(only["width"], QVariant(100));
}

TEST_F(Gallery, PlacesAtTheEdgeAreTheWholeClassAndPlacesOutsideHaveNoFace)
{
    show({{{900, 400, 120, 120}, 100}});
    strategy->setParameters({{"x", 0}, {"y", 20}, {"width", 100}, {"height", 80}, {"stuID", "s"}});
    strategy->handleFrame(frame);
    EXPECT_EQ(entry(onlyEvent(), 0)["x"], QVariant(895));
    strategy->setParameters({{"x", 2147483647}, {"y", 50}, {"width", 2147483647}, {"height", 80}});
    strategy->handleFrame(frame);
    ASSERT_EQ(catcher.events().size(), 2U);
    EXPECT_TRUE(catcher.events()[1].info["galleries"].toList().isEmpty());
}

TEST(OldGallery, KeepsOneRecordForEachPlaceWithTheLargestOffset)
{
    ModelManagerTestAccess::Recognisers recognisers;
    const cv::Mat frame(1080, 1920, CV_8UC3, cv::Scalar::all(10));
    BaseStrategy *strategy = BaseStrategy::createNewStrategy("GalleryStrategy", "");
    const auto handle = [&](const std::vector<cv::Rect> &faces) {
        recognisers.faces->finds(faces);
        strategy->handleFrame(frame);
    };
    handle({{100, 100, 90, 90}, {500, 100, 90, 90}, {900, 100, 90, 90}});
    const std::vector<GalleryItem> &items = GalleryStrategy::items();
    ASSERT_EQ(items.size(), 3U);
    const int offset = items[1].offset;
    handle({{500 + 127, 100, 90, 90}, {900 + 128, 100, 90, 90}});
    ASSERT_EQ(items.size(), 4U);
    EXPECT_EQ(items[1].centre, cv::Point(672, 145));
    EXPECT_EQ(items[1].faceRect, cv::Rect(495, 95, 100, 100)); // an equal offset keeps the crops
    EXPECT_EQ(items[3].index, 3);
    handle({{620, 100, 200, 200}});
    EXPECT_GT(items[1].offset, offset);
    EXPECT_EQ(items[1].faceRect, cv::Rect(615, 95, 210, 210));
    BaseStrategy::release(strategy);
}

} // namespace

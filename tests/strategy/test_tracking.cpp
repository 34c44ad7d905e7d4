#include "students.h"
#include "studenttracker.h"
#include "trackingstrategy.h"

#include <gmock/gmock.h>

#include <QObject>

#include <limits>

namespace {

/// A textured patch that moves over a textured background, with known place.
class Scene
{
public:
    Scene()
    {
        cv::RNG random(7);
        background = cv::Mat(1080, 1920, CV_8UC3);
        random.fill(background, cv::RNG::UNIFORM, 60, 100);
        cv::GaussianBlur(background, background, cv::Size(31, 31), 0);
        patch = cv::Mat(120, 120, CV_8UC3);
        random.fill(patch, cv::RNG::UNIFORM, 0, 255);
        cv::GaussianBlur(patch, patch, cv::Size(9, 9), 0);
    }
    cv::Mat at(const cv::Point &corner) const
    {
        cv::Mat frame = background.clone();
        patch.copyTo(frame(cv::Rect(corner, patch.size())));
        return frame;
    }

    cv::Mat background, patch;
};

class Tracking : public ::testing::Test
{
protected:
    void SetUp() override
    {
        DataManager::instance()->clear();
        strategy = new TrackingStrategy("start");
        QObject::connect(
            strategy, &BaseStrategy::serviceMessgeSignal, strategy,
            [this](unsigned int code, const QVariant &info, const QString &requestID) {
                EXPECT_EQ(code, 1014U);
                const QVariantMap map = info.toMap();
                EXPECT_EQ(map.keys(), QStringList({"height", "stuID", "width", "x", "y"}));
                boxes.emplace_back(map["x"].toInt(), map["y"].toInt(), map["width"].toInt(),
                                   map["height"].toInt());
                receivers.append(requestID);
            },
            Qt::DirectConnection);
    }
    void TearDown() override
    {
        BaseStrategy::release(strategy);
        DataManager::instance()->clear();
    }

    void enrol(const cv::Rect &face) { faceID = students::enrol(*recognisers.ids, "s", 50, face); }

    ModelManagerTestAccess::Recognisers recognisers;
    Scene scene;
    TrackingStrategy *strategy = nullptr;
    std::vector<cv::Rect> boxes;
    QStringList receivers;
    int faceID = -1;
};

TEST_F(Tracking, OneTrackerForEachRequest)
{
    enrol({500, 400, 120, 120});
    EXPECT_EQ(strategy->startTracking("nobody", "1"), -1);
    EXPECT_EQ(strategy->startTracking("s", "1"), 0);
    EXPECT_EQ(strategy->startTracking("s", "1"), -2);
    EXPECT_EQ(strategy->startTracking("s", "2"), 0);
    EXPECT_EQ(strategy->trackerCount(), 2);
    strategy->handleFrame(scene.at({500, 400}));
    EXPECT_EQ(receivers, QStringList({"1", "2"}));
    strategy->stopTracking("s", "3");
    EXPECT_EQ(strategy->trackerCount(), 2);
    strategy->stopTracking("s", "1");
    strategy->stopTracking("s", "2");
    EXPECT_EQ(strategy->trackerCount(), 0);
    strategy->handleFrame(scene.at({500, 400}));
    EXPECT_EQ(receivers.size(), 2);
}

TEST_F(Tracking, TheFirstReportIsTheWidenedFace)
{
    enrol({501, 401, 121, 121});
    strategy->startTracking("s", "1");
    strategy->handleFrame(scene.at({500, 400}));
    ASSERT_EQ(boxes.size(), 1U);
    EXPECT_EQ(boxes[0], cv::Rect(480, 380, 160, 160));
}

TEST_F(Tracking, BoxesStayInsideTheFrame)
{
    enrol({4, 2, 41, 40});
    strategy->startTracking("s", "1");
    strategy->handleFrame(scene.at({500, 400}));
    EXPECT_EQ(boxes[0], cv::Rect(0, 0, 80, 80));
}

TEST_F(Tracking, FollowsAMovingFace)
{
    const cv::Point start(500, 400);
    enrol(cv::Rect(start, cv::Size(120, 120)));
    strategy->startTracking("s", "1");
    double error = 0;
    constexpr int passes = 30;
    for (int i = 0; i < passes; ++i) {
        const cv::Point corner = start + cv::Point(12 * i, 4 * i);
        strategy->handleFrame(scene.at(corner));
        const cv::Rect &box = boxes.back();
        const cv::Point offset = (box.tl() + box.br()) / 2 - (corner + cv::Point(60, 60));
        error += std::sqrt(offset.ddot(offset));
        EXPECT_TRUE(box.contains(corner + cv::Point(60, 60))) << "pass " << i;
    }
    RecordProperty("meanCentreErrorInPixels", std::to_string(error / passes));
    EXPECT_LT(error / passes, 20.0); // the margin of the box around the face
}

TEST_F(Tracking, AStrayedBoxGoesBackToTheFace)
{
    const cv::Rect face(500, 400, 120, 120);
    enrol(face);
    strategy->startTracking("s", "1");
    cv::Mat frame = scene.at(face.tl());
    strategy->handleFrame(frame);

    // The search region starts 60 below and right of nothing: box 240,190 at half scale, region at 360,260.
    const cv::Point region(360, 260);
    const auto findAt = [&](const cv::Point &corner, int brightness) {
        const cv::Rect found(corner, face.size());
        students::paint(frame, found, brightness);
        recognisers.faces->finds({found - region});
    };
    // Centre of the box at half scale is 280, 230; a face whose centre is 10 away stays.
    findAt({500 + 20, 400}, 50);
    frame = scene.at(face.tl());
    strategy->handleFrame(frame);
    EXPECT_EQ(boxes.back().x, 480);
    // Another student's face changes nothing.
    findAt({500 + 60, 400 + 30}, 150);
    strategy->handleFrame(frame);
    EXPECT_NEAR(boxes.back().y, 380, 12);
    // The student's own, farther off, does; the left edge stays.
    frame = scene.at(face.tl());
    findAt({500 + 60, 400 + 40}, 50);
    strategy->handleFrame(frame);
    EXPECT_EQ(boxes.back(), cv::Rect(480, 420, 160, 160));
}

TEST_F(Tracking, ALostFaceIsReportedWhereItWasLast)
{
    const cv::Rect face(500, 400, 120, 120);
    enrol(face);
    strategy->startTracking("s", "1");
    strategy->handleFrame(scene.at(face.tl()));
    strategy->handleFrame(scene.at(face.tl()));
    const cv::Rect last = boxes.back();
    strategy->handleFrame(cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(0)));
    strategy->handleFrame(scene.at(face.tl()));
    ASSERT_EQ(boxes.size(), 4U);
    EXPECT_EQ(boxes[2], last);
    EXPECT_NEAR(boxes[3].x, last.x, 4);
}

TEST_F(Tracking, PlacesOutsideThePictureFailPassByPass)
{
    constexpr int huge = std::numeric_limits<int>::max();
    for (const cv::Rect &face :
         {cv::Rect(huge, huge, huge, huge), cv::Rect(-huge, 0, -5, 0), cv::Rect(3000, 100, 50, 50)}) {
        enrol(face);
        strategy->startTracking("s", "1");
        strategy->handleFrame(scene.at({0, 0}));
        strategy->handleFrame(scene.at({0, 0}));
        strategy->stopTracking("s", "1");
        DataManager::instance()->clear();
    }
    EXPECT_EQ(boxes.size(), 6U);
}

} // namespace

#include "fixture.h"
#include "trackingstrategy.h"

#include <opencv2/imgproc.hpp>

namespace {

/// Frames with a textured face at a known place of a textured room.
class Tracking : public StrategyTest
{
protected:
    void SetUp() override
    {
        cv::RNG random(7);
        random.fill(frame, cv::RNG::UNIFORM, 60, 100);
        cv::GaussianBlur(frame, frame, cv::Size(31, 31), 0);
        random.fill(patch, cv::RNG::UNIFORM, 0, 255);
        cv::GaussianBlur(patch, patch, cv::Size(9, 9), 0);
    }

    cv::Mat faceAt(const cv::Point &corner) const
    {
        cv::Mat picture = frame.clone();
        patch.copyTo(picture(cv::Rect(corner, patch.size())));
        return picture;
    }
    /// A student with this face, who is followed.
    void follow(const cv::Rect &place)
    {
        students::enrol(*recognisers.ids, "s", 50, place);
        EXPECT_EQ(strategy->startTracking("s", "1"), 0);
    }
    /// The box that is reported of the next frame.
    cv::Rect next(const cv::Mat &picture)
    {
        events.clear();
        strategy->handleFrame(picture);
        EXPECT_EQ(events.size(), 1U);
        if (events.empty())
            return {};
        EXPECT_EQ(events[0].code, 1014U);
        EXPECT_EQ(events[0].info.keys(), QStringList({"height", "stuID", "width", "x", "y"}));
        return rectOf(events[0].info);
    }

    cv::Mat patch = cv::Mat(120, 120, CV_8UC3);
    const cv::Rect face{500, 400, 120, 120};
    TrackingStrategy *strategy = listen(new TrackingStrategy("start"));
};

TEST_F(Tracking, FollowsAMovingFaceWithAMargin)
{
    follow({501, 401, 121, 121});
    EXPECT_EQ(next(faceAt(face.tl())), cv::Rect(480, 380, 160, 160));
    for (int i = 0; i < 30; ++i) {
        const cv::Point corner = face.tl() + cv::Point(12 * i, 4 * i);
        const cv::Rect box = next(faceAt(corner));
        const cv::Point centre = corner + cv::Point(60, 60);
        EXPECT_LT(cv::norm((box.tl() + box.br()) / 2 - centre), 40.0) << "pass " << i;
    }
}

TEST_F(Tracking, BoxesStayInsideTheFrame)
{
    follow({4, 2, 41, 40});
    EXPECT_EQ(next(faceAt(face.tl())), cv::Rect(0, 0, 80, 80));
}

TEST_F(Tracking, AStrayedBoxGoesBackToTheFace)
{
    follow(face);
    cv::Mat picture = faceAt(face.tl());
    strategy->handleFrame(picture);

    // Box 240,190 at half scale: the search region starts 60 before it, at 360,260 of the frame.
    const cv::Point region(360, 260);
    const auto findAt = [&](const cv::Point &corner, int brightness) {
        const cv::Rect found(corner, face.size());
        picture(found).setTo(cv::Scalar::all(brightness));
        recognisers.faces->finds({found - region});
    };
    // Centre of the box at half scale is 280, 230; a face whose centre is 10 away stays.
    findAt({500 + 20, 400}, 50);
    picture = faceAt(face.tl());
    EXPECT_EQ(next(picture).x, 480);
    // Another student's face changes nothing.
    findAt({500 + 60, 400 + 30}, 150);
    EXPECT_NEAR(next(picture).y, 380, 12);
    // The student's own, farther off, does; the left edge stays.
    picture = faceAt(face.tl());
    findAt({500 + 60, 400 + 40}, 50);
    EXPECT_EQ(next(picture), cv::Rect(480, 420, 160, 160));
}

TEST_F(Tracking, ALostFaceIsReportedWhereItWasLast)
{
    follow(face);
    strategy->handleFrame(faceAt(face.tl()));
    const cv::Rect last = next(faceAt(face.tl()));
    EXPECT_EQ(next(cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(0))), last);
    EXPECT_NEAR(next(faceAt(face.tl())).x, last.x, 4);
}

} // namespace

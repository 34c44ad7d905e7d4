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
    follow({501, 401, 121, 131});
    EXPECT_EQ(next(faceAt(face.tl())), cv::Rect(480, 380, 160, 170));
    for (int i = 0; i < 30; ++i) {
        const cv::Point corner = face.tl() + cv::Point(12 * i, 4 * i);
        const cv::Rect box = next(faceAt(corner));
        const cv::Point centre = corner + cv::Point(60, 60);
        EXPECT_LT(cv::norm((box.tl() + box.br()) / 2 - centre), 40.0) << "pass " << i;
    }
}

TEST_F(Tracking, BoxesStayInsideTheFrame)
{
    follow({4, 2, 41, 60});
    EXPECT_EQ(next(faceAt(face.tl())), cv::Rect(0, 0, 80, 100));
}

TEST_F(Tracking, AStrayedBoxGoesBackToTheFace)
{
    // The face holds still, so the tracker does; the detector's rectangle of it wanders, its eyes don't.
    const auto faceOf = [&](int brightness) {
        cv::Mat picture = faceAt(face.tl());
        picture(cv::Rect(536, 438, 48, 48)).setTo(cv::Scalar::all(brightness));
        return picture;
    };
    // Box 240,190 at half scale: the search region starts 60 before it, at 360,260 of the frame.
    cv::Point region(360, 260);
    cv::Size searched;
    const auto detectAt = [&](const cv::Point &centre) {
        recognisers.faces->script = [=, &searched](const cv::Mat &image, std::vector<cv::Rect> &faces,
                                                   std::vector<std::vector<cv::Point>> &landmarks) {
            searched = image.size();
            faces = {cv::Rect(centre - cv::Point(50, 70) - region, cv::Size(100, 140))};
            const cv::Point left = cv::Point(540, 455) - region;
            landmarks = {{left, left + cv::Point(40, 0), left, left, left}};
        };
    };
    students::enrol(*recognisers.ids, "another", 150);
    follow(face);
    strategy->handleFrame(faceOf(50));

    detectAt({560 + 12, 460 + 16}); // 6 and 8 at half scale: 10 away stays
    EXPECT_EQ(next(faceOf(50)), cv::Rect(480, 380, 160, 160));
    EXPECT_EQ(searched, cv::Size(400, 400));
    detectAt({560 + 14, 460 + 16}); // and no more; the left edge never changes
    EXPECT_EQ(next(faceOf(50)), cv::Rect(480, 386, 140, 180));
    region.y += 6;
    detectAt({560 + 60, 460 + 80}); // another student's face changes nothing
    EXPECT_NEAR(next(faceOf(150)).y, 386, 16);
    EXPECT_EQ(searched, cv::Size(380, 420));
    const cv::Rect box = next(faceOf(50));
    EXPECT_EQ(box.y, 450);
    ASSERT_NE(box.width, box.height);
    region.y = box.y - 120;
    detectAt((box.tl() + box.br()) / 2 + cv::Point(-12, 16)); // 10 away from its centre, again
    EXPECT_EQ(next(faceOf(50)), box);
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

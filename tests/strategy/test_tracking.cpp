#include "atonce.h"
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

    /// The face at the corner, with a flat patch by which it is identified.
    cv::Mat identifiedAt(const cv::Point &corner, int brightness) const
    {
        cv::Mat picture = faceAt(corner);
        picture(cv::Rect(corner + cv::Point(36, 38), cv::Size(48, 48))).setTo(cv::Scalar::all(brightness));
        return picture;
    }
    /// The detector's rectangle of the face at the corner, both in the frame; its picture begins at the
    /// region.
    void detect(const cv::Rect &rect, const cv::Point &corner, const cv::Point &region)
    {
        recognisers.faces->script = [=](const cv::Mat &image, std::vector<cv::Rect> &faces,
                                        std::vector<std::vector<cv::Point>> &landmarks) {
            searched = image.size();
            faces = {rect - region};
            const cv::Point left = corner + cv::Point(40, 55) - region;
            landmarks = {{left, left + cv::Point(40, 0), left, left, left}};
        };
    }

    cv::Size searched;
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
    const auto faceOf = [&](int brightness) { return identifiedAt(face.tl(), brightness); };
    // Box 240,190 at half scale: the search region starts 60 before it, at 360,260 of the frame.
    cv::Point region(360, 260);
    const auto detectAt = [&](const cv::Point &centre) {
        detect({centre - cv::Point(50, 70), cv::Size(100, 140)}, face.tl(), region);
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

TEST_F(Tracking, ARestartStaysInsideAFrameOfAnySize)
{
    frame = frame(cv::Rect(0, 0, 1000, 800));
    const cv::Point corner(800, 500);
    follow({corner, patch.size()});
    const cv::Mat picture = identifiedAt(corner, 50);
    EXPECT_EQ(next(picture), cv::Rect(780, 480, 160, 160));
    detect({800, 690, 300, 200}, corner, {660, 360});
    EXPECT_EQ(next(picture), cv::Rect(780, 670, 220, 130));
    EXPECT_EQ(searched, cv::Size(340, 400)); // cut at the right
}

TEST_F(Tracking, BoxesEndWhereAFullFrameDoesOnALargerOneToo)
{
    cv::copyMakeBorder(frame, frame, 0, 120, 0, 80, cv::BORDER_REFLECT);
    const cv::Point corner(1800, 960);
    follow({corner, patch.size()});
    EXPECT_EQ(next(faceAt(corner)), cv::Rect(1780, 940, 140, 140));
    next(faceAt(corner)); // it learns
    cv::Rect box = next(faceAt(corner - cv::Point(12, 16)));
    EXPECT_LT(box.x, 1780);
    EXPECT_EQ(box.size(), cv::Size(140, 140)); // as it was started
    for (const int step : {0, 12, 24})
        box = next(faceAt(corner + cv::Point(step, step)));
    EXPECT_GT(box.x, 1780);
    EXPECT_GT(box.y, 940);
    EXPECT_EQ(box.br(), cv::Point(1920, 1080));
    detect({}, corner, {});
    const cv::Rect last = next(faceAt(corner + cv::Point(24, 24)));
    EXPECT_EQ(searched, cv::Size(last.width + 120, last.height + 120));
}

TEST_F(Tracking, RequestsComeAndGoWhilePassesRun)
{
    frame = frame(cv::Rect(0, 0, 64, 48));
    students::enrol(*recognisers.ids, "s", 50, {8, 8, 30, 24});
    EXPECT_EQ(strategy->startTracking("s", "stays"), 0); // so that each pass takes its time
    atOnce(100, {[&](int round) {
                     for (int request = 20 * round; request < 20 * round + 20; ++request) {
                         EXPECT_EQ(strategy->startTracking("s", QString::number(request)), 0);
                         strategy->stopTracking("s", QString::number(request - 2));
                     }
                 },
                 [&](int) {
                     for (int i = 0; i < 100; ++i)
                         EXPECT_LE(strategy->trackerCount(), 4);
                 },
                 [&](int) { strategy->handleFrame(frame); }});
    EXPECT_EQ(strategy->startTracking("s", "1999"), -2); // follows already
    EXPECT_EQ(strategy->startTracking("nobody", "2000"), -1);
    EXPECT_EQ(strategy->trackerCount(), 3);
}

TEST_F(Tracking, APassThatIsStoppedLooksAtNoFurtherFace)
{
    follow(face);
    strategy->handleFrame(faceAt(face.tl()));
    constexpr int strangers = 1000;
    recognisers.faces->finds(std::vector<cv::Rect>(strangers, {0, 0, 90, 90}));
    std::thread stop;
    int looks = 0;
    recognisers.ids->onCall = [&] {
        if (++looks == 1)
            stop = std::thread([&] { strategy->stopTracking("s", "1"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // it is noticed in the course of these
    };
    next(faceAt(face.tl()));
    stop.join();
    EXPECT_LT(looks, strangers);
    EXPECT_EQ(strategy->trackerCount(), 0);
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

#include "matching.h"
#include "oneframeidstragegy.h"
#include "students.h"

#include <gmock/gmock.h>

#include <limits>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

using Rows = std::vector<std::vector<double>>;

std::map<int, int> match(Rows rows, double threshold)
{
    return matching::matchRows(rows, threshold);
}

TEST(MatchRows, StrongestPairsFirstEachRowAndColumnOnce)
{
    EXPECT_THAT(match({{0.9, 0.85}, {0.95, 0.2}}, 0.8), ElementsAre(Pair(0, 1), Pair(1, 0)));
    EXPECT_THAT(match({{0.9}, {0.9}}, 0.8), ElementsAre(Pair(0, 0)));
    EXPECT_THAT(match({{0.9, 0.9}}, 0.8), ElementsAre(Pair(0, 0)));
    EXPECT_THAT(match({{0.79}}, 0.8), IsEmpty());
    EXPECT_THAT(match({{0.43}}, 0.43), ElementsAre(Pair(0, 0)));
    EXPECT_THAT(match({{0.0, -1.0}}, -5), IsEmpty());
    EXPECT_THAT(match({}, 0.1), IsEmpty());
    EXPECT_THAT(match({{}, {}}, 0.1), IsEmpty());
    EXPECT_THAT(match({{NAN, 0.9}, {0.85, NAN}}, 0.8), ElementsAre(Pair(0, 1), Pair(1, 0)));
}

TEST(MatchRows, RowsGetTheLengthOfTheFirst)
{
    Rows rows{{1, 2}, {1, 2, 3}, {1}, {}};
    matching::equaliseRows(rows);
    EXPECT_EQ(rows, (Rows{{1, 2}, {1, 2}, {1, 0}, {0, 0}}));
}

TEST(Overlap, OnlyTheWholeCounts)
{
    const auto ratio = &OneFrameIdStragegy::overlapRatio;
    EXPECT_EQ(ratio({10, 10, 5, 5}, {10, 10, 5, 5}), 1.0);
    EXPECT_EQ(ratio({10, 10, 5, 5}, {10, 10, 5, 4}), 0.0);
    EXPECT_EQ(ratio({9, 10, 5, 5}, {10, 10, 50, 50}), 0.0);
    EXPECT_EQ(ratio({10, 10, 0, 5}, {0, 0, 50, 50}), 0.0); // no area, no division
    constexpr int huge = std::numeric_limits<int>::max();
    EXPECT_EQ(ratio({huge, huge, huge, huge}, {-huge, -huge, huge, huge}), 0.0);
    EXPECT_EQ(OneFrameIdStragegy::bestOverlap({5, 5, 2, 2}, {{0, 0, 6, 6}, {0, 0, 9, 9}, {0, 0, 99, 99}}), 1);
    EXPECT_EQ(OneFrameIdStragegy::bestOverlap({5, 5, 2, 2}, {}), -1);
}

TEST(NearestPairs, NearestFirstBelowTheLimit)
{
    const auto pairs = [](const std::vector<cv::Rect> &rects, const std::vector<cv::Point> &points) {
        return OneFrameIdStragegy::nearestPairs(rects, points, 10000);
    };
    EXPECT_THAT(pairs({{0, 0, 0, 0}}, {{100, 0}}), IsEmpty());
    EXPECT_THAT(pairs({{0, 0, 0, 0}}, {{99, 14}}), ElementsAre(Pair(0U, 0U))); // 9997
    EXPECT_THAT(pairs({{0, 0, 11, 0}, {20, 0, 0, 0}}, {{10, 0}, {30, 0}}),
                ElementsAre(Pair(0U, 0U), Pair(1U, 1U)));
    EXPECT_THAT(pairs({{0, 0, 0, 0}, {20, 0, 0, 0}}, {{10, 0}}), ElementsAre(Pair(0U, 0U)));
    EXPECT_THAT(pairs({}, {{1, 1}}), IsEmpty());
    EXPECT_THAT(pairs({{1, 1, 1, 1}}, {}), IsEmpty());
}

class Identification : public ::testing::Test
{
protected:
    void SetUp() override { DataManager::instance()->clear(); }
    void TearDown() override { DataManager::instance()->clear(); }

    void run(const std::vector<cv::Rect> &bodies) { OneFrameIdStragegy(frame, bodies).run(1); }

    /// Puts a student's face into the frame and makes the detector find it.
    void show(const cv::Rect &face, int brightness)
    {
        students::paint(frame, face, brightness);
        shown.push_back(face);
        recognisers.faces->finds(shown);
    }

    ModelManagerTestAccess::Recognisers recognisers;
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(0));
    std::vector<cv::Rect> shown;
};

TEST_F(Identification, FaceThenPlaceThenStoredFace)
{
    students::enrol(*recognisers.ids, "face", 50);
    students::enrol(*recognisers.ids, "place", 100, {}, {800, 300, 200, 300});
    students::enrol(*recognisers.ids, "stored", 150, {1400, 400, 60, 60});
    StudentInfo stored = students::get("stored");
    stored.faceIDValid = false;
    DataManager::instance()->updateStudent(stored);

    show({300, 300, 90, 90}, 50);
    run({{1380, 380, 200, 300}, {250, 250, 200, 400}, {850, 320, 200, 300}});

    EXPECT_EQ(students::get("face").status, 1);
    EXPECT_EQ(students::get("face").bodyRect, cv::Rect(250, 250, 200, 400));
    EXPECT_EQ(students::get("face").faceRect, cv::Rect(295, 295, 100, 100));
    EXPECT_EQ(students::get("face").featureCount, 1);
    EXPECT_EQ(students::get("place").status, 2);
    EXPECT_EQ(students::get("place").bodyRect, cv::Rect(850, 320, 200, 300));
    EXPECT_EQ(students::get("stored").status, 3);
    EXPECT_EQ(students::get("stored").bodyRect, cv::Rect(1380, 380, 200, 300));
}

TEST_F(Identification, AFaceThatSticksOutOfItsBodyIsNotMatchedButRemembered)
{
    students::enrol(*recognisers.ids, "a", 50);
    show({300, 300, 90, 90}, 50);
    run({{296, 250, 400, 400}});
    EXPECT_EQ(students::get("a").status, 0);
    EXPECT_EQ(students::get("a").faceRect, cv::Rect(295, 295, 100, 100));
}

TEST_F(Identification, SmallFacesAndWeakScoresAreNobody)
{
    students::enrol(*recognisers.ids, "a", 50);
    show({300, 300, 29, 29}, 50); // 39 by 39 with its padding
    run({{200, 200, 400, 400}});
    EXPECT_EQ(students::get("a").status, 0);
    shown.clear();
    show({300, 300, 30, 20}, 50); // one side of 40 is enough
    run({{200, 200, 400, 400}});
    EXPECT_EQ(students::get("a").status, 1);
    recognisers.ids->matchScore = 0.79;
    run({{200, 200, 400, 400}});
    EXPECT_EQ(students::get("a").status, 2); // only by place
}

TEST_F(Identification, TwoFacesOfOneStudentOnlyTheFirstWins)
{
    students::enrol(*recognisers.ids, "a", 50);
    show({300, 300, 90, 90}, 50);
    show({900, 300, 90, 90}, 50);
    OneFrameIdStragegy identification(frame, {});
    EXPECT_THAT(identification.detectFace(), ElementsAre(Pair(0, cv::Rect(295, 295, 100, 100))));
}

TEST_F(Identification, PlacesAreTakenFromTheShrinkingList)
{
    // Two students at the places of bodies 0 and 1 of three: the second gets the rectangle behind his own.
    students::enrol(*recognisers.ids, "a", 50, {}, {100, 100, 100, 100});
    students::enrol(*recognisers.ids, "b", 100, {}, {500, 100, 100, 100});
    run({{100, 100, 100, 100}, {500, 100, 100, 100}, {900, 100, 100, 100}});
    EXPECT_EQ(students::get("a").bodyRect.x, 100);
    EXPECT_EQ(students::get("b").bodyRect.x, 900);
    // With two bodies the index of the second points behind the list: no match, and no crash.
    DataManager::instance()->updateBodyRect(students::get("b").faceID, {500, 100, 100, 100}, 0);
    run({{100, 100, 100, 100}, {500, 100, 100, 100}});
    EXPECT_EQ(students::get("a").status, 2);
    EXPECT_EQ(students::get("b").status, 0);
}

TEST_F(Identification, APassThatOpensClearsTheOneThatRuns)
{
    students::enrol(*recognisers.ids, "a", 50);
    show({300, 300, 90, 90}, 50);
    const std::vector<cv::Rect> bodies{{250, 250, 200, 400}};
    OneFrameIdStragegy first(frame, bodies);
    first.run(1);
    EXPECT_EQ(students::get("a").status, 1);
    OneFrameIdStragegy second(frame, bodies); // of another analysis
    EXPECT_EQ(students::get("a").status, 0);
    second.run(2);
    EXPECT_EQ(students::get("a").status, 1);
}

TEST_F(Identification, AFailedDetectorLeavesTheOtherMatches)
{
    students::enrol(*recognisers.ids, "a", 50, {}, {100, 100, 100, 100});
    recognisers.faces->script = [](const cv::Mat &, std::vector<cv::Rect> &,
                                   std::vector<std::vector<cv::Point>> &) { throw std::bad_alloc(); };
    run({{110, 100, 100, 100}});
    EXPECT_EQ(students::get("a").status, 2);
}

} // namespace

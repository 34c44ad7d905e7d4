#include "fixture.h"
#include "matching.h"
#include "oneframeidstragegy.h"

#include <gmock/gmock.h>

#include <deque>
#include <limits>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

namespace {

using Rows = std::vector<std::vector<double>>;
constexpr int huge = std::numeric_limits<int>::max();

TEST(Matching, StrongestOrNearestPairsFirstEachRowAndColumnOnce)
{
    const auto match = [](const Rows &rows, double threshold) {
        return matching::matchRows(rows, threshold);
    };
    EXPECT_THAT(match({{0.9, 0.85}, {0.95, 0.2}}, 0.8), ElementsAre(Pair(0, 1), Pair(1, 0)));
    EXPECT_THAT(match({{0.9}, {0.9}}, 0.8), ElementsAre(Pair(0, 0)));
    EXPECT_THAT(match({{0.9, 0.9}}, 0.8), ElementsAre(Pair(0, 0)));
    EXPECT_THAT(match({{0.43}, {0.42}}, 0.43), ElementsAre(Pair(0, 0)));
    EXPECT_THAT(match({{0.0, -1.0}}, -5), IsEmpty());
    EXPECT_THAT(match({{}, {}}, 0.1), IsEmpty());
    EXPECT_THAT(match({{NAN, 0.9}, {0.85, NAN}}, 0.8), ElementsAre(Pair(0, 1), Pair(1, 0)));

    EXPECT_TRUE(matching::cropAt({}, 0).empty());

    Rows rows{{1, 2}, {1, 2, 3}, {1}, {}};
    matching::equaliseRows(rows);
    EXPECT_EQ(rows, (Rows{{1, 2}, {1, 2}, {1, 0}, {0, 0}}));

    EXPECT_THAT(matching::nearestPairs({{0, 0}, {500, 0}}, {{99, 14}, {600, 0}}, 10000),
                ElementsAre(Pair(0U, 0U))); // 9997 and 10000
    EXPECT_THAT(matching::nearestPairs({{5, 0}, {20, 0}, {22, 0}}, {{10, 0}, {30, 0}}, 10000),
                ElementsAre(Pair(0U, 0U), Pair(2U, 1U)));
    EXPECT_THAT(matching::nearestPairs({{0, 5}, {0, 20}, {0, 22}}, {{0, 10}, {0, 30}}, 10000),
                ElementsAre(Pair(0U, 0U), Pair(2U, 1U)));
}

TEST(Overlap, OnlyTheWholeCounts)
{
    const auto best = &OneFrameIdStragegy::bestOverlap;
    EXPECT_EQ(best({10, 20, 5, 8}, {{10, 20, 5, 7}, {10, 20, 4, 8}, {11, 20, 50, 50}, {10, 21, 50, 50}}), -1);
    EXPECT_EQ(best({10, 20, 5, 8}, {{0, 0, 14, 99}, {10, 20, 5, 8}, {0, 0, 99, 99}}), 1);
    EXPECT_EQ(best({20, 10, 8, 5}, {{0, 0, 99, 14}, {20, 10, 8, 5}}), 1);
    EXPECT_EQ(best({10, 10, 0, 5}, {{0, 0, 50, 50}}), -1); // no area, no division
    EXPECT_EQ(best({huge, huge, huge, huge}, {{-huge, -huge, huge, huge}}), -1);
}

class Identification : public StrategyTest
{
protected:
    void run(const std::vector<cv::Rect> &bodies) { OneFrameIdStragegy(frame, bodies).run(1); }
    static int status(const char *stuID) { return students::get(stuID).status; }
    static cv::Rect body(const char *stuID) { return students::get(stuID).bodyRect; }
};

TEST_F(Identification, FaceThenPlaceThenStoredFace)
{
    students::enrol(*recognisers.ids, "face", 50);
    students::enrol(*recognisers.ids, "place", 100, {}, {800, 300, 200, 300});
    students::enrol(*recognisers.ids, "stored", 150, {1400, 400, 60, 60});
    StudentInfo stored = students::get("stored");
    stored.faceIDValid = false;
    DataManager::instance()->updateStudent(stored);
    stored.stuID = "nowhere";
    stored.faceID = 99;
    stored.faceRect = {10, 900, 60, 60};
    DataManager::instance()->addStudent(stored);

    show({300, 300, 90, 90}, 50);
    run({{1380, 380, 200, 300}, {250, 250, 200, 400}, {850, 320, 200, 300}});

    EXPECT_EQ(status("face"), 1);
    EXPECT_EQ(body("face"), cv::Rect(250, 250, 200, 400));
    EXPECT_EQ(students::get("face").faceRect, cv::Rect(295, 295, 100, 100));
    EXPECT_EQ(students::get("face").featureCount, 1);
    EXPECT_EQ(status("place"), 2);
    EXPECT_EQ(body("place"), cv::Rect(850, 320, 200, 300));
    EXPECT_EQ(status("stored"), 3);
    EXPECT_EQ(status("nowhere"), 0);
    EXPECT_EQ(body("stored"), cv::Rect(1380, 380, 200, 300));
}

TEST_F(Identification, AFaceMustLieInABodyAndBeLargeAndSure)
{
    students::enrol(*recognisers.ids, "a", 50);
    const auto statusWith = [&](const cv::Rect &candidate) {
        run({candidate});
        return status("a");
    };
    show({1000, 300, 90, 90}, 200); // a stranger, who is large enough
    show({300, 300, 29, 29}, 50);   // 39 by 39 with its padding
    EXPECT_EQ(statusWith({200, 200, 400, 400}), 0);
    for (const cv::Size &size : {cv::Size(20, 30), cv::Size(30, 20)}) { // one side of 40 is enough
        shown.clear();
        show({cv::Point(300, 300), size}, 50);
        EXPECT_EQ(statusWith({296, 250, 400, 400}), 0); // sticks out, but is remembered
        EXPECT_EQ(students::get("a").faceRect, cv::Rect(cv::Point(295, 295), size + cv::Size(10, 10)));
    }
    EXPECT_EQ(statusWith({200, 200, 400, 400}), 1);
    recognisers.ids->matchScore = 0.79;
    EXPECT_EQ(statusWith({200, 200, 400, 400}), 2); // only by place
    recognisers.faces->script = [](const cv::Mat &, std::vector<cv::Rect> &,
                                   std::vector<std::vector<cv::Point>> &) { throw std::bad_alloc(); };
    EXPECT_EQ(statusWith({200, 200, 400, 400}), 2);
}

/// Tells of each face in turn what the test says.
struct Answers : scripted::FaceID
{
    int identifyAll(const cv::Mat &face, int *id, cv::Mat *feature, std::vector<int> *,
                    std::vector<double> *scores, bool) override
    {
        *feature = featureOf(face);
        std::tie(*id, *scores) = answers.front();
        answers.pop_front();
        return 0;
    }
    std::deque<std::pair<int, std::vector<double>>> answers;
};

TEST_F(Identification, TheRecogniserNamesEachFaceAndTheFirstTellsHowManyThereAre)
{
    const auto ids = std::make_shared<Answers>();
    recognisers.ids = ids;
    recognisers.install();
    students::enrol(*ids, "a", 50);
    students::enrol(*ids, "b", 100);
    show({300, 300, 90, 90}, 50);
    show({600, 300, 90, 90}, 100);
    const auto runWith = [&](const decltype(ids->answers) &answers) {
        ids->answers = answers;
        run({{250, 250, 200, 400}, {550, 250, 200, 400}});
        return std::pair(status("a"), status("b"));
    };
    EXPECT_EQ(runWith({{-1, {0.9, 0.1}}, {-1, {0.1, 0.9}}}), std::pair(0, 0));
    EXPECT_EQ(runWith({{-1, {0.1, 0.1}}, {1, {0.1, 0.9}}}), std::pair(0, 1));
    DataManager::instance()->updateBodyRect(1, {}, 0);
    EXPECT_EQ(runWith({{0, {0.9}}, {1, {0.1, 0.9}}}), std::pair(1, 0));
}

TEST_F(Identification, PlacesAreTakenFromTheShrinkingList)
{
    // Two students at the places of bodies 0 and 1 of three: the second gets the rectangle behind his own.
    students::enrol(*recognisers.ids, "a", 50, {}, {100, 100, 100, 100});
    students::enrol(*recognisers.ids, "b", 100, {}, {500, 100, 100, 100});
    run({{100, 100, 100, 100}, {500, 100, 100, 100}, {900, 100, 100, 100}});
    EXPECT_EQ(body("a").x, 100);
    EXPECT_EQ(body("b").x, 900);
    // With two bodies the index of the second points behind the list: no match, and no crash.
    DataManager::instance()->updateBodyRect(students::get("b").faceID, {500, 100, 100, 100}, 0);
    run({{100, 100, 100, 100}, {500, 100, 100, 100}});
    EXPECT_EQ(status("a"), 2);
    EXPECT_EQ(status("b"), 0);
    for (const cv::Rect &far : {cv::Rect(190, 100, 120, 100), cv::Rect(100, 190, 100, 120)}) {
        run({far}); // its centre is 100 away from a's
        EXPECT_EQ(status("a"), 0) << far;
    }
    run({{199, 114, 100, 100}}); // and a little less
    EXPECT_EQ(status("a"), 2);
}

TEST_F(Identification, APassThatOpensClearsTheOneThatRuns)
{
    students::enrol(*recognisers.ids, "a", 50);
    show({300, 300, 90, 90}, 50);
    run({{250, 250, 200, 400}});
    EXPECT_EQ(status("a"), 1);
    OneFrameIdStragegy second(frame, {{250, 250, 200, 400}}); // of another analysis
    EXPECT_EQ(status("a"), 0);
    second.run(2);
    EXPECT_EQ(status("a"), 1);
}

} // namespace

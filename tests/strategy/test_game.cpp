#include "functionGameStrategy.h"
#include "studentbodyposedetecion.h"
#include "students.h"

#include <gmock/gmock.h>

#include <limits>

namespace {

struct RegionCase
{
    cv::Rect body;
    cv::Rect region;
};

void PrintTo(const RegionCase &region, std::ostream *out)
{
    *out << region.body;
}

class GameRegion : public ::testing::TestWithParam<RegionCase>
{
};

TEST_P(GameRegion, IsCentredOnTheBodyWithItsEdgeRules)
{
    const QVariantMap info = StudentBodyposeDetecion("s", GetParam().body).info();
    EXPECT_EQ(info["stuID"], "s");
    EXPECT_EQ(cv::Rect(info["x"].toInt(), info["y"].toInt(), info["width"].toInt(), info["height"].toInt()),
              GetParam().region);
}

constexpr int huge = std::numeric_limits<int>::max();
INSTANTIATE_TEST_SUITE_P(
    Bodies, GameRegion,
    ::testing::Values(RegionCase{{100, 300, 100, 300}, {0, 100, 550, 700}},
                      RegionCase{{900, 300, 100, 300}, {675, 100, 550, 700}},
                      RegionCase{{1700, 300, 100, 300}, {1370, 100, 445, 700}}, // pulled back, not widened
                      RegionCase{{1595, 300, 100, 300}, {1370, 100, 550, 700}}, // touches the edge
                      RegionCase{{900, 800, 100, 100}, {675, 500, 550, 580}},
                      RegionCase{{900, 300, 800, 900}, {1025, 400, 550, 680}}));

class Game : public ::testing::Test
{
protected:
    void SetUp() override
    {
        DataManager::instance()->clear();
        students::enrol(*recognisers.ids, "a", 50, {}, {300, 300, 100, 300});
        students::enrol(*recognisers.ids, "unseen", 100);
        strategy = new FunctionGameStrategy("9");
        QObject::connect(
            strategy, &BaseStrategy::serviceMessgeSignal, strategy,
            [this](unsigned int code, const QVariant &info, const QString &) {
                codes.push_back(code);
                last = info.toMap();
            },
            Qt::DirectConnection);
    }
    void TearDown() override
    {
        BaseStrategy::release(strategy);
        DataManager::instance()->clear();
    }

    QVariantMap firstResult() const { return last["functionGameResult"].toList().value(0).toMap(); }

    ModelManagerTestAccess::Recognisers recognisers;
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar::all(10));
    FunctionGameStrategy *strategy = nullptr;
    std::vector<unsigned int> codes;
    QVariantMap last;
};

TEST_F(Game, StartTellsTheRegionsOfThosePlayersWhoWereSeen)
{
    EXPECT_FALSE(strategy->isGameStarted());
    strategy->startGame(
        {QVariantMap{{"stuID", "a"}}, QVariantMap{{"stuID", "unseen"}}, QVariantMap{}, QVariant(3)});
    EXPECT_TRUE(strategy->isGameStarted());
    ASSERT_EQ(codes, std::vector<unsigned int>{1015});
    ASSERT_EQ(last["functionGameShowRegion"].toList().size(), 1);
    EXPECT_EQ(last["functionGameShowRegion"].toList()[0].toMap(),
              (QVariantMap{{"stuID", "a"}, {"x", 75}, {"y", 100}, {"width", 550}, {"height", 700}}));
}

TEST_F(Game, BonesAreThoseOfTheBiggestPersonInFrameCoordinates)
{
    strategy->startGame({QVariantMap{{"stuID", "a"}}});
    recognisers.pose->rects = {{0, 0, 10, 10}, {0, 0, 20, 20}, {0, 0, 20, 20}};
    recognisers.pose->keyPoints = {cv::Mat::zeros(1, 4, CV_32F), (cv::Mat_<float>(1, 5) << 200, 255, 0, 0, 7),
                                   cv::Mat::ones(1, 4, CV_32F)};
    strategy->handleFrame(frame);
    EXPECT_EQ(codes.back(), 1016U);
    EXPECT_EQ(firstResult()["stuID"], "a");
    const QVariantList bones = firstResult()["bones"].toList();
    ASSERT_EQ(bones.size(), 2);
    EXPECT_EQ(bones[0].toMap(), (QVariantMap{{"x", 75 + 275}, {"y", 100 + 350}}));
    EXPECT_EQ(bones[1].toMap(), (QVariantMap{{"x", 75}, {"y", 100}}));
}

TEST_F(Game, RunsThroughItsEventsWithoutANetworkOrPlayers)
{
    strategy->handleFrame(frame);
    EXPECT_EQ(codes, std::vector<unsigned int>{1016});
    EXPECT_TRUE(last.contains("functionGameResult"));
    EXPECT_TRUE(last["functionGameResult"].toList().isEmpty());
    strategy->startGame({QVariantMap{{"stuID", "a"}}});
    const auto expectNoBones = [&] {
        strategy->handleFrame(frame);
        EXPECT_TRUE(firstResult().contains("bones"));
        EXPECT_TRUE(firstResult()["bones"].toList().isEmpty());
    };
    expectNoBones(); // nobody in the region
    recognisers.pose->rects = {{0, 0, 0, 10}};
    recognisers.pose->keyPoints = {cv::Mat::ones(1, 4, CV_32F)};
    expectNoBones(); // no area
    recognisers.pose->rects = {{0, 0, 10, 10}};
    recognisers.pose->keyPoints = {cv::Mat::ones(1, 4, CV_64F)};
    expectNoBones(); // not floats
    ModelManagerTestAccess::clear();
    expectNoBones();
}

TEST_F(Game, WildNumbersStayNumbers)
{
    StudentInfo student = students::get("a");
    student.bodyRect = {huge, -huge, huge, huge};
    DataManager::instance()->updateStudent(student);
    strategy->startGame({QVariantMap{{"stuID", "a"}}});
    recognisers.pose->rects = {{0, 0, 10, 10}};
    recognisers.pose->keyPoints = {(cv::Mat_<float>(1, 4) << NAN, INFINITY, -INFINITY, 1e30F)};
    strategy->handleFrame(frame);
    EXPECT_EQ(codes.back(), 1016U);
}

} // namespace

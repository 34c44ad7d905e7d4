#include "fixture.h"
#include "functionGameStrategy.h"
#include "studentbodyposedetecion.h"

namespace {

TEST(GameRegion, IsCentredOnTheBodyWithItsEdgeRules)
{
    const std::pair<cv::Rect, cv::Rect> regions[] = {
        {{100, 300, 100, 300}, {0, 100, 550, 700}},     // cut at the left
        {{900, 300, 100, 300}, {675, 100, 550, 700}},   // fits
        {{1700, 300, 100, 300}, {1370, 100, 445, 700}}, // pulled back, not widened
        {{1595, 300, 100, 300}, {1370, 100, 550, 700}}, // touches the edge
        {{900, 800, 100, 100}, {675, 500, 550, 580}},   // cut at the bottom
        {{900, 300, 800, 900}, {1025, 400, 550, 680}},  // a body larger than it
    };
    for (const auto &[body, region] : regions)
        EXPECT_EQ(rectOf(StudentBodyposeDetecion("s", body).info()), region) << body;
}

using Game = StrategyTest;

TEST_F(Game, ShowsRegionsAndTheBonesOfTheBiggestPersonInThem)
{
    students::enrol(*recognisers.ids, "a", 50, {}, {300, 300, 100, 300});
    students::enrol(*recognisers.ids, "narrow", 100);
    students::enrol(*recognisers.ids, "flat", 150);
    DataManager::instance()->updateBodyRect(students::get("narrow").faceID, {300, 300, 0, 300}, 0);
    DataManager::instance()->updateBodyRect(students::get("flat").faceID, {300, 300, 100, 0}, 0);
    FunctionGameStrategy *strategy = listen(new FunctionGameStrategy("9"));
    strategy->startGame({QVariantMap{{"stuID", "a"}}, QVariantMap{{"stuID", "narrow"}},
                         QVariantMap{{"stuID", "flat"}}, QVariantMap{}, QVariant(3)});
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].code, 1015U);
    const QVariantMap region{{"stuID", "a"}, {"x", 75}, {"y", 100}, {"width", 550}, {"height", 700}};
    EXPECT_EQ(events[0].info, (QVariantMap{{"functionGameShowRegion", QVariantList{region}}}));

    const auto expectBones = [&](const QVariantList &bones) {
        strategy->handleFrame(frame);
        EXPECT_EQ(events.back().code, 1016U);
        const QVariantMap result{{"stuID", "a"}, {"bones", bones}};
        EXPECT_EQ(events.back().info, (QVariantMap{{"functionGameResult", QVariantList{result}}}));
    };
    expectBones({}); // nobody in the region
    EXPECT_EQ(recognisers.pose->seen, cv::Size(400, 510));
    recognisers.pose->rects = {{0, 0, 30, 1}, {0, 0, 10, 20}, {0, 0, 5, 30}, {0, 0, 20, 10}};
    recognisers.pose->keyPoints = {cv::Mat::zeros(1, 4, CV_32F),
                                   (cv::Mat_<float>(1, 5) << 400, 510, 100, 80, 7),
                                   cv::Mat::ones(1, 4, CV_32F), cv::Mat::ones(1, 4, CV_32F)};
    expectBones(
        {QVariantMap{{"x", 75 + 550}, {"y", 100 + 700}}, QVariantMap{{"x", 75 + 137}, {"y", 100 + 109}}});
    for (const cv::Mat &unusable : {cv::Mat(1, 4, CV_64F, cv::Scalar(1)), cv::Mat(0, 4, CV_32F)}) {
        recognisers.pose->keyPoints[1] = unusable;
        expectBones({});
    }
    ModelManagerTestAccess::clear();
    expectBones({});
}

} // namespace

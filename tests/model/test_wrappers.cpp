#include "scripted.h"

#include <gmock/gmock.h>

#include <opencv2/imgproc.hpp>

#include <limits>

using ::testing::ElementsAre;

namespace {

class Wrappers : public ::testing::Test
{
protected:
    ModelManagerTestAccess::Recognisers recognisers;
    ModelManager &manager = ModelManager::instance();
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar(90, 90, 90));
};

TEST_F(Wrappers, FacesArePaddedAndCutAtTheEdges)
{
    recognisers.faces->finds({{100, 200, 60, 70}, {2, 0, 50, 50}, {1880, 1050, 39, 29}});
    const auto model = manager.createMTCNNModel(frame, true);
    model->expandFaces();
    EXPECT_TRUE(model->m_rects.empty());
    EXPECT_TRUE(model->faceCentres().empty());
    ASSERT_TRUE(model->detect());
    EXPECT_THAT(model->faceCentres(),
                ElementsAre(cv::Point(130, 235), cv::Point(27, 25), cv::Point(1899, 1064)));
    model->expandFaces();
    EXPECT_THAT(model->m_rects,
                ElementsAre(cv::Rect(95, 195, 70, 80), cv::Rect(0, 0, 60, 60), cv::Rect(1875, 1045, 45, 35)));
}

TEST_F(Wrappers, HeadCropPutsTheEyesLevelAtTheirPlaces)
{
    // Two eyes 80 apart on a slope, drawn as dots.
    const cv::Point left(500, 400), right(564, 448);
    cv::circle(frame, left, 6, cv::Scalar(255, 255, 255), cv::FILLED);
    cv::circle(frame, right, 6, cv::Scalar(255, 255, 255), cv::FILLED);
    recognisers.faces->script = [&](const cv::Mat &, std::vector<cv::Rect> &faces,
                                    std::vector<std::vector<cv::Point>> &landmarks) {
        faces = {{450, 350, 160, 160}, {0, 0, 50, 50}};
        landmarks = {{left, right, {530, 440}, {500, 470}, {540, 500}}, {{7, 7}, {7, 7}}};
    };
    const auto model = manager.createMTCNNModel(frame, true);
    ASSERT_TRUE(model->detect());
    const std::vector<cv::Mat> heads = model->cropHeads(40);
    ASSERT_EQ(heads.size(), 1U); // the second face has no eye distance
    ASSERT_EQ(heads[0].size(), cv::Size(128, 128));
    EXPECT_GT(heads[0].at<cv::Vec3b>(58, 44)[0], 200);
    EXPECT_GT(heads[0].at<cv::Vec3b>(58, 84)[0], 200);
    EXPECT_LT(heads[0].at<cv::Vec3b>(58, 64)[0], 120);
    EXPECT_TRUE(manager.createMTCNNModel(frame, true)->cropHeads(40).empty());
    const auto without = manager.createMTCNNModel(frame, false);
    EXPECT_TRUE(without->detect());
    EXPECT_TRUE(without->cropHeads(40).empty());
}

TEST_F(Wrappers, LandmarkOffsetsAreTakenFromTheRectangleUnscaled)
{
    recognisers.faces->script = [](const cv::Mat &, std::vector<cv::Rect> &faces,
                                   std::vector<std::vector<cv::Point>> &landmarks) {
        faces = {{10, 20, 128, 128}, {0, 0, 128, 128}};
        landmarks = {{{53, 75}, {103, 74}, {79, 101}, {58, 118}, {98, 120}}, {{1 << 30, 1 << 30}, {0, 0}}};
    };
    const auto model = manager.createMTCNNModel(frame, true);
    ASSERT_TRUE(model->detect());
    EXPECT_THAT(model->landmarkOffsets(), ElementsAre(9, std::numeric_limits<int>::max()));
}

TEST_F(Wrappers, FaceIdActionsAnswerAsTold)
{
    const cv::Mat face(128, 128, CV_8UC3, cv::Scalar(50, 50, 50));
    const auto run = [&](int action, int id) {
        const auto model = manager.createFaceIDModel(face, action, id);
        const bool result = model->detect();
        return std::make_tuple(result, model->m_id, !model->m_feature.empty());
    };
    EXPECT_EQ(run(1, -1), std::make_tuple(true, 0, false));
    EXPECT_EQ(run(2, -1), std::make_tuple(true, 1, true));
    EXPECT_EQ(run(4, -1), std::make_tuple(true, 0, false));
    EXPECT_EQ(run(5, -1), std::make_tuple(true, -1, true));
    EXPECT_EQ(run(6, -1), std::make_tuple(true, 0, true));
    EXPECT_EQ(run(7, 0), std::make_tuple(true, 0, false));
    EXPECT_EQ(run(0, 3), std::make_tuple(false, 3, false));
    EXPECT_EQ(run(9, 3), std::make_tuple(false, 3, false));
    recognisers.ids->failExtract = true;
    EXPECT_FALSE(std::get<0>(run(5, -1)));
    EXPECT_TRUE(std::get<0>(run(2, -1))); // whatever the extraction did
    recognisers.ids->failRegister = true;
    EXPECT_EQ(run(2, -1), std::make_tuple(false, -5, false));
    recognisers.ids->failRemove = true;
    EXPECT_FALSE(std::get<0>(run(7, 1)));
    EXPECT_TRUE(std::get<0>(run(8, -1)));
    EXPECT_TRUE(recognisers.ids->entries.empty());
}

TEST_F(Wrappers, BodyPoseSumsTheWeightsInOrder)
{
    recognisers.bodyPose->labels = {0, 1, 2, 7, -1, 3, 4};
    const std::vector<cv::Rect> bodies(7, cv::Rect(0, 0, 10, 10));
    const auto model = manager.createBodyPoseModel(frame, bodies);
    ASSERT_TRUE(model->detect());
    EXPECT_EQ(model->m_value, 0.0 + 0.9794 + -0.5828 + 1.4348 + 0.0 + 0.0 + 0.877 + 0.1807);
}

struct HandCase
{
    std::vector<int> labels;
    std::vector<float> scores;
    int state;
};

void PrintTo(const HandCase &hand, std::ostream *out)
{
    *out << ::testing::PrintToString(hand.labels) << ' ' << ::testing::PrintToString(hand.scores);
}

class HandTable : public Wrappers, public ::testing::WithParamInterface<HandCase>
{
};

TEST_P(HandTable, ThreeCropsJudgeOneBody)
{
    recognisers.handup->labels = GetParam().labels;
    recognisers.handup->scores = GetParam().scores;
    const auto model = manager.createHandupModel(frame, {cv::Rect(100, 100, 50, 60)});
    ASSERT_TRUE(model->detect());
    EXPECT_THAT(model->m_states, ElementsAre(GetParam().state));
}

INSTANTIATE_TEST_SUITE_P(States, HandTable,
                         ::testing::Values(HandCase{{1, 1, 1}, {0.79F, 0.79F, 0.8F}, 1},
                                           HandCase{{1, 1, 1}, {0.79F, 0.79F, 0.79F}, 0},
                                           HandCase{{5, -2, 1}, {0.9F, 0.1F, 0.1F}, 1},
                                           HandCase{{1, 1, 0}, {0.9F, 0.9F, 0.9F}, 0},
                                           HandCase{{0, 1, 1}, {0.1F, 0.9F, 0.9F}, 0},
                                           HandCase{{1, 1, 1}, {NAN, NAN, NAN}, 0}));

TEST_F(Wrappers, HandCropsGrowUpwardsAndStayInsideTheColumns)
{
    recognisers.handup->labels = std::vector<int>(9, 1);
    recognisers.handup->scores = std::vector<float>(9, 0.9F);
    const auto model = manager.createHandupModel(
        frame, {cv::Rect(100, 200, 50, 60), cv::Rect(1, 5, 40, 40), cv::Rect(1900, 1000, 40, 300)});
    ASSERT_TRUE(model->detect());
    EXPECT_EQ(model->m_rects[0], cv::Rect(100, 200, 51, 61));
    EXPECT_THAT(recognisers.handup->seen,
                ElementsAre(cv::Rect(97, 194, 56, 61), cv::Rect(97, 188, 56, 67), cv::Rect(97, 182, 56, 73),
                            cv::Rect(0, 0, 46, 41), cv::Rect(0, 0, 46, 47), cv::Rect(0, 0, 46, 53),
                            cv::Rect(1897, 994, 23, 301), cv::Rect(1897, 988, 23, 307),
                            cv::Rect(1897, 982, 23, 313)));
    const auto empty = manager.createHandupModel(frame, {});
    EXPECT_TRUE(empty->detect());
    EXPECT_FALSE(empty->m_finished);
    EXPECT_TRUE(empty->m_states.empty());
}

TEST_F(Wrappers, SmileNeedsLabelOneAndTheThreshold)
{
    const auto smiles = [&](int label, float score) {
        recognisers.emotion->label = label;
        recognisers.emotion->score = score;
        const auto model = manager.createFaceEmotionModel(frame);
        return model->detect() && model->isSmile();
    };
    EXPECT_TRUE(smiles(1, 0.75F));
    EXPECT_FALSE(smiles(1, 0.7499F));
    EXPECT_FALSE(smiles(2, 0.99F));
    EXPECT_FALSE(smiles(1, NAN));
}

TEST_F(Wrappers, WhatAForeignLibraryGetsWrongIsAFailedDetection)
{
    recognisers.faces->script = [](const cv::Mat &, std::vector<cv::Rect> &faces,
                                   std::vector<std::vector<cv::Point>> &) { faces.resize(3); };
    EXPECT_FALSE(manager.createMTCNNModel(frame, true)->detect()); // no landmarks
    recognisers.faces->script = [](const cv::Mat &, std::vector<cv::Rect> &,
                                   std::vector<std::vector<cv::Point>> &) { throw 42; };
    const auto thrown = manager.createMTCNNModel(frame, true);
    EXPECT_FALSE(thrown->detect());
    EXPECT_TRUE(thrown->m_rects.empty());
    recognisers.handup->labels = {1, 1};
    recognisers.handup->scores = {1.0F};
    EXPECT_FALSE(manager.createHandupModel(frame, {cv::Rect(0, 0, 9, 9)})->detect());

    constexpr int huge = std::numeric_limits<int>::max();
    recognisers.faces->finds({{huge, -huge, huge, huge}});
    const auto model = manager.createMTCNNModel(frame, true);
    EXPECT_TRUE(model->detect());
    model->expandFaces();
    model->cropHeads(40);
    recognisers.bodies->rects = {{-huge, huge, huge, -huge}};
    EXPECT_TRUE(manager.createSSDModel(frame)->detect());
}

} // namespace

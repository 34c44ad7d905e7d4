#include "aiconfig.h"
#include "atonce.h"
#include "counters.h"
#include "messages.h"
#include "scripted.h"

#include <gmock/gmock.h>
#include <opencv2/imgproc.hpp>

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <limits>

using ::testing::ElementsAre;

namespace {

/// A settings file beside the test program for the length of a test.
class Settings : public ::testing::Test
{
protected:
    void TearDown() override { QFile::remove(path); }
    void load(const QByteArray &text)
    {
        QDir().mkpath(folder);
        QFile file(path);
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        file.write(text);
        file.close();
        config.load();
    }

    QString folder = QCoreApplication::applicationDirPath() + "/model";
    QString path = folder + "/aiconfig.ini";
    AIConfig &config = AIConfig::instance();
};

TEST_F(Settings, DefaultsStandAndOneKeyFeedsBothConfigurationPaths)
{
    config.load(); // there is no file
    const std::string model = folder.toStdString() + "/";
    EXPECT_EQ(config.modelConfigPath, model + "model-config.ini");
    EXPECT_EQ(config.cmuConfigPath, model + "cmu.ini");
    EXPECT_EQ(config.faceIdModelPath, model + "det_face_id_v1.0.10.pb");
    EXPECT_EQ(config.fetchGalleryThre, 0.35);
    EXPECT_EQ(config.detectGalleryThre, 0.43);
    EXPECT_EQ(config.smileThre, 0.75F);
    EXPECT_EQ(config.keepLogDays, 0);

    load("[AIService]\nmodelpath=/somewhere/else\nmodel_config=common.ini\nSSD_model=/abs/körper.bin\n"
         "keepLogDays=7\n"
         "[AIConfig]\nfetchGalleryThre=0.5\nsmileThre=0.8\ndetectGalleryThre=nonsense\n");
    EXPECT_EQ(config.modelConfigPath, "/somewhere/else/common.ini");
    EXPECT_EQ(config.cmuConfigPath, "/somewhere/else/common.ini");
    EXPECT_EQ(config.ssdModelPath, "/abs/körper.bin");
    EXPECT_EQ(config.handupModelPath, "/somewhere/else/cls_handup_v3.0.1.bin");
    EXPECT_EQ(config.fetchGalleryThre, 0.5);
    EXPECT_EQ(config.smileThre, 0.8F);
    EXPECT_EQ(config.keepLogDays, 7);
    EXPECT_EQ(config.detectGalleryThre, 0.0);
}

TEST_F(Settings, FlagsAreAddedAndNeverCleared)
{
    config.setModelLoadFlag(0);
    config.setModelFlags({{"ssd", true}, {"emotion", "true"}, {"unknown", true}});
    EXPECT_EQ(config.modelLoadFlag, 0x40040U);
    for (const char *name : {"faceMtcnn", "faceid", "cmu", "bodypose", "cmuPose", "handup", "faceAttr"})
        config.setModelFlags({{name, true}, {"ssd", false}});
    EXPECT_EQ(config.modelLoadFlag, 0x1249249U);
}

TEST_F(Settings, EveryRecogniserCanBeAskedForByTheKeyOfTheProtocol)
{
    QStringList offered;
    for (const ai::Key &key : ai::joined(ai::recogniserKeys, ai::poseNetworkKeys))
        offered.append(key.name);
    QStringList known;
    unsigned masks = 0;
    for (const RecogniserRow &row : recogniserTable) {
        known.append(row.requestKey);
        EXPECT_EQ(masks & row.mask, 0U) << row.requestKey;
        masks |= row.mask;
    }
    offered.sort();
    known.sort();
    EXPECT_EQ(known, offered);
}

TEST_F(Settings, AMissingModelStopsItsStageOnlyAndALaterCallGoesOn)
{
    QFile models(MODEL_FOLDER "/aiconfig.ini");
    ASSERT_TRUE(models.open(QFile::ReadOnly));
    load(models.readAll().replace("[AIService]", "[AIService]\nmodelpath=" MODEL_FOLDER));
    config.setModelLoadFlag(0x40 | 0x1 | 0x8 | 0x200 | 0x8000);
    const cv::Mat picture(128, 128, CV_8UC3, cv::Scalar::all(90));
    ModelManager &manager = ModelManager::instance();
    EXPECT_FALSE(manager.createSSDModel(picture)->detect());
    EXPECT_FALSE(manager.createFaceIDModel(picture, FaceIDModel::Clear, -1)->detect());

    const std::string noModel = path.toStdString();
    for (const auto &[file, bad] :
         {std::pair(&AIConfig::mtcnnModel3Path, folder.toStdString() + "/missing"),
          std::pair(&AIConfig::mtcnnModel3Path, noModel), std::pair(&AIConfig::mtcnnModel2Path, noModel),
          std::pair(&AIConfig::mtcnnModel1Path, noModel)}) {
        const std::string present = std::exchange(config.*file, bad);
        EXPECT_FALSE(manager.init());
        EXPECT_TRUE(manager.createSSDModel(picture)->detect()); // before the missing one
        EXPECT_FALSE(manager.createMTCNNModel(picture, true)->detect());
        EXPECT_TRUE(manager.createFaceIDModel(picture, FaceIDModel::Clear, -1)->detect()); // the second stage
        config.*file = present;
    }
    EXPECT_TRUE(manager.init());
    EXPECT_TRUE(manager.createMTCNNModel(picture, true)->detect());
    EXPECT_FALSE(manager.createFaceEmotionModel(picture)->detect()) << "which nobody asked for";
    ModelManagerTestAccess::clear();
}

class Wrappers : public ::testing::Test
{
protected:
    ModelManagerTestAccess::Recognisers recognisers;
    ModelManager &manager = ModelManager::instance();
    const counters::RecogniserRow &counted =
        counters::page().recognisers.rows[0]; // of all: they have no rows here
    cv::Mat frame = cv::Mat(1080, 1920, CV_8UC3, cv::Scalar(90, 90, 90));
};

TEST_F(Wrappers, FaceIdActionsSucceedAsTheRecogniserSays)
{
    const cv::Mat face(128, 128, CV_8UC3, cv::Scalar::all(90));
    const auto act = [&](int action, int id = -1) {
        const auto model = manager.createFaceIDModel(face, action, id);
        EXPECT_FALSE(model->m_finished);
        const bool success = model->detect();
        return std::tuple(success, model->m_finished, model->m_id, !model->m_feature.empty());
    };
    using Outcome = std::tuple<bool, bool, int, bool>; // success, finished, id, feature
    EXPECT_EQ(manager.createFaceIDModel(face, FaceIDModel::Identify)->m_id, -1);
    scripted::FaceID &ids = *recognisers.ids;
    EXPECT_EQ(act(FaceIDModel::Register), Outcome(true, true, 0, false));
    EXPECT_EQ(act(FaceIDModel::RegisterAndExtract), Outcome(true, true, 1, true));
    EXPECT_EQ(act(FaceIDModel::RegisterAs, 0), Outcome(true, true, 0, false));
    EXPECT_EQ(act(FaceIDModel::RegisterAs, 7), Outcome(true, true, 7, false));
    EXPECT_EQ(act(FaceIDModel::Identify), Outcome(true, true, 0, false));
    EXPECT_EQ(act(FaceIDModel::Extract), Outcome(true, true, -1, true));
    EXPECT_EQ(act(FaceIDModel::IdentifyAll), Outcome(true, true, 0, true));
    EXPECT_EQ(act(FaceIDModel::Remove, 1), Outcome(true, true, 1, false));
    EXPECT_EQ(ids.entries.size(), 2U);
    EXPECT_EQ(act(9), Outcome(false, true, -1, false));

    ids.failRegister = ids.failRemove = true;
    ids.identifyResult = -1;
    ids.extractResult = -1; // as good as 0
    for (const int action : {FaceIDModel::Register, FaceIDModel::RegisterAs})
        EXPECT_EQ(act(action, 3), Outcome(false, true, -5, false)) << action;
    EXPECT_EQ(act(FaceIDModel::RegisterAndExtract), Outcome(false, true, -5, true));
    EXPECT_EQ(act(FaceIDModel::Identify), Outcome(false, true, 0, false));
    EXPECT_EQ(act(FaceIDModel::IdentifyAll), Outcome(false, true, 0, true));
    EXPECT_EQ(act(FaceIDModel::Extract), Outcome(true, true, -1, true));
    ids.extractResult = -2;
    EXPECT_EQ(act(FaceIDModel::Extract), Outcome(false, true, -1, false));
    EXPECT_EQ(act(FaceIDModel::Remove, 7), Outcome(false, true, 7, false));
    EXPECT_EQ(ids.entries.size(), 2U);
    EXPECT_EQ(act(FaceIDModel::Clear), Outcome(true, true, -1, false));
    EXPECT_TRUE(ids.entries.empty());
}

TEST_F(Wrappers, OneCallAtATimeReachesARecogniser)
{
    std::atomic<int> inside{0};
    std::atomic<int> met{0};
    const auto call = [&] {
        met += inside++;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        --inside;
    };
    recognisers.forEach([&](const auto &recogniser) { recogniser->onCall = call; });
    const cv::Mat face(128, 128, CV_8UC3, cv::Scalar::all(90));
    const std::function<void(int)> uses[] = {
        [&](int) { manager.createMTCNNModel(face, true)->detect(); },
        [&](int) { manager.createFaceIDModel(face, FaceIDModel::Identify, -1)->detect(); },
        [&](int) { manager.createSSDModel(face)->detect(); },
        [&](int) { manager.createHandupModel(face, {cv::Rect(1, 1, 20, 20)})->detect(); },
        [&](int) { manager.createFaceAttrModel(face, cv::Rect(1, 1, 20, 20))->detect(); },
        [&](int) { manager.createFaceEmotionModel(face)->detect(); }};
    for (const auto &use : uses) {
        const std::int64_t calls = counted.calls.value();
        atOnce(10, {use, use, use});
        EXPECT_EQ(met.exchange(0), 0) << "recogniser " << &use - uses;
        EXPECT_EQ(counted.calls.value() - calls, 30);
    }
    EXPECT_GT(counted.waited.value(), 0);
    EXPECT_GT(counted.longest.value(), 0);
    // And while they are taken out and put in again.
    recognisers.forEach([](const auto &recogniser) { recogniser->onCall = nullptr; });
    atOnce(3000, {uses[0], uses[1], uses[2], [&](int round) {
                      ModelManagerTestAccess::clear();
                      if (round % 2)
                          recognisers.install();
                  }});
}

TEST_F(Settings, TheIdentificationMayBeReadWhileItChanges)
{
    config.setIdentify("room");
    atOnce(2000, {[&](int round) { config.setIdentify(QString("room %1").arg(round)); },
                  [&](int) { EXPECT_TRUE(config.identify().startsWith("room")); }});
    config.setIdentify({});
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
    EXPECT_EQ(model->landmarkOffsets(), (std::vector<int>{5954, 13205})); // squares added up by hand
    ASSERT_EQ(heads.size(), 1U); // the second face has no eye distance
    ASSERT_EQ(heads[0].size(), cv::Size(128, 128));
    EXPECT_GT(heads[0].at<cv::Vec3b>(58, 44)[0], 200);
    EXPECT_GT(heads[0].at<cv::Vec3b>(58, 84)[0], 200);
    EXPECT_LT(heads[0].at<cv::Vec3b>(58, 64)[0], 120);
}

TEST_F(Wrappers, WhatDoesNotFitIsDroppedAndWildValuesAreBound)
{
    const int wild = std::numeric_limits<int>::max();
    const int bound = 1 << 20;
    const std::vector<cv::Rect> wildRects{{wild, 1, -wild, 2}};
    const std::vector<cv::Rect> boundRects{{bound, 1, -bound, 2}};
    std::size_t count = 1; // of points, in each list that goes with the rectangles
    recognisers.faces->script = [&](const cv::Mat &, std::vector<cv::Rect> &faces,
                                    std::vector<std::vector<cv::Point>> &landmarks) {
        faces = wildRects;
        landmarks.assign(count, {{wild, 3}, {4, -wild}});
    };
    recognisers.bodies->answer = [&](const cv::Mat &, std::vector<cv::Rect> &bodies, std::vector<float> &) {
        bodies = wildRects;
        return count == 1 ? 0 : throw std::runtime_error("gone");
    };
    recognisers.pose->answer = [&](const cv::Mat &, std::vector<cv::Rect> &bodies,
                                   std::vector<cv::Mat> &points) {
        bodies = wildRects;
        points.resize(count);
        return 0;
    };
    auto faces = manager.createMTCNNModel(frame, true);
    auto bodies = manager.createSSDModel(frame);
    auto pose = manager.createCMUModel(frame);
    EXPECT_TRUE(faces->detect() && bodies->detect() && pose->detect());
    EXPECT_EQ(faces->m_rects, boundRects);
    EXPECT_THAT(faces->m_landmarks, ElementsAre(ElementsAre(cv::Point(bound, 3), cv::Point(4, -bound))));
    EXPECT_EQ(bodies->m_rects, boundRects);
    EXPECT_EQ(pose->m_rects, boundRects);

    // Nobody in the system asks for these signals.
    int told = 0;
    QObject::connect(faces.get(), &MTCNNModel::finished, [&](bool ret) { told += ret ? 1 : 0; });
    QObject::connect(pose.get(), &CMUModel::finished, [&](bool ret) { told += ret ? 1 : 0; });
    const auto id = manager.createFaceIDModel(frame, FaceIDModel::Clear, -1);
    QObject::connect(id.get(), &FaceIDModel::finished, [&](bool ret) { told += ret ? 1 : 0; });
    for (BaseModel *model :
         std::initializer_list<BaseModel *>{faces.get(), pose.get(), id.get(), bodies.get()})
        model->emitFinished(true);
    EXPECT_EQ(told, 3);

    count = 2;
    const std::int64_t failed = counted.failed.value();
    faces = manager.createMTCNNModel(frame, true);
    bodies = manager.createSSDModel(frame);
    pose = manager.createCMUModel(frame);
    EXPECT_FALSE(faces->detect() || bodies->detect() || pose->detect());
    EXPECT_TRUE(faces->m_rects.empty() && faces->m_scores.empty() && faces->m_landmarks.empty());
    EXPECT_EQ(counted.failed.value() - failed, 3);
    EXPECT_TRUE(bodies->m_rects.empty());
    EXPECT_TRUE(pose->m_rects.empty() && pose->m_keyPoints.empty());
}

TEST_F(Wrappers, GlassesAreTheLowestBitOfTheFirstLabelOfTheFirstFace)
{
    std::vector<mirovane::FaceAttrResult> delivered;
    recognisers.attributes->answer = [&](std::size_t, std::vector<mirovane::FaceAttrResult> &results) {
        results = delivered;
        return 0;
    };
    const auto wears = [&](const std::vector<std::vector<int>> &labels) {
        delivered.clear();
        for (const std::vector<int> &face : labels)
            delivered.push_back({face});
        FaceAttrModel model(frame, recognisers.attributes, std::vector<cv::Rect>(labels.size()));
        return model.detect() && model.wearsGlasses();
    };
    EXPECT_TRUE(wears({{3, 0}, {0}}));
    EXPECT_FALSE(wears({{6, 1}, {1}}));
    EXPECT_FALSE(wears({{}, {1}}));
    EXPECT_FALSE(wears({}));
}

TEST_F(Wrappers, AHandIsRuledOutByThreeCropsOneOfThemSure)
{
    recognisers.handup->labels = {5, -2, 1, 0, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1};
    recognisers.handup->scores = {0.1F, 0.79F, 0.8F, 0.9F, 0.9F, 0.9F, 0.9F, 0.1F, 0.1F,  0.9F, 0.9F,
                                  0.9F, 0.1F,  0.9F, 0.1F, 0.9F, 0.9F, 0.9F, 0.1F, 0.79F, NAN};
    const auto model = manager.createHandupModel(frame, std::vector<cv::Rect>(7, {100, 200, 50, 60}));
    ASSERT_TRUE(model->detect());
    EXPECT_THAT(model->m_states, ElementsAre(1, 0, 1, 0, 1, 0, 0));
}

TEST_F(Wrappers, HandCropsGrowUpwardsAndStayInsideTheColumns)
{
    const auto model = manager.createHandupModel(
        frame, {cv::Rect(100, 200, 50, 60), cv::Rect(1, 5, 40, 40), cv::Rect(1900, 1000, 40, 300)});
    ASSERT_TRUE(model->detect());
    EXPECT_EQ(model->m_rects[0], cv::Rect(100, 200, 51, 61));
    EXPECT_THAT(recognisers.handup->seen,
                ElementsAre(cv::Rect(97, 194, 56, 61), cv::Rect(97, 188, 56, 67), cv::Rect(97, 182, 56, 73),
                            cv::Rect(0, 0, 46, 41), cv::Rect(0, 0, 46, 47), cv::Rect(0, 0, 46, 53),
                            cv::Rect(1897, 994, 23, 301), cv::Rect(1897, 988, 23, 307),
                            cv::Rect(1897, 982, 23, 313)));
}

} // namespace

#include "aiconfig.h"
#include "scripted.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSettings>
#include <QTemporaryDir>

namespace {

/// With the model files that the build has assembled.
class Loading : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ModelManagerTestAccess::clear();
        const QString beside = QCoreApplication::applicationDirPath() + "/model";
        ASSERT_TRUE(QDir().mkpath(beside));
        settings = beside + "/aiconfig.ini";
        ASSERT_TRUE(QFile::copy(QStringLiteral(MODEL_FOLDER "/aiconfig.ini"), settings));
        QSettings(settings, QSettings::IniFormat).setValue("AIService/modelpath", MODEL_FOLDER);
        AIConfig::instance().load();
    }
    void TearDown() override
    {
        QFile::remove(settings);
        ModelManagerTestAccess::clear();
        AIConfig::instance().setModelLoadFlag(0);
        AIConfig::instance().load();
    }

    QString settings;
    QTemporaryDir folder;
};

TEST_F(Loading, NothingWantedIsASuccess)
{
    AIConfig::instance().setModelLoadFlag(0);
    EXPECT_TRUE(ModelManager::instance().init());
    EXPECT_FALSE(ModelManagerTestAccess::has(0x40));
}

TEST_F(Loading, AMissingFileStopsItsStageOnlyAndALaterCallGoesOn)
{
    AIConfig &config = AIConfig::instance();
    const std::string mtcnn3 = config.mtcnnModel3Path;
    config.mtcnnModel3Path = folder.filePath("missing").toStdString();
    config.setModelLoadFlag(0x40 | 0x1 | 0x8 | 0x200 | 0x8000);

    EXPECT_FALSE(ModelManager::instance().init());
    EXPECT_TRUE(ModelManagerTestAccess::has(0x40)); // before the missing one
    EXPECT_FALSE(ModelManagerTestAccess::has(0x1));
    EXPECT_TRUE(ModelManagerTestAccess::has(0x8)); // the second stage

    config.mtcnnModel3Path = mtcnn3;
    EXPECT_TRUE(ModelManager::instance().init());
    EXPECT_TRUE(ModelManagerTestAccess::has(0x1));
}

TEST_F(Loading, AFileThatIsNoModelIsAFailedCreation)
{
    QFile file(folder.filePath("garbage.bin"));
    ASSERT_TRUE(file.open(QFile::WriteOnly));
    file.write("no model");
    file.close();
    AIConfig &config = AIConfig::instance();
    config.mtcnnModel1Path = file.fileName().toStdString();
    config.setModelLoadFlag(0x1);
    EXPECT_FALSE(ModelManager::instance().init());
    EXPECT_FALSE(ModelManagerTestAccess::has(0x1));
}

TEST_F(Loading, WrappersOfWhatWasNeverLoadedAreUnavailable)
{
    const cv::Mat picture(128, 128, CV_8UC3);
    const std::vector<cv::Rect> one{cv::Rect(0, 0, 10, 10)};
    ModelManager &manager = ModelManager::instance();
    EXPECT_FALSE(manager.createMTCNNModel(picture, true)->detect());
    EXPECT_FALSE(manager.createFaceIDModel(picture, FaceIDModel::Clear, -1)->detect());
    EXPECT_FALSE(manager.createHandupModel(picture, {})->detect());
    EXPECT_FALSE(manager.createCMUSingleModel(picture)->detect());
    EXPECT_FALSE(manager.createBodyPoseModel(picture, one)->detect());
}

} // namespace

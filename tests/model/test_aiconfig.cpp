#include "aiconfig.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>

namespace {

/// Puts a settings file beside the test program for the length of a test.
class ConfigFile : public ::testing::Test
{
protected:
    void SetUp() override
    {
        folder = QCoreApplication::applicationDirPath() + "/model";
        QDir().mkpath(folder);
        path = folder + "/aiconfig.ini";
    }
    void TearDown() override { QFile::remove(path); }
    void write(const QByteArray &text)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QFile::WriteOnly));
        file.write(text);
    }

    QString folder, path;
};

TEST_F(ConfigFile, DefaultsStandWithoutAFile)
{
    AIConfig config;
    config.load();
    const std::string model = folder.toStdString() + "/";
    EXPECT_EQ(config.modelConfigPath, model + "model-config.ini");
    EXPECT_EQ(config.cmuConfigPath, model + "cmu.ini");
    EXPECT_EQ(config.mtcnnModel3Path, model + "det_face_3_v2.0.0.bin");
    EXPECT_EQ(config.faceIdModelPath, model + "det_face_id_v1.0.10.pb");
    EXPECT_EQ(config.colorDefinePath, model + "color.json");
    EXPECT_EQ(config.fetchGalleryThre, 0.35);
    EXPECT_EQ(config.detectGalleryThre, 0.43);
    EXPECT_EQ(config.smileThre, 0.75F);
}

TEST_F(ConfigFile, OneKeyFeedsBothConfigurationPathsAndAbsolutePathsStand)
{
    write("[AIService]\nmodelpath=/somewhere/else\nmodel_config=common.ini\nSSD_model=/abs/body.bin\n"
          "[AIConfig]\nfetchGalleryThre=0.5\nsmileThre=0.8\ndetectGalleryThre=nonsense\n");
    AIConfig config;
    config.load();
    EXPECT_EQ(config.modelConfigPath, "/somewhere/else/common.ini");
    EXPECT_EQ(config.cmuConfigPath, "/somewhere/else/common.ini");
    EXPECT_EQ(config.ssdModelPath, "/abs/body.bin");
    EXPECT_EQ(config.handupModelPath, "/somewhere/else/cls_handup_v3.0.1.bin");
    EXPECT_EQ(config.fetchGalleryThre, 0.5);
    EXPECT_EQ(config.smileThre, 0.8F);
    EXPECT_EQ(config.detectGalleryThre, 0.0);
}

TEST(AIConfigFlags, BitsAreAddedAndNeverCleared)
{
    AIConfig config;
    config.setModelFlags({{"ssd", true}, {"emotion", "true"}});
    config.setModelFlags({{"faceid", true}, {"ssd", false}, {"unknown", true}});
    EXPECT_EQ(config.modelLoadFlag, 0x40048U);
    EXPECT_TRUE(config.isModelWanted(0x8));
    EXPECT_FALSE(config.isModelWanted(0x1));
    config.setModelFlags({{"faceMtcnn", true},
                          {"cmu", true},
                          {"bodypose", true},
                          {"cmuPose", true},
                          {"handup", true},
                          {"faceAttr", true}});
    EXPECT_EQ(config.modelLoadFlag, 0x1249249U);
    config.setModelLoadFlag(0x1);
    EXPECT_EQ(config.modelLoadFlag, 0x1U);
}

} // namespace

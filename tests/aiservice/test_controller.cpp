#include "basestrategy.h"
#include "fixture.h"

#include <QImage>

#include <thread>

namespace {

TEST_F(ControllerTest, OnlyFramesOfTheRightShapeGoOutAndWithoutACopy)
{
    std::vector<QImage::Format> formats;
    const uchar *bits = nullptr;
    QObject::connect(
        controller, &AIServiceController::newImageSignal, controller,
        [&](const QImage &image) {
            formats.push_back(image.format());
            bits = image.constBits();
            EXPECT_EQ(image.size(), QSize(1920, 1080));
            EXPECT_EQ(image.bytesPerLine(), image.format() == QImage::Format_RGB888 ? 5760 : 7680);
        },
        Qt::DirectConnection);
    sendFrame(1280, 720);
    sendFrame(1920, 1080, NV12);
    sendFrame(1920, 1080, BGR);
    EXPECT_TRUE(formats.empty());
    sendFrame();
    EXPECT_EQ(reinterpret_cast<const char *>(bits), pixels.data());
    sendFrame(1920, 1080, RGBA);
    EXPECT_EQ(formats, (std::vector<QImage::Format>{QImage::Format_RGB888, QImage::Format_RGB32}));
}

TEST_F(ControllerTest, TheVideoWatchTellsChangesOnly)
{
    const auto states = [&] {
        QList<int> result;
        for (const auto &event : catcher.events(1022)) {
            EXPECT_EQ(event.type, "service");
            EXPECT_EQ(event.requestID, "0");
            result.append(event.info["status"].toInt());
        }
        return result;
    };
    controller->onCheckTimerDone();
    controller->onCheckTimerDone();
    EXPECT_EQ(states(), QList<int>{0});
    sendFrame(1280, 720); // no video
    controller->onCheckTimerDone();
    EXPECT_EQ(states(), QList<int>{0});
    sendFrame();
    controller->onCheckTimerDone();
    controller->onCheckTimerDone();
    EXPECT_EQ(states(), (QList<int>{0, 1}));
}

TEST_F(ControllerTest, ANameHasOneStrategyAndAnUnknownOneNone)
{
    EXPECT_TRUE(controller->addNewStrategy("FaceEmotionStrategy", "1"));
    EXPECT_TRUE(controller->addNewStrategy("FaceEmotionStrategy", "2"));
    EXPECT_FALSE(controller->addNewStrategy("faceemotionstrategy", "1"));
    // A stop of something that never ran leaves a null entry, which a start fills.
    EXPECT_EQ(controller->detectHandup({}, "3", 0), error(-15, "handup not start"));
    EXPECT_EQ(controller->detectHandup({}, "3", 1), error(0));
    controller->resetStrategies();
    EXPECT_EQ(controller->detectHandup({}, "3", 0), error(-15, "handup not start"));
}

TEST_F(ControllerTest, ARestartedAnalysisSurvivesALateSecondEndOfTheOldOne)
{
    // The budget's stop and the strategy's own give two `finished`; by the second a successor may stand
    // under the name.
    ASSERT_TRUE(controller->addNewStrategy("FaceEmotionStrategy", "1"));
    const BaseStrategy *gone = nullptr;
    controller->removeStrategy("FaceEmotionStrategy", gone); // another object: stays
    EXPECT_TRUE(controller->addNewStrategy("FaceEmotionStrategy", "2"));
    controller->removeStrategy("never there", gone);
}

TEST_F(ControllerTest, FramesAndEndsOfAnalysesMeet)
{
    // Starts, stops and resets on this thread while frames go out on another and strategies end themselves.
    recognisers.faces->finds({{300, 300, 90, 90}});
    std::atomic<bool> done{false};
    std::thread video([&] {
        while (!done)
            sendFrame();
    });
    for (int i = 0; i < 40; ++i) {
        controller->fetchGalleryNew({}, QString::number(i));
        controller->startAttributeDetection({}, "a");
        controller->detectHandup({}, "h", 1);
        controller->detectConcerntration({}, "c", 1);
        if (i % 3 == 0)
            controller->resetStrategies();
        else
            controller->detectHandup({}, "h", 0);
    }
    controller->resetStrategies();
    EXPECT_EQ(controller->fetchGalleryNew({}, "last"), error(0));
    EXPECT_TRUE(eventually([&] { return !catcher.events(1011).empty(); }));
    done = true;
    video.join();
}

TEST_F(ControllerTest, ResetForgetsEverybodyAndDeletesTheStore)
{
    enrol({gallery("a", 50)});
    controller->setExternalGallery({{"galleries", QVariantList{gallery("b", 90)}}}, "");
    EXPECT_EQ(controller->reset("1"), error(0));
    EXPECT_TRUE(known().isEmpty());
    EXPECT_TRUE(externals().isEmpty());
    EXPECT_TRUE(recognisers.ids->entries.empty());
    EXPECT_FALSE(QFile::exists("ai.data"));
    EXPECT_EQ(enrol({gallery("a", 50)}), error(0)); // lives on without a database
    EXPECT_FALSE(QFile::exists("ai.data"));
}

TEST_F(ControllerTest, AClosedControllerOpensAgain)
{
    controller->close();
    controller->init();
    EXPECT_TRUE(eventually([&] { return controller->fetchGalleryNew({}, "1") == error(0); }));
}

TEST_F(ControllerTest, TheTimerSavesWhatTheCommandsDont)
{
    enrol({gallery("a", 50)});
    DataManager::instance()->updateBodyRect(0, {1, 2, 3, 4}, 1);
    controller->onStorageTimeDone();
    const QVariantMap row = QSqliteStorage::instance()->getStudentInfo().value(0).toMap();
    EXPECT_EQ(row["bodyX"], QVariant(1));
    EXPECT_EQ(row["bodyH"], QVariant(4));
    EXPECT_EQ(row["galleryScore"], QVariant(0.7));
    EXPECT_TRUE(row["bestGallery"].toString().startsWith("data:image/jpg;base64,"));
}

} // namespace

#pragma once

#include "aiconfig.h"
#include "aiservicecontroller.h"
#include "eventcatcher.h"
#include "eventually.h"
#include "externalgallery.h"
#include "imageutil.h"
#include "imagewritter.h"
#include "qstorage.h"
#include "students.h"
#include "videorecorder.h"

#include <gtest/gtest.h>

#include <QDir>

inline int runningThreads()
{
    return QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

inline QVariantMap error(int code, const char *detail = nullptr)
{
    QVariantMap reply{{"rsp_error", code}};
    if (detail)
        reply["rsp_error_detail"] = detail;
    return reply;
}

inline QString faceText(int brightness, int side = 128)
{
    return ai_image::convertMat2Base64(cv::Mat(side, side, CV_8UC3, cv::Scalar::all(brightness)));
}

inline QVariantMap gallery(const QString &stuID, int brightness, const cv::Rect &rect = {100, 120, 80, 90})
{
    return {{"stuID", stuID},      {"faceImg", faceText(brightness)},
            {"x", rect.x},         {"y", rect.y},
            {"width", rect.width}, {"height", rect.height}};
}

/// A controller that is connected to a camera, with scripted recognisers and an empty store.
class ControllerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QDir::setCurrent(QDir::tempPath());
        DataManager::instance()->clear();
        ExternalGallery::instance()->clear();
        AIConfig::instance().setModelLoadFlag(0);
        store->open(true);
        controller->init();
        // The first attempt finds the segment that is there by now.
        QVariantMap none;
        ASSERT_TRUE(eventually([&] { return controller->isCameraConnected(); }));
        ASSERT_TRUE(controller->loadModel(none));
    }
    void TearDown() override
    {
        controller->close();
        // Strategies end on their own threads, where they still call the controller. The others are the
        // controller's, the reader's and the camera's.
        EXPECT_TRUE(eventually([&] { return runningThreads() <= threadsBefore + 3; }));
        delete controller;
        store->remove();
    }

    /// Counts those that stay from their first use on.
    static int threadsAtStart()
    {
        cv::setNumThreads(1); // no further ones from OpenCV
        VideoRecorder::instance();
        return runningThreads();
    }

    QVariantMap enrol(const QVariantList &galleries, const QString &requestID = "r")
    {
        return controller->registerGallery({{"galleries", galleries}}, requestID);
    }
    QVariantMap setExternal(const QVariantList &galleries)
    {
        return controller->setExternalGallery({{"galleries", galleries}}, "");
    }
    /// The ids of the rows of the store, in their order.
    QStringList stored() const { return students::ids(store->getStudentInfo()); }
    QStringList storedExternals() const { return students::ids(store->getHistoryGalleries()["galleries"]); }
    static QStringList known()
    {
        QStringList result;
        for (const StudentInfo &student : DataManager::instance()->getAllStudents())
            result.append(student.stuID);
        return result;
    }
    static QStringList externals()
    {
        QStringList result;
        for (const auto &item : ExternalGallery::instance()->getValidFaceFeatures())
            result.append(item->stuID);
        return result;
    }
    /// Frames straight to the controller, as the reader hands them over.
    void sendFrames(int count)
    {
        for (int i = 0; i < count; ++i)
            sendFrame();
    }
    void sendFrame(int width = 1920, int height = 1080, int format = RGB)
    {
        ImageBlock block;
        block.size = static_cast<int>(pixels.size());
        block.width = width;
        block.height = height;
        block.format = format;
        block.data = pixels.data();
        controller->onIPCVideoFrame(block);
    }
    /// Waits until so many events of this code have come; the last of them.
    EventCatcher::Event event(unsigned int code, size_t count)
    {
        EXPECT_TRUE(eventually([&] { return catcher.events(code).size() >= count; }));
        const auto events = catcher.events(code);
        EXPECT_EQ(events.size(), count);
        return events.empty() ? EventCatcher::Event() : events.back();
    }

    const int threadsBefore = threadsAtStart();
    EventCatcher &catcher = EventCatcher::fresh();
    ModelManagerTestAccess::Recognisers recognisers;
    QSqliteStorage *store = QSqliteStorage::instance();
    AIServiceController *controller = new AIServiceController(nullptr);
    ImageWritter camera{"Camera", 2, 1920 * 1080 * 3, nullptr};
    std::vector<char> pixels = std::vector<char>(1920 * 1080 * 4);
};

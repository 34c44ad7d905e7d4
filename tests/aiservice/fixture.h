#pragma once

#include "aiconfig.h"
#include "aiservice.h"
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
#include <QFile>

/// The threads of Qt that run in this process.
inline int runningThreads()
{
    int count = 0;
    for (const QString &task : QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile name("/proc/self/task/" + task + "/comm");
        count += name.open(QIODevice::ReadOnly) && name.readAll() == "QThread\n";
    }
    return count;
}

/**
 * A controller in a folder of its own, with scripted recognisers, an empty store and a writer on the
 * camera's segment, connected.
 */
class ControllerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        QDir::setCurrent(QDir::tempPath());
        DataManager::instance()->clear();
        ExternalGallery::instance()->clear();
        AIConfig::instance().setModelLoadFlag(0);
        QSqliteStorage::instance()->open(true);
        connectCamera();
    }
    void TearDown() override
    {
        controller->close();
        // Strategies end on their own threads, where they still call the controller. The others are the
        // controller's, the reader's and the camera's.
        EXPECT_TRUE(eventually([&] { return runningThreads() <= threadsBefore + 3; }));
        delete controller;
        delete camera;
        QSqliteStorage::instance()->remove();
    }

    /// Counts the recorder's, which stays from its first use on, and is known once it has named itself.
    static int threadsAtStart()
    {
        cv::setNumThreads(
            1); // OpenCV's own would take the name of the thread that first needs them, and stay
        VideoRecorder::instance();
        EXPECT_TRUE(eventually([] { return runningThreads() > 0; }));
        return runningThreads();
    }

    void connectCamera()
    {
        camera = new ImageWritter("Camera", 2, 1920 * 1080 * 3, nullptr);
        controller->init();
        // The first attempt finds the segment that is there by now.
        QVariantMap none;
        ASSERT_TRUE(eventually([&] { return controller->registerGallery({}, "")["rsp_error"] != -9; }));
        ASSERT_TRUE(controller->loadModel(none));
    }

    static QString faceText(int brightness, int side = 128)
    {
        return ai_image::convertMat2Base64(cv::Mat(side, side, CV_8UC3, cv::Scalar::all(brightness)));
    }
    static QVariantMap gallery(const QString &stuID, int brightness,
                               const cv::Rect &rect = {100, 100, 80, 80})
    {
        QVariantMap map{{"stuID", stuID}, {"faceImg", faceText(brightness)}};
        map.insert("x", rect.x);
        map.insert("y", rect.y);
        map.insert("width", rect.width);
        map.insert("height", rect.height);
        return map;
    }
    QVariantMap enrol(const QVariantList &galleries, const QString &requestID = "r")
    {
        return controller->registerGallery({{"galleries", galleries}}, requestID);
    }
    static QStringList ids(const QVariant &list)
    {
        QStringList result;
        for (const QVariant &value : list.toList())
            result.append(value.toMap()["stuID"].toString());
        return result;
    }
    /// The ids of the rows of the store, in their order.
    static QStringList stored() { return ids(QSqliteStorage::instance()->getStudentInfo()); }
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
    /// A frame straight to the controller, as the reader hands it over.
    void sendFrame(int width = 1920, int height = 1080, int format = RGB)
    {
        pixels.resize(1920 * 1080 * 4);
        ImageBlock block;
        block.size = static_cast<int>(pixels.size());
        block.width = width;
        block.height = height;
        block.format = format;
        block.data = pixels.data();
        controller->onIPCVideoFrame(block);
    }

    const int threadsBefore = threadsAtStart();
    EventCatcher &catcher = EventCatcher::fresh();
    ModelManagerTestAccess::Recognisers recognisers;
    AIServiceController *controller = new AIServiceController(nullptr);
    ImageWritter *camera = nullptr;
    std::vector<char> pixels;
};

inline QVariantMap error(int code)
{
    return {{"rsp_error", code}};
}

inline QVariantMap error(int code, const char *detail)
{
    return {{"rsp_error", code}, {"rsp_error_detail", detail}};
}

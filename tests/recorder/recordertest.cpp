#include "aiconfig.h"
#include "eventcatcher.h"
#include "logcapture.h"
#include "videorecorder.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int WIDTH = 320;
constexpr int HEIGHT = 240;

std::vector<cv::Mat> pictures(const QString &path)
{
    std::vector<cv::Mat> result;
    cv::VideoCapture video(path.toStdString(), cv::CAP_FFMPEG);
    for (cv::Mat picture; video.read(picture);)
        result.push_back(picture.clone());
    return result;
}

/// As long as it lives, nothing gets onto the disk of the videos.
class FrozenDisk
{
public:
    FrozenDisk() { disk.lock(); }
    ~FrozenDisk() { thaw(); }
    void thaw()
    {
        if (frozen.exchange(false))
            disk.unlock();
    }

    inline static QMutex disk; ///< held for each write

private:
    std::atomic<bool> frozen{true};
};

class RecorderTest : public ::testing::Test
{
protected:
    RecorderTest() { AIConfig::instance().setIdentify("room1"); }
    ~RecorderTest() override { recorder->stop(); }

    void start(const QString &folder = {}, int seconds = RecordParam().duration)
    {
        RecordParam parameters;
        parameters.width = WIDTH;
        parameters.height = HEIGHT;
        parameters.duration = seconds;
        parameters.recordPath = home.filePath(folder).toStdString();
        recorder->start(parameters);
    }

    /// Hands over frames as the camera does; returns when the recorder is through with them.
    void feed(int count)
    {
        QImage frame(WIDTH, HEIGHT, QImage::Format_RGB888);
        frame.fill(QColor(0, 0, 90));
        for (int i = 0; i < count; ++i)
            QMetaObject::invokeMethod(
                recorder, [&] { recorder->onRecvFrame(frame); }, Qt::BlockingQueuedConnection);
    }

    /// Hands over frames without waiting.
    void offer(int count)
    {
        for (int i = 0; i < count; ++i)
            recorder->offerFrame(QImage(WIDTH, HEIGHT, QImage::Format_RGB888));
    }

    /// The files that were announced since the last call.
    QList<QVariantMap> takeVideos()
    {
        QList<QVariantMap> videos;
        for (const auto &event : catcher.events(1020)) {
            EXPECT_EQ(event.type, "service");
            EXPECT_EQ(event.requestID, "0");
            videos.append(event.info);
        }
        EventCatcher::fresh();
        return videos;
    }

    QTemporaryDir home;
    VideoRecorder *recorder = VideoRecorder::instance();
    EventCatcher &catcher = EventCatcher::fresh();
};

TEST_F(RecorderTest, WritesOneStampedFrameInThirty)
{
    start("a/b");
    feed(90);
    recorder->stop();

    const QList<QVariantMap> videos = takeVideos();
    ASSERT_EQ(videos.size(), 1);
    const QString name = videos[0]["videoName"].toString();
    const QString path = videos[0]["videoLocalPath"].toString();
    QString shown = videos[0]["startRecordDate"].toString();
    EXPECT_TRUE(QRegularExpression("^\\d{4}-\\d\\d-\\d\\d \\d\\d::\\d\\d::\\d\\d$").match(shown).hasMatch())
        << qPrintable(shown);
    EXPECT_EQ(name, "room1_" + shown.remove(QRegularExpression("\\D")) + ".mp4");
    EXPECT_EQ(path, home.filePath("a/b/") + name);

    const std::vector<cv::Mat> recorded = pictures(path);
    ASSERT_EQ(recorded.size(), 3U);
    const cv::VideoCapture video(path.toStdString());
    EXPECT_EQ(video.get(cv::CAP_PROP_FPS), 1);
    const int codec = static_cast<int>(video.get(cv::CAP_PROP_FOURCC));
    EXPECT_TRUE(codec == cv::VideoWriter::fourcc('a', 'v', 'c', '1') ||
                codec == cv::VideoWriter::fourcc('h', '2', '6', '4'));
    for (const cv::Mat &picture : recorded) {
        ASSERT_EQ(picture.size(), cv::Size(WIDTH, HEIGHT));
        const cv::Vec3b plain = picture.at<cv::Vec3b>(200, 200);
        EXPECT_NEAR(plain[0], 90, 12) << "red and blue were swapped";
        EXPECT_NEAR(plain[2], 0, 12);
        cv::Mat red;
        cv::inRange(picture, cv::Scalar(0, 0, 100), cv::Scalar(255, 255, 255), red);
        const cv::Rect stamp = cv::boundingRect(red);
        EXPECT_NEAR(stamp.x, 5, 4);
        EXPECT_NEAR(stamp.br().y, 20, 4);
        EXPECT_GT(stamp.width, 150);
    }
}

TEST_F(RecorderTest, ASecondStartLeavesTheOpenFile)
{
    start();
    feed(30);
    const QString first = takeVideos().value(0)["videoLocalPath"].toString();
    start("other", -1); // each picture gets a file of its own
    feed(30);
    EXPECT_TRUE(takeVideos().isEmpty());
    feed(30);
    EXPECT_TRUE(takeVideos().value(0)["videoLocalPath"].toString().startsWith(home.filePath("other/room1_")));
    EXPECT_EQ(pictures(first).size(), 2U);
}

TEST_F(RecorderTest, AFrozenDiskHoldsUpAStopForAWhileAndNothingElse)
{
    start();
    feed(60);
    const QString frozen = takeVideos().value(0)["videoLocalPath"].toString();
    LogCapture log;
    FrozenDisk disk;
    recorder->stop();
    EXPECT_TRUE(log.takeLines().join('\n').contains("warning: [VideoRecorder] file not complete after 5 s: " +
                                                    frozen));
    EXPECT_FALSE(recorder->isRunning());
    // Neither does the next recording wait, nor its end.
    start("next");
    recorder->stop();
    start("last");
    offer(300);
    EXPECT_TRUE(recorder->isRunning());
    EXPECT_TRUE(takeVideos().isEmpty());
    EXPECT_EQ(log.takeLines().filter("not complete").size(), 0);

    disk.thaw();
    feed(1);
    const QString path = takeVideos().value(0)["videoLocalPath"].toString();
    EXPECT_TRUE(path.startsWith(home.filePath("last/")));
    EXPECT_EQ(pictures(frozen).size(), 2U);
    recorder->finish();
    const size_t recorded = pictures(path).size();
    EXPECT_GT(recorded, 0U);
    EXPECT_LE(recorded, 3U); // of 64 frames; the others found the backlog full
    EXPECT_EQ(log.takeLines().filter("not complete").size(), 0);
}

TEST_F(RecorderTest, AFileThatCannotBeOpenedIsToldWithTheReason)
{
    AIConfig::instance().setIdentify(QString(300, 'x'));
    start();
    LogCapture log;
    feed(60);
    EXPECT_EQ(takeVideos().size(), 1); // announced all the same
    const QStringList warnings = log.takeLines().filter("warning: [VideoRecorder] file can't be opened: ");
    ASSERT_EQ(warnings.size(), 1);
    EXPECT_TRUE(warnings[0].endsWith(".mp4: File name too long")) << qPrintable(warnings[0]);
    EXPECT_TRUE(QDir(home.path()).isEmpty());
}

TEST_F(RecorderTest, TheIdentificationNeverLeadsToAnotherFolder)
{
    AIConfig::instance().setIdentify(QString::fromUtf8("../a\\b\nc\u007f\u0085 d.é"));
    start("inner");
    feed(30);
    recorder->stop();
    const QVariantMap video = takeVideos().value(0);
    EXPECT_TRUE(video["videoName"].toString().startsWith(QString::fromUtf8(".._a_b_c__ d.é_")));
    EXPECT_EQ(video["videoLocalPath"].toString(), home.filePath("inner/") + video["videoName"].toString());
    EXPECT_EQ(pictures(video["videoLocalPath"].toString()).size(), 1U);
}

TEST_F(RecorderTest, StartAndStopMayMeetFrames)
{
    start();
    std::atomic<bool> done{false};
    std::thread client([&] {
        for (int i = 0; i < 20; ++i) {
            start();
            recorder->stop();
        }
        done = true;
    });
    while (!done)
        feed(1);
    client.join();
    EXPECT_FALSE(recorder->isRunning());
    takeVideos();
    feed(60);
    EXPECT_TRUE(takeVideos().isEmpty());

    // Whatever was announced last is complete.
    const QFileInfoList files = QDir(home.path()).entryInfoList(QDir::Files);
    for (const QFileInfo &file : files)
        EXPECT_FALSE(pictures(file.filePath()).empty()) << qPrintable(file.fileName());
}

} // namespace

/// In place of the system's, for FFmpeg too: a write to a video waits for a disk that is frozen.
extern "C" ssize_t write(int file, const void *bytes, size_t count)
{
    char path[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    if (readlink(link.c_str(), path, sizeof path - 1) > 0 && QByteArray(path).endsWith(".mp4"))
        QMutexLocker locker(&FrozenDisk::disk);
    return syscall(SYS_write, file, bytes, count);
}

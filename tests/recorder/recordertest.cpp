#include "aiconfig.h"
#include "eventually.h"
#include "iservice.h"
#include "logcapture.h"
#include "messageSender.h"
#include "videorecorder.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <thread>

namespace {

/// Takes the place of the service and keeps the events that would go out.
class EventSink : public IService
{
public:
    EventSink() : IService("recordertest", false)
    {
        connect(this, &IService::serviceMessgeSignal, this, &EventSink::onEvent, Qt::DirectConnection);
    }

    QVariantMap open(const QString &) override { return {}; }
    QVariantMap close(const QString &) override { return {}; }
    QVariantMap info(unsigned int, const QVariant &, const QString &) override { return {}; }
    QVariantMap execute(unsigned int, const QVariant &, const QString &) override { return {}; }

    QList<QVariantMap> takeVideos()
    {
        QMutexLocker locker(&m_mutex);
        QList<QVariantMap> videos;
        videos.swap(m_videos);
        return videos;
    }

private:
    void onEvent(uint msg, const QVariant &info, const QString &type, const QString &requestID)
    {
        EXPECT_EQ(msg, 1020U);
        EXPECT_EQ(type, "service");
        EXPECT_EQ(requestID, "0");
        QMutexLocker locker(&m_mutex);
        m_videos.append(info.toMap());
    }

    QMutex m_mutex;
    QList<QVariantMap> m_videos;
};

EventSink &sink()
{
    static EventSink *service = [] {
        auto *made = new EventSink; // the message sender keeps it to the end of the process
        MessageSender::instance()->setService(made);
        return made;
    }();
    return *service;
}

constexpr int WIDTH = 320;
constexpr int HEIGHT = 240;

QImage flatFrame(QSize size = {WIDTH, HEIGHT}, QImage::Format format = QImage::Format_RGB888)
{
    QImage frame(size, format);
    frame.fill(QColor(0, 0, 90));
    return frame;
}

std::vector<cv::Mat> pictures(const QString &path)
{
    std::vector<cv::Mat> result;
    cv::VideoCapture video(path.toStdString(), cv::CAP_FFMPEG);
    for (cv::Mat picture; video.read(picture);)
        result.push_back(picture.clone());
    return result;
}

class Camera : public QObject
{
    Q_OBJECT

signals:
    void newImageSignal(const QImage &image);
};

class RecorderTest : public ::testing::Test
{
protected:
    RecorderTest()
    {
        AIConfig::instance().setIdentify("room1");
        sink().takeVideos();
        QObject::connect(&camera, &Camera::newImageSignal, recorder, &VideoRecorder::onRecvFrame,
                         Qt::BlockingQueuedConnection);
    }
    ~RecorderTest() override { recorder->stop(); }

    RecordParam param(const QString &folder = {})
    {
        RecordParam result;
        result.width = WIDTH;
        result.height = HEIGHT;
        result.recordPath = (folder.isEmpty() ? home.path() : folder).toStdString();
        return result;
    }

    void start(RecordParam parameters) { recorder->start(parameters); }

    /// Hands over frames as the camera does; returns when the recorder is through with them.
    void feed(int count, const QImage &frame = flatFrame())
    {
        for (int i = 0; i < count; ++i)
            emit camera.newImageSignal(frame);
    }

    /// Feeds until a file is announced; the next 29 frames are then skipped.
    QVariantMap feedToNextFile()
    {
        for (int i = 0; i < 30; ++i) {
            feed(1);
            const QList<QVariantMap> videos = sink().takeVideos();
            if (!videos.isEmpty())
                return videos.first();
        }
        ADD_FAILURE() << "no file was announced";
        return {};
    }

    LogCapture log;
    QTemporaryDir home;
    VideoRecorder *recorder = VideoRecorder::instance();
    Camera camera;
};

TEST_F(RecorderTest, WritesOneStampedFrameInThirty)
{
    RecordParam parameters = param(home.filePath("a/b"));
    recorder->start(parameters);
    EXPECT_TRUE(recorder->isRunning());
    EXPECT_TRUE(sink().takeVideos().isEmpty());
    feed(90);
    recorder->stop();
    EXPECT_FALSE(recorder->isRunning());

    const QList<QVariantMap> videos = sink().takeVideos();
    ASSERT_EQ(videos.size(), 1);
    const QString name = videos[0]["videoName"].toString();
    const QString path = videos[0]["videoLocalPath"].toString();
    const auto time =
        QRegularExpression("^room1_(\\d{4})(\\d\\d)(\\d\\d)(\\d\\d)(\\d\\d)(\\d\\d)\\.mp4$").match(name);
    ASSERT_TRUE(time.hasMatch()) << qPrintable(name);
    EXPECT_EQ(path, home.filePath("a/b/") + name);
    const QString shown = QString("%1-%2-%3 %4::%5::%6")
                              .arg(time.captured(1), time.captured(2), time.captured(3), time.captured(4),
                                   time.captured(5), time.captured(6));
    EXPECT_EQ(videos[0]["startRecordDate"], QVariant(shown));
    EXPECT_TRUE(log.takeLines().contains("info: [VideoRecorder] record filepath: " + path));

    const std::vector<cv::Mat> recorded = pictures(path);
    ASSERT_EQ(recorded.size(), 3U);
    cv::VideoCapture video(path.toStdString());
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

TEST_F(RecorderTest, CountsFramesOnlyWhileRecording)
{
    start(param());
    feedToNextFile();
    recorder->stop();
    feed(45);
    start(param());
    feed(29);
    EXPECT_TRUE(sink().takeVideos().isEmpty());
    feed(1);
    EXPECT_EQ(sink().takeVideos().size(), 1);
}

TEST_F(RecorderTest, BeginsAnotherFileWhenTheTimeIsUp)
{
    RecordParam parameters = param();
    parameters.duration = 0;
    start(parameters);
    QList<QVariantMap> videos = {feedToNextFile()};
    int written = 1;
    ASSERT_TRUE(eventually([&] {
        feed(30);
        ++written;
        videos += sink().takeVideos();
        return videos.size() >= 3;
    }));
    recorder->stop();

    size_t read = 0;
    for (const QVariantMap &video : videos)
        read += pictures(video["videoLocalPath"].toString()).size();
    EXPECT_EQ(read, static_cast<size_t>(written));
    EXPECT_EQ(QDir(home.path()).entryList(QDir::Files).size(), videos.size());
}

TEST_F(RecorderTest, ASecondStartLeavesTheOpenFile)
{
    start(param());
    const QString first = feedToNextFile()["videoLocalPath"].toString();
    RecordParam parameters = param(home.filePath("other"));
    parameters.duration = -1; // each picture gets a file of its own
    start(parameters);
    feed(30);
    EXPECT_TRUE(sink().takeVideos().isEmpty());
    feed(30);
    const QList<QVariantMap> videos = sink().takeVideos();
    ASSERT_EQ(videos.size(), 1);
    EXPECT_TRUE(videos[0]["videoLocalPath"].toString().startsWith(home.filePath("other/room1_")));
    EXPECT_EQ(pictures(first).size(), 2U);
}

TEST_F(RecorderTest, AFolderThatCannotBeMadeLeavesItOff)
{
    sink();
    log.takeLines(); // what its making has logged
    QFile file(home.filePath("file"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    start(param(home.filePath("file/below")));
    EXPECT_FALSE(recorder->isRunning());
    EXPECT_EQ(log.takeLines(), QStringList("warning: record path check failed"));
    feed(60);
    EXPECT_TRUE(sink().takeVideos().isEmpty());
}

TEST_F(RecorderTest, PicksADiskWhenNoFolderIsNamed)
{
    RecordParam parameters = param();
    parameters.recordPath.clear();
    recorder->start(parameters);
    const QString folder = QString::fromStdString(parameters.recordPath);
    if (!recorder->isRunning()) {
        EXPECT_FALSE(log.takeLines().filter("warning: record").isEmpty());
        return;
    }
    recorder->stop();
    EXPECT_TRUE(folder.endsWith("/Mirovane/Video"));
    EXPECT_TRUE(QFileInfo(folder).isDir());
    // Folders that hold recordings are not empty, and stay.
    if (QDir().rmdir(folder))
        QDir().rmdir(QFileInfo(folder).path());
}

TEST_F(RecorderTest, AFileThatCannotBeOpenedIsAnnouncedAllTheSame)
{
    AIConfig::instance().setIdentify("no/such/folder");
    start(param());
    feedToNextFile();
    feed(60);
    EXPECT_TRUE(sink().takeVideos().isEmpty());
    recorder->stop();
    EXPECT_TRUE(QDir(home.path()).isEmpty());
}

TEST_F(RecorderTest, LeavesOutPicturesThatDoNotFit)
{
    start(param());
    const QString path = feedToNextFile()["videoLocalPath"].toString();
    for (const QImage &frame : {QImage(), flatFrame({WIDTH, HEIGHT}, QImage::Format_ARGB32),
                                flatFrame({64, 48}), flatFrame({WIDTH * 2, HEIGHT * 2})})
        feed(30, frame);
    feed(30);
    recorder->stop();
    EXPECT_EQ(pictures(path).size(), 2U);
}

TEST_F(RecorderTest, StartAndStopMayMeetFrames)
{
    start(param());
    std::atomic<bool> done{false};
    std::thread client([&] {
        for (int i = 0; i < 20; ++i) {
            start(param());
            recorder->stop();
        }
        done = true;
    });
    while (!done)
        feed(1);
    client.join();
    sink().takeVideos();
    EXPECT_FALSE(recorder->isRunning());
    feed(60);
    EXPECT_TRUE(sink().takeVideos().isEmpty());

    // Whatever was announced last is complete.
    const QFileInfoList files = QDir(home.path()).entryInfoList(QDir::Files);
    for (const QFileInfo &file : files)
        EXPECT_FALSE(pictures(file.filePath()).empty()) << qPrintable(file.fileName());
}

} // namespace

#include "recordertest.moc"

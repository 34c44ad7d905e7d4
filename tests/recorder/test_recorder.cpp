#include "aiconfig.h"
#include "counters.h"
#include "eventcatcher.h"
#include "logcapture.h"
#include "videorecorder.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSemaphore>
#include <QTemporaryDir>

#include <dlfcn.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int frameWidth = 320;
constexpr int frameHeight = 240;
constexpr char displayTime[] = "yyyy-MM-dd hh::mm::ss";

std::vector<cv::Mat> pictures(const QString &path)
{
    std::vector<cv::Mat> result;
    cv::VideoCapture video(path.toStdString(), cv::CAP_FFMPEG);
    for (cv::Mat picture; video.read(picture);)
        result.push_back(picture.clone());
    return result;
}

/// How far the upper left corner differs in brightness from one with the stamp of this time, levels a pixel.
double differenceFromStamp(const cv::Mat &picture, const QDateTime &time)
{
    cv::Mat stamped(30, 220, CV_8UC3, cv::Scalar(90, 0, 0));
    cv::putText(stamped, time.toString(displayTime).toStdString(), cv::Point(5, 20), cv::FONT_HERSHEY_PLAIN,
                1.0, cv::Scalar(0, 0, 255));
    cv::Mat corner = picture(cv::Rect(cv::Point(), stamped.size()));
    cv::cvtColor(corner, corner, cv::COLOR_BGR2GRAY);
    cv::cvtColor(stamped, stamped, cv::COLOR_BGR2GRAY);
    return cv::norm(corner, stamped, cv::NORM_L1) / static_cast<double>(stamped.total());
}

QMutex disk; ///< of the videos; held for each write, so whoever has it freezes the disk

/// A disk of the machine, as the recorder finds it.
struct Volume
{
    QByteArray root;
    const char *type;
    int megabytes;
    unsigned long flags;
};

std::vector<Volume> volumes; ///< instead of the machine's own, unless empty

class RecorderTest : public ::testing::Test
{
protected:
    RecorderTest() { AIConfig::instance().setIdentify("room1"); }
    ~RecorderTest() override { recorder->stop(); }

    void start(const QString &folder = {}, int seconds = RecordParam().duration)
    {
        RecordParam parameters;
        parameters.width = frameWidth;
        parameters.height = frameHeight;
        parameters.duration = seconds;
        parameters.recordPath = home.filePath(folder).toStdString();
        recorder->start(parameters);
    }

    /// Hands over frames as the camera does; returns when the recorder is through with them.
    void feed(int count)
    {
        QImage frame(frameWidth, frameHeight, QImage::Format_RGB888);
        frame.fill(QColor(0, 0, 90));
        for (int i = 0; i < count; ++i)
            QMetaObject::invokeMethod(
                recorder, [&] { recorder->onRecvFrame(frame); }, Qt::BlockingQueuedConnection);
    }

    /// Hands over frames without waiting.
    void offer(int count, QImage::Format format = QImage::Format_RGB888)
    {
        for (int i = 0; i < count; ++i)
            recorder->offerFrame(QImage(frameWidth, frameHeight, format));
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
    const counters::AnalysisRow &counted =
        counters::find(counters::page().analyses, VideoRecorder::countedName);
    const auto counts = [&counted] {
        return std::vector{counted.handled.value(), counted.skippedInterval.value(),
                           counted.skippedStopped.value(), counted.time.value()};
    };
    const auto before = counts();
    start("a/b");
    feed(90);
    recorder->stop();
    feed(2);
    const auto after = counts();
    EXPECT_EQ(after[0] - before[0], 3);
    EXPECT_EQ(after[1] - before[1], 87);
    EXPECT_EQ(after[2] - before[2], 2);
    EXPECT_GT(after[3], before[3]);

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
    const QDateTime begin = QDateTime::fromString(videos[0]["startRecordDate"].toString(), displayTime);
    for (const cv::Mat &picture : recorded) {
        ASSERT_EQ(picture.size(), cv::Size(frameWidth, frameHeight));
        const cv::Vec3b plain = picture.at<cv::Vec3b>(200, 200);
        EXPECT_NEAR(plain[0], 90, 12) << "red and blue were swapped";
        EXPECT_NEAR(plain[2], 0, 12);
        // What the encoder loses makes up one level; letters a pixel away would be four.
        double difference = 255;
        for (QDateTime time = begin; time <= QDateTime::currentDateTime(); time = time.addSecs(1))
            difference = std::min(difference, differenceFromStamp(picture, time));
        EXPECT_LT(difference, 2);
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

TEST_F(RecorderTest, AFileTakesPicturesUntilItsTimeIsOver)
{
    // A file of no length takes what comes within its first second.
    QElapsedTimer time;
    do {
        recorder->stop();
        takeVideos();
        time.start();
        start({}, 0);
        feed(60);
    } while (time.elapsed() >= 1000); // too busy
    EXPECT_EQ(takeVideos().size(), 1);
}

TEST_F(RecorderTest, AFrozenDiskHoldsUpAStopForAWhileAndNothingElse)
{
    start();
    feed(60);
    const QString frozen = takeVideos().value(0)["videoLocalPath"].toString();
    LogCapture log;
    std::unique_lock<QMutex> freeze(disk);
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

    freeze.unlock();
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

    // What FFmpeg takes for a protocol is a folder to everybody else.
    AIConfig::instance().setIdentify("room1");
    const QString before = QDir::currentPath();
    QDir::setCurrent(home.path());
    RecordParam parameters;
    parameters.recordPath = "no:protocol";
    recorder->stop();
    recorder->start(parameters);
    feed(30);
    QDir::setCurrent(before);
    EXPECT_EQ(log.takeLines().filter(": FFmpeg refuses it, or has no encoder for H.264").size(), 1);
    EXPECT_EQ(QDir(home.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList("no:protocol"));
    EXPECT_TRUE(QDir(home.filePath("no:protocol")).isEmpty());
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

TEST_F(RecorderTest, AStopThatMeetsAFrameLeavesNoFile)
{
    static QSemaphore met, goOn;
    start();
    const auto previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext &,
                                                    const QString &text) {
        if (text.contains("convertQImage2Mat")) { // told of this format when a frame is about to be recorded
            met.release();
            goOn.acquire();
        }
    });
    offer(30, QImage::Format_RGB32);
    met.acquire();
    recorder->stop();
    goOn.release();
    feed(1);
    qInstallMessageHandler(previous);
    EXPECT_TRUE(takeVideos().isEmpty());
    EXPECT_TRUE(QDir(home.path()).isEmpty());
}

TEST_F(RecorderTest, WithoutAFolderTheLargestDiskIsChosen)
{
    const auto add = [&](const char *name, const char *type, int megabytes, unsigned long flags = 0) {
        QDir(home.path()).mkdir(name);
        volumes.push_back({home.filePath(name).toLocal8Bit(), type, megabytes, flags});
    };
    add("small", "ext4", 100);
    add("large", "ext4", 300);
    add("middle", "ext4", 200);
    add("memory", "tmpfs", 900);
    add("readonly", "ext4", 900, ST_RDONLY);
    volumes.push_back({home.filePath("nowhere").toLocal8Bit(), "ext4", 900, 0});
    RecordParam parameters;
    recorder->start(parameters);
    volumes.clear();
    EXPECT_EQ(parameters.recordPath, home.filePath("large/Mirovane/Video").toStdString());
    EXPECT_TRUE(recorder->isRunning());
    recorder->stop();

    volumes.push_back({home.filePath("memory").toLocal8Bit(), "tmpfs", 900, 0});
    RecordParam nowhere;
    recorder->start(nowhere);
    volumes.clear();
    EXPECT_FALSE(recorder->isRunning());
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
        feed(30);
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
        QMutexLocker locker(&disk);
    return syscall(SYS_write, file, bytes, count);
}

/// In place of the system's: the volumes above, in the words of /proc/self/mountinfo.
extern "C" FILE *fopen(const char *path, const char *mode)
{
    static auto *const next = reinterpret_cast<decltype(fopen) *>(dlsym(RTLD_NEXT, "fopen"));
    if (volumes.empty() || qstrcmp(path, "/proc/self/mountinfo") != 0)
        return next(path, mode);
    FILE *const file = tmpfile();
    for (const Volume &volume : volumes)
        fprintf(file, "1 0 8:1 / %s rw - %s /dev/disk rw\n", volume.root.constData(), volume.type);
    rewind(file);
    return file;
}

extern "C" int statvfs64(const char *path, struct statvfs64 *result) noexcept
{
    static auto *const next = reinterpret_cast<decltype(statvfs64) *>(dlsym(RTLD_NEXT, "statvfs64"));
    for (const Volume &volume : volumes) {
        if (!QByteArray(path).startsWith(volume.root))
            continue;
        *result = {};
        result->f_bsize = result->f_frsize = 1 << 20;
        result->f_blocks = result->f_bavail = result->f_bfree = fsblkcnt64_t(volume.megabytes);
        result->f_flag = volume.flags;
        return volume.root.endsWith("nowhere") ? -1 : 0;
    }
    return next(path, result);
}

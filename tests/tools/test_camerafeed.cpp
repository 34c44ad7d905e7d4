#include "eventually.h"
#include "imagereader.h"

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <QFile>
#include <QMutexLocker>
#include <QProcess>
#include <QSharedMemory>
#include <QTemporaryDir>

#include <vector>

TEST(CameraFeed, OneAtATimeWritesUnlessItTakesOver)
{
    const QTemporaryDir folder;
    const QString picture = folder.filePath("picture.png");
    cv::imwrite(picture.toStdString(), cv::Mat(90, 160, CV_8UC3, cv::Scalar(1, 2, 3)));
    const auto writes = [](QProcess &feed) {
        return eventually([&] { return feed.readAllStandardOutput().contains("writing"); });
    };
    const auto ends = [](const QProcess &feed) {
        return eventually([&] { return feed.state() == QProcess::NotRunning; });
    };
    QProcess first, second, third;
    first.start(CAMERAFEED, {picture});
    ASSERT_TRUE(writes(first));
    second.start(CAMERAFEED, {picture});
    ASSERT_TRUE(ends(second));
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_TRUE(
        second.readAllStandardError().contains("process " + QByteArray::number(first.processId()) + ' '));
    EXPECT_EQ(first.state(), QProcess::Running);

    third.start(CAMERAFEED, {picture, "--take-over"});
    EXPECT_TRUE(writes(third));
    ASSERT_TRUE(ends(first));
    EXPECT_EQ(first.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(first.exitCode(), 0);

    // A dead one is no hindrance, and other segments have other cameras.
    third.kill();
    ASSERT_TRUE(ends(third));
    first.start(CAMERAFEED, {picture});
    EXPECT_TRUE(writes(first));
    second.start(CAMERAFEED, {picture, "--key", "other/camera"});
    EXPECT_TRUE(writes(second));
    for (QProcess *feed : {&first, &second}) {
        feed->terminate();
        EXPECT_TRUE(ends(*feed));
    }
}

TEST(CameraFeed, WritesPicturesInOrderLetterboxedAsRgbUntilItIsTerminated)
{
    const QTemporaryDir folder;
    const auto paint = [&folder](const char *name, const cv::Size &size, const cv::Scalar &colour) {
        cv::imwrite(folder.filePath(name).toStdString(), cv::Mat(size, CV_8UC3, colour));
    };
    QFile damaged(folder.filePath("0.png"));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    paint("1.png", {640, 480}, {255, 0, 0});
    paint("2.png", {960, 540}, {0, 0, 255});
    paint("3.png", {4000, 500}, {0, 255, 0});

    const cv::Vec3b black(0, 0, 0), red(255, 0, 0), green(0, 255, 0), blue(0, 0, 255);
    const QList<cv::Vec3b> order{blue, red, green};
    QMutex mutex;
    std::vector<cv::Mat> pictures;
    bool isComplete = false;
    const auto at = [&](size_t picture, int x, int y) { return pictures[picture].at<cv::Vec3b>(y, x); };
    ImageReader reader("Camera"); // its poll thread ends before what it fills
    const auto keep = [&](const ImageBlock &block) {
        const bool fits = block.width == 1920 && block.height == 1080 && block.format == RGB;
        QMutexLocker locker(&mutex);
        if (isComplete)
            return;
        pictures.push_back(fits ? cv::Mat(1080, 1920, CV_8UC3, block.data).clone() : cv::Mat());
        if (pictures.size() > 4)
            pictures.erase(pictures.begin());
    };
    QObject::connect(&reader, &ImageReader::newImageBlockSignal, &reader, keep, Qt::DirectConnection);
    QProcess feed;
    feed.start(CAMERAFEED, {folder.path(), "--fps", "10"});
    ASSERT_TRUE(eventually([&] { return feed.readAllStandardOutput().contains("writing"); }));
    ASSERT_TRUE(eventually([&] { return reader.startToRead(); }));
    // Four in a row: a reader that a busy machine holds up misses pictures.
    int first = -1;
    ASSERT_TRUE(eventually([&] {
        QMutexLocker locker(&mutex);
        if (pictures.size() < 4 || pictures[0].empty())
            return false;
        first = order.indexOf(at(0, 960, 540));
        int inOrder = 0;
        for (size_t i = 0; i < 4 && first >= 0 && !pictures[i].empty(); ++i)
            inOrder += at(i, 960, 540) == order[(first + int(i)) % 3];
        isComplete = inOrder == 4;
        return isComplete;
    }));
    reader.stopToRead();

    for (size_t i = 0; i < 4; ++i) {
        const int shown = (first + int(i)) % 3;
        // Four to three leaves black at the sides, a panorama above and below, sixteen to nine nowhere.
        EXPECT_EQ(at(i, 200, 540), shown == 0 ? black : order[shown]) << i;
        EXPECT_EQ(at(i, 960, 300), shown == 2 ? black : order[shown]) << i;
        EXPECT_EQ(at(i, 5, 5), shown == 1 ? red : black) << i;
    }

    feed.terminate();
    ASSERT_TRUE(eventually([&] { return feed.state() == QProcess::NotRunning; }));
    EXPECT_EQ(feed.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(feed.exitCode(), 0);
    EXPECT_FALSE(QSharedMemory("Camera").attach(QSharedMemory::ReadOnly)) << "it takes its segment along";
}

#include "imagereader.h"
#include "program.h"

#include <gmock/gmock.h>
#include <opencv2/imgcodecs.hpp>

#include <QFile>
#include <QMutexLocker>
#include <QSharedMemory>
#include <QTemporaryDir>

#include <optional>
#include <vector>

using testing::HasSubstr;

TEST(CameraFeed, OneAtATimeWritesUnlessItTakesOver)
{
    const QTemporaryDir folder;
    const QString picture = folder.filePath("picture.png");
    cv::imwrite(picture.toStdString(), cv::Mat(90, 160, CV_8UC3, cv::Scalar(1, 2, 3)));
    std::optional<Program> first, third;
    first.emplace(CAMERAFEED, QStringList(picture));
    ASSERT_TRUE(first->hasLines(1));
    Program second(CAMERAFEED, {picture});
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_THAT(second.errors(), HasSubstr("process " + std::to_string(first->processId()) + ' '));
    third.emplace(CAMERAFEED, QStringList{picture, "--take-over"});
    EXPECT_TRUE(third->hasLines(1));
    EXPECT_EQ(first->exitCode(), 0);

    // A dead one is no hindrance, and other segments have other cameras.
    third.reset();
    first.emplace(CAMERAFEED, QStringList(picture));
    third.emplace(CAMERAFEED, QStringList{picture, "--key", "other/camera"});
    for (Program *feed : {&*first, &*third}) {
        EXPECT_TRUE(feed->hasLines(1));
        feed->terminate();
        EXPECT_EQ(feed->exitCode(), 0);
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
    Program feed(CAMERAFEED, {folder.path(), "--fps", "10"});
    ASSERT_TRUE(feed.hasLines(1));
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
    EXPECT_EQ(feed.exitCode(), 0);
    EXPECT_FALSE(QSharedMemory("Camera").attach(QSharedMemory::ReadOnly)) << "it takes its segment along";
}

#include "democlass.h"
#include "eventually.h"
#include "imagereader.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QMutexLocker>
#include <QProcess>
#include <QSharedMemory>
#include <QTemporaryDir>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <vector>

namespace {

const int frameBytes = 1920 * 1080 * 3;

/// A running camerafeed and a reader of its segment, whose key is the test's own.
class CameraFeedTest : public ::testing::Test
{
protected:
    CameraFeedTest()
    {
        QObject::connect(
            &m_reader, &ImageReader::newImageBlockSignal, &m_reader,
            [this](const ImageBlock &block) { keep(block); }, Qt::DirectConnection);
    }

    void TearDown() override
    {
        // Orderly and last, so that neither segment nor semaphore is left in the system.
        m_reader.stopToRead();
        m_feed.terminate();
        if (!m_feed.waitForFinished(5000))
            m_feed.kill();
    }

    /// On the reader's poll thread.
    void keep(const ImageBlock &block)
    {
        QMutexLocker locker(&m_mutex);
        m_blocks.push_back(block);
        if (block.size == frameBytes)
            m_pictures.push_back(cv::Mat(1080, 1920, CV_8UC3, block.data).clone());
    }

    void start(const QStringList &arguments) { m_feed.start(CAMERAFEED, arguments); }

    /// Waits until that many pictures have come.
    bool received(int count)
    {
        return eventually([this] { return m_feed.readAllStandardOutput().contains("writing"); }) &&
               eventually([this] { return m_reader.startToRead(); }) && eventually([this, count] {
                   QMutexLocker locker(&m_mutex);
                   return int(m_pictures.size()) >= count;
               });
    }

    bool ended()
    {
        return eventually([this] { return m_feed.state() == QProcess::NotRunning; });
    }

    /// Writes a one-coloured picture.
    QString paint(const QString &name, const cv::Size &size, const cv::Scalar &colour)
    {
        QString path = m_folder.filePath(name);
        cv::imwrite(path.toStdString(), cv::Mat(size, CV_8UC3, colour));
        return path;
    }

    QTemporaryDir m_folder;
    QProcess m_feed;
    QMutex m_mutex;
    std::vector<ImageBlock> m_blocks;
    std::vector<cv::Mat> m_pictures;
    ImageReader m_reader{"Camera"}; // last: its poll thread ends before what it fills
};

} // namespace

TEST_F(CameraFeedTest, writesPicturesInOrderLetterboxedAsRgb)
{
    paint("1.png", {640, 480}, {255, 0, 0});
    paint("2.png", {960, 540}, {0, 0, 255});
    paint("3.png", {4000, 500}, {0, 255, 0});
    QFile damaged(m_folder.filePath("0.png"));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.close();
    start({m_folder.path(), "--fps", "10"});
    ASSERT_TRUE(received(4));

    QMutexLocker locker(&m_mutex);
    EXPECT_EQ(m_blocks[0].width, 1920);
    EXPECT_EQ(m_blocks[0].height, 1080);
    EXPECT_EQ(m_blocks[0].format, RGB);
    const auto at = [this](int picture, int x, int y) { return m_pictures[picture].at<cv::Vec3b>(y, x); };
    const cv::Vec3b black(0, 0, 0), red(255, 0, 0), green(0, 255, 0), blue(0, 0, 255);
    const QList<cv::Vec3b> order{blue, red, green};
    const int first = int(std::find(order.begin(), order.end(), at(0, 960, 540)) - order.begin());
    ASSERT_LT(first, 3);
    for (int i = 0; i < 4; ++i) {
        const int shown = (first + i) % 3;
        EXPECT_EQ(at(i, 960, 540), order[shown]) << i;
        // Four to three leaves black at the sides, a panorama above and below, sixteen to nine nowhere.
        EXPECT_EQ(at(i, 200, 540), shown == 0 ? black : order[shown]) << i;
        EXPECT_EQ(at(i, 960, 300), shown == 2 ? black : order[shown]) << i;
        EXPECT_EQ(at(i, 5, 5), shown == 1 ? red : black) << i;
    }
}

TEST_F(CameraFeedTest, takesItsSegmentAlongWhenItIsTerminated)
{
    start({"--still", paint("1.png", {1920, 1080}, {1, 2, 3})});
    ASSERT_TRUE(received(2));
    m_reader.stopToRead();

    m_feed.terminate();
    ASSERT_TRUE(ended());
    EXPECT_EQ(m_feed.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(m_feed.exitCode(), 0);
    QSharedMemory left("Camera");
    EXPECT_FALSE(left.attach(QSharedMemory::ReadOnly));
}

TEST_F(CameraFeedTest, endsAfterTheFramesOfTheDemoClass)
{
    start({"--demo", DemoClass::findPhotographs(), "--frames", "20", "--still"});
    ASSERT_TRUE(received(1));
    ASSERT_TRUE(ended());
    EXPECT_EQ(m_feed.exitCode(), 0);

    cv::Mat expected;
    cv::cvtColor(DemoClass(DemoClass::findPhotographs()).frame(0), expected, cv::COLOR_BGR2RGB);
    QMutexLocker locker(&m_mutex);
    EXPECT_EQ(cv::norm(m_pictures[0], expected, cv::NORM_INF), 0);
}

TEST_F(CameraFeedTest, badUseIsToldInOneLine)
{
    QFile text(m_folder.filePath("text.avi"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("no video");
    text.close();
    m_feed.setWorkingDirectory(m_folder.path());
    const std::tuple<QStringList, int, const char *> uses[] = {
        {{"nothing.mp4"}, 1, "nothing.mp4 does not exist"},
        {{"text.avi"}, 1, "neither a video nor a picture"},
        {{"."}, 1, "no readable picture"},
        {{"/dev/video77"}, 1, "cannot open the camera /dev/video77"},
        {{"--demo", "."}, 1, "cannot read the photograph"},
        {{}, 2, "one source is needed"},
        {{".", "--fps", "0"}, 2, "--fps"},
        {{"--wrong"}, 2, "wrong"}};
    for (const auto &[arguments, exitCode, words] : uses) {
        start(arguments);
        ASSERT_TRUE(ended());
        EXPECT_EQ(m_feed.exitCode(), exitCode) << words;
        EXPECT_TRUE(m_feed.readAllStandardError().contains(words)) << words;
    }
}

#include "imageutil.h"
#include "logcapture.h"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <QBuffer>

namespace {

const QString PREFIX = "data:image/jpg;base64,";

QByteArray encoded(const QImage &image, const char *format)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return buffer.data();
}

QImage flatImage(QImage::Format format, QColor colour, QSize size = {17, 9})
{
    QImage image(size, format);
    image.fill(colour);
    return image;
}

/// The data text of a JPEG whose header tells another size than the file has pixels for.
QString textWithSize(int height, int width = 16)
{
    QByteArray jpeg = encoded(flatImage(QImage::Format_RGB888, Qt::red, {16, 16}), "JPG");
    const int frameHeader = jpeg.indexOf("\xFF\xC0");
    jpeg[frameHeader + 5] = static_cast<char>(height >> 8);
    jpeg[frameHeader + 6] = static_cast<char>(height & 0xFF);
    jpeg[frameHeader + 7] = static_cast<char>(width >> 8);
    jpeg[frameHeader + 8] = static_cast<char>(width & 0xFF);
    return PREFIX + jpeg.toBase64();
}

double largestError(const cv::Mat &mat, const cv::Scalar &colour)
{
    return cv::norm(mat, cv::Mat(mat.size(), mat.type(), colour), cv::NORM_INF);
}

TEST(ConvertQImage, CopiesTheTwoFormatsThatOccur)
{
    LogCapture log;
    for (const QImage::Format format : {QImage::Format_RGB888, QImage::Format_RGB32}) {
        QImage image = flatImage(format, QColor(1, 2, 3)); // in RGB888 a line has a byte of padding
        image.setPixelColor(16, 8, QColor(10, 20, 30));
        const cv::Mat mat = ai_image::convertQImage2Mat(image);
        image.fill(Qt::white);

        ASSERT_EQ(mat.type(), CV_8UC3);
        ASSERT_EQ(mat.size(), cv::Size(17, 9));
        EXPECT_EQ(mat.at<cv::Vec3b>(0, 0), cv::Vec3b(3, 2, 1));
        EXPECT_EQ(mat.at<cv::Vec3b>(8, 16), cv::Vec3b(30, 20, 10));
    }
    EXPECT_TRUE(ai_image::convertQImage2Mat(QImage()).empty());
    EXPECT_TRUE(ai_image::convertQImage2Mat(flatImage(QImage::Format_ARGB32, Qt::red)).empty());
    EXPECT_EQ(log.takeLines(), QStringList("warning: ai_image::convertQImage2Mat 41 TODO:"));
}

TEST(DataText, KeepsTheChannelOrder)
{
    LogCapture log;
    for (const cv::Scalar &colour :
         {cv::Scalar(255, 0, 0), cv::Scalar(0, 0, 255), cv::Scalar(200, 120, 40)}) {
        const cv::Mat frame(48, 64, CV_8UC3, colour);
        const cv::Mat crop = frame(cv::Rect(3, 5, 33, 21)); // lines further apart than they are long
        QString text = ai_image::convertMat2Base64(crop);
        ASSERT_TRUE(text.startsWith(PREFIX));
        const cv::Mat back = ai_image::convertBase642Mat(text.replace("image/jpg", "image/jpeg"));
        ASSERT_EQ(back.size(), crop.size());
        EXPECT_LE(largestError(back, colour), 3);
    }
    // With four channels the order in memory is the image's own, and they are swapped all the same.
    const QString text = ai_image::convertMat2Base64(cv::Mat(16, 16, CV_8UC4, cv::Scalar(255, 0, 0, 255)));
    EXPECT_LE(largestError(ai_image::convertBase642Mat(text), cv::Scalar(0, 0, 255)), 3);

    for (const cv::Mat &other : {cv::Mat(16, 16, CV_8UC1, cv::Scalar(7)), cv::Mat(), cv::Mat(0, 16, CV_8UC3)})
        EXPECT_EQ(ai_image::convertMat2Base64(other), PREFIX);
}

TEST(DataText, OnlyAColourJpegIsDecoded)
{
    LogCapture log;
    const QImage red = flatImage(QImage::Format_RGB888, Qt::red);
    const QString good = encoded(red, "JPG").toBase64();
    const QString grey = encoded(flatImage(QImage::Format_Grayscale8, Qt::gray), "JPG").toBase64();
    for (const QString &text :
         {QString(), good, PREFIX, PREFIX + good + ",", "data:image/png;base64," + good,
          "data:image/JPG;base64," + good, " " + PREFIX + good, PREFIX + "!!!!", PREFIX + good.left(40),
          PREFIX + encoded(red, "PNG").toBase64(), PREFIX + grey, textWithSize(8193), textWithSize(65500),
          textWithSize(8192, 8192)})
        EXPECT_TRUE(ai_image::convertBase642Mat(text).empty()) << qPrintable(text.left(60));
    EXPECT_EQ(log.takeLines().filter("convertQImage2Mat"), QStringList());

    EXPECT_FALSE(ai_image::convertBase642Mat(PREFIX + good).empty());
    EXPECT_EQ(ai_image::convertBase642Mat(textWithSize(8192)).size(), cv::Size(16, 8192));
}

TEST(BeautifyFace, SmoothsAndBrightensWithoutWrapping)
{
    cv::Mat noise(128, 128, CV_8UC3), result;
    cv::RNG(7).fill(noise, cv::RNG::UNIFORM, 0, 400); // with many values at the top
    ai_image::beautifyFace(noise, result);

    cv::Mat expected;
    cv::bilateralFilter(noise, expected, 9, 37.5, 37.5, cv::BORDER_DEFAULT);
    expected.forEach<cv::Vec3b>([](cv::Vec3b &pixel, const int *) {
        for (int channel = 0; channel < 3; ++channel)
            pixel[channel] =
                static_cast<uchar>(std::min({static_cast<int>(pixel[channel] * 1.1 + 10), 254, 245}) + 10);
    });
    EXPECT_EQ(cv::norm(result, expected, cv::NORM_INF), 0);

    cv::Mat white(4, 4, CV_8UC3, cv::Scalar::all(255));
    ai_image::beautifyFace(white, white);
    EXPECT_EQ(largestError(white, cv::Scalar::all(255)), 0);
    ai_image::beautifyFace(cv::Mat(), white);
    ai_image::beautifyFace(cv::Mat(4, 4, CV_8UC1, cv::Scalar(1)), white);
    EXPECT_EQ(largestError(white, cv::Scalar::all(255)), 0);
}

} // namespace

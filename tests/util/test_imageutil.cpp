#include "imageutil.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QtEndian>

namespace {

const QString dataPrefix = "data:image/jpg;base64,";

QImage flatImage(QImage::Format format, QColor colour)
{
    QImage image(16, 16, format);
    image.fill(colour);
    return image;
}

QByteArray encoded(const QImage &image, const char *format)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, format);
    return buffer.data();
}

/// The data text of a JPEG whose header tells another size than the file has pixels for.
QString textWithSize(int height, int width = 16)
{
    QByteArray jpeg = encoded(flatImage(QImage::Format_RGB888, Qt::red), "JPG");
    const int frameHeader = jpeg.indexOf("\xFF\xC0");
    qToBigEndian<quint16>(height, jpeg.data() + frameHeader + 5);
    qToBigEndian<quint16>(width, jpeg.data() + frameHeader + 7);
    return dataPrefix + jpeg.toBase64();
}

/// The data text of a JPEG with so many marks of a scan, all but one behind its end.
QString textWithScans(int count)
{
    const QByteArray jpeg = encoded(flatImage(QImage::Format_RGB888, Qt::red), "JPG");
    return dataPrefix + (jpeg + QByteArray("\xFF\xDA").repeated(count - 1)).toBase64();
}

double largestError(const cv::Mat &mat, const cv::Scalar &colour)
{
    return cv::norm(mat, cv::Mat(mat.size(), mat.type(), colour), cv::NORM_INF);
}

TEST(DataText, KeepsTheChannelOrder)
{
    for (const cv::Scalar &colour :
         {cv::Scalar(255, 0, 0), cv::Scalar(0, 0, 255), cv::Scalar(200, 120, 40)}) {
        const cv::Mat frame(48, 64, CV_8UC3, colour);
        const cv::Mat crop = frame(cv::Rect(3, 5, 33, 21)); // lines further apart than they are long
        QString text = ai_image::convertMat2Base64(crop);
        ASSERT_TRUE(text.startsWith(dataPrefix));
        const cv::Mat back = ai_image::convertBase642Mat(text.replace("image/jpg", "image/jpeg"));
        ASSERT_EQ(back.size(), crop.size());
        EXPECT_LE(largestError(back, colour), 3);
    }
    const QImage image = flatImage(QImage::Format_RGB888, QColor(200, 120, 40));
    EXPECT_EQ(largestError(ai_image::convertQImage2Mat(image), {40, 120, 200}), 0);
    const cv::Mat withAlpha(16, 24, CV_8UC4, cv::Scalar(200, 120, 40, 255));
    const cv::Mat back = ai_image::convertBase642Mat(ai_image::convertMat2Base64(withAlpha));
    ASSERT_EQ(back.size(), withAlpha.size());
    EXPECT_LE(largestError(back, {40, 120, 200}), 3); // red-green-blue, unlike the others
    for (const cv::Mat &other : {cv::Mat(16, 16, CV_8UC1, cv::Scalar(7)), cv::Mat(), cv::Mat(0, 16, CV_8UC3)})
        EXPECT_EQ(ai_image::convertMat2Base64(other), dataPrefix);
}

TEST(DataText, OnlyAColourJpegIsDecoded)
{
    const QImage red = flatImage(QImage::Format_RGB888, Qt::red);
    const QString good = encoded(red, "JPG").toBase64();
    const QString grey = encoded(flatImage(QImage::Format_Grayscale8, Qt::gray), "JPG").toBase64();
    for (const QString &text :
         {QString(), good, dataPrefix, dataPrefix + good + ",", "data:image/png;base64," + good,
          "data:image/JPG;base64," + good, " " + dataPrefix + good, dataPrefix + "!!!!",
          dataPrefix + good.left(40), dataPrefix + encoded(red, "PNG").toBase64(), dataPrefix + grey,
          textWithSize(8193), textWithSize(16, 8193), textWithSize(65500), textWithSize(8192, 8192),
          textWithScans(65)})
        EXPECT_TRUE(ai_image::convertBase642Mat(text).empty()) << qPrintable(text.left(60));
    EXPECT_FALSE(ai_image::convertBase642Mat(dataPrefix + good).empty());
    EXPECT_EQ(ai_image::convertBase642Mat(textWithSize(8192)).size(), cv::Size(16, 8192));
    EXPECT_EQ(ai_image::convertBase642Mat(textWithSize(16, 8192)).size(), cv::Size(8192, 16));
    EXPECT_EQ(ai_image::convertBase642Mat(textWithScans(64)).size(), cv::Size(16, 16));
    const int rows = encoded(red, "JPG").size(); // of 512 pixels, one for each byte
    EXPECT_EQ(ai_image::convertBase642Mat(textWithSize(rows, 512)).size(), cv::Size(512, rows));
    EXPECT_TRUE(ai_image::convertBase642Mat(textWithSize(rows + 1, 512)).empty());
}

TEST(BeautifyFace, BrightensWithoutWrappingAndSmoothsWithinEdges)
{
    cv::Mat face;
    for (const auto &[before, after] : {std::pair(0, 20), std::pair(100, 130), std::pair(255, 255)}) {
        ai_image::beautifyFace(cv::Mat(16, 16, CV_8UC3, cv::Scalar::all(before)), face);
        EXPECT_EQ(largestError(face, cv::Scalar::all(after)), 0);
    }
    // A spot goes, a black wall stays.
    cv::Mat spotted(32, 32, CV_8UC3, cv::Scalar::all(150));
    spotted(cv::Rect(0, 0, 16, 32)).setTo(cv::Scalar::all(0));
    spotted.at<cv::Vec3b>(16, 24) = cv::Vec3b(180, 180, 180);
    ai_image::beautifyFace(spotted, spotted);
    EXPECT_NEAR(spotted.at<cv::Vec3b>(16, 24)[1], 185, 10); // and not 218
    EXPECT_EQ(spotted.at<cv::Vec3b>(16, 16), cv::Vec3b(185, 185, 185));
    EXPECT_EQ(spotted.at<cv::Vec3b>(16, 15), cv::Vec3b(20, 20, 20));

    // What is five columns away has no part in it.
    cv::Mat step(32, 32, CV_8UC3, cv::Scalar::all(150));
    step.colRange(16, 32).setTo(cv::Scalar::all(162));
    ai_image::beautifyFace(step, face);
    EXPECT_EQ(face.at<cv::Vec3b>(16, 12), cv::Vec3b(185, 185, 185));

    face.setTo(cv::Scalar::all(255));
    for (const cv::Mat &other : {cv::Mat(), cv::Mat(4, 4, CV_8UC1, cv::Scalar(1))})
        ai_image::beautifyFace(other, face);
    EXPECT_EQ(largestError(face, cv::Scalar::all(255)), 0); // untouched
}

} // namespace

#include "imageutil.h"

#include <opencv2/imgproc.hpp>

#include <QBuffer>
#include <QDebug>
#include <QImageReader>

namespace {

constexpr int maxDecodedSide = 8192;
constexpr int maxScans = 64;

/// Whether a JPEG file can hold the picture that its header tells of: each block of 8 by 8 pixels takes a bit
/// at least. A scan may have next to no bytes but costs a pass over the whole picture; encoders make a dozen.
bool canHold(const QByteArray &file, const QSize &size)
{
    constexpr qint64 pixelsPerByte = 8 * 8 * 8;
    return qint64(size.width()) * size.height() <= pixelsPerByte * file.size() &&
           file.count("\xff\xda") <= maxScans;
}

cv::Mat wrapBits(const QImage &image, int type)
{
    return {image.height(), image.width(), type, const_cast<uchar *>(image.constBits()),
            static_cast<size_t>(image.bytesPerLine())};
}

QImage wrapPixels(const cv::Mat &mat, QImage::Format format)
{
    return {mat.data, mat.cols, mat.rows, static_cast<int>(mat.step), format};
}

/// Red and blue change places in the copy. A null image for a type that has no counterpart.
QImage swappedImage(const cv::Mat &mat)
{
    if (mat.empty())
        return {};
    if (mat.type() == CV_8UC3)
        return wrapPixels(mat, QImage::Format_RGB888).rgbSwapped();
    if (mat.type() == CV_8UC4)
        return wrapPixels(mat, QImage::Format_ARGB32).rgbSwapped();
    return {};
}

/// Each value brightened by a tenth and 10, and kept below 255.
const cv::Mat &brightTable()
{
    static const cv::Mat table = [] {
        cv::Mat values(1, 256, CV_8U);
        for (int c = 0; c < 256; ++c) {
            const int bright = static_cast<int>(c * 1.1 + 10);
            values.at<uchar>(c) = static_cast<uchar>(bright >= 255 ? 254 : bright);
        }
        return values;
    }();
    return table;
}

} // namespace

cv::Mat ai_image::convertQImage2Mat(const QImage &image)
{
    cv::Mat result;
    if (image.format() == QImage::Format_RGB888) {
        cv::cvtColor(wrapBits(image, CV_8UC3), result, cv::COLOR_RGB2BGR);
    } else if (image.format() == QImage::Format_RGB32) {
        // Logs are searched for this line. Kept on purpose: there is nothing to do.
        qWarning() << "ai_image::convertQImage2Mat" << 41 << "TODO:";
        cv::cvtColor(wrapBits(image, CV_8UC4), result, cv::COLOR_BGRA2BGR);
    }
    return result;
}

cv::Mat ai_image::convertBase642Mat(const QString &text)
{
    const QVector<QStringRef> parts = text.splitRef(',');
    if (parts.size() != 2)
        return {};
    if (parts[0] != QLatin1String("data:image/jpeg;base64") &&
        parts[0] != QLatin1String("data:image/jpg;base64"))
        return {};

    QByteArray file = QByteArray::fromBase64(parts[1].toLatin1());
    QBuffer buffer(&file);
    QImageReader reader(&buffer, "jpg");
    // Only the JPEG decoder ever sees what a client sent.
    reader.setAutoDetectImageFormat(false);
    const QSize size = reader.size();
    if (size.isEmpty() || size.width() > maxDecodedSide || size.height() > maxDecodedSide ||
        !canHold(file, size))
        return {};
    return convertQImage2Mat(reader.read());
}

QString ai_image::convertMat2Base64(const cv::Mat &mat)
{
    QBuffer buffer;
    swappedImage(mat).save(&buffer, "JPG");
    return QLatin1String("data:image/jpg;base64,") + QLatin1String(buffer.data().toBase64());
}

void ai_image::beautifyFace(const cv::Mat &src, cv::Mat &dst)
{
    if (src.empty() || src.type() != CV_8UC3)
        return;

    cv::Mat smooth;
    cv::bilateralFilter(src, smooth, 9, 37.5, 37.5, cv::BORDER_DEFAULT);

    // The scalars act on the blue channel alone. The sums are formed in 16 bits, so that they are cut to 8
    // bits only once; a matrix expression would add the number to all three channels.
    cv::Mat sum, detail;
    cv::subtract(smooth, src, sum, cv::noArray(), CV_16S);
    cv::add(sum, cv::Scalar(128), detail, cv::noArray(), CV_8U);

    cv::LUT(smooth, brightTable(), smooth);
    const cv::Mat &bright = smooth;

    cv::Mat blurred, mixed;
    cv::GaussianBlur(detail, blurred, cv::Size(1, 1), 0, 0, cv::BORDER_DEFAULT);
    cv::addWeighted(bright, 1.0, blurred, 2.0, 0.0, sum, CV_16S);
    cv::subtract(sum, cv::Scalar(256), mixed, cv::noArray(), CV_8U);

    cv::addWeighted(bright, 99.9 / 100.0, mixed, 0.1 / 100.0, 0.0, dst);
    cv::add(dst, cv::Scalar::all(10), dst);
}

#include "rendering.h"

#include <opencv2/core.hpp>

#include <cmath>
#include <numeric>

namespace {

/// Y, U and V of each pixel: colours of all kinds within the limited range; the pixels of a 2 by 2 block have
/// one U and one V.
cv::Mat3b makeYuv(int width, int height)
{
    cv::Mat3b picture(height, width);
    cv::RNG(5).fill(picture, cv::RNG::UNIFORM, cv::Scalar(16, 16, 16), cv::Scalar(236, 241, 241));
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const cv::Vec3b &corner = picture(y / 2 * 2, x / 2 * 2);
            picture(y, x) = {picture(y, x)[0], corner[1], corner[2]};
        }
    }
    return picture;
}

/// Where Y, U and V of a pixel stand in one of the formats.
std::array<int, 3> placesOf(int x, int y, int format, int stride, int height)
{
    const int luma = y * stride + x, pair = y * stride + x / 2 * 4, chroma = stride * height;
    const int halfStride = (stride + 1) / 2;
    const int u = chroma + y / 2 * halfStride + x / 2,
              interleaved = chroma + y / 2 * 2 * halfStride + x / 2 * 2;
    switch (format) {
    case UYVY:
        return {pair + 1 + x % 2 * 2, pair, pair + 2};
    case YUYV:
        return {pair + x % 2 * 2, pair + 1, pair + 3};
    case NV12:
        return {luma, interleaved, interleaved + 1};
    default:
        return {luma, u, u + halfStride * ((height + 1) / 2)};
    }
}

bool isPacked(int format)
{
    return format == UYVY || format == YUYV;
}

/// The bytes of a picture in one of the formats, rows padded to the stride; what pads is not 0.
std::vector<uchar> bytesOf(const cv::Mat3b &picture, int format, int stride)
{
    const int chroma = isPacked(format) ? 0 : (stride + 1) / 2 * 2 * ((picture.rows + 1) / 2);
    std::vector<uchar> bytes(std::size_t(stride * picture.rows + chroma), 77);
    for (int y = 0; y < picture.rows; ++y) {
        for (int x = 0; x < picture.cols; ++x) {
            const auto places = placesOf(x, y, format, stride, picture.rows);
            for (std::size_t i = 0; i < 3; ++i)
                bytes[std::size_t(places[i])] = picture(y, x)[int(i)];
        }
    }
    return bytes;
}

/// The textbook's conversion to red, green and blue: black is 0, white is 1.
std::array<double, 3> converted(const cv::Vec3b &yuv, bool is709, bool isLimited)
{
    const double red = is709 ? 0.2126 : 0.299, blue = is709 ? 0.0722 : 0.114;
    const double grey = isLimited ? (yuv[0] - 16) / 219.0 : yuv[0] / 255.0;
    const double chroma = isLimited ? 224 : 255;
    const double r = grey + 2 * (1 - red) * (yuv[2] - 128) / chroma;
    const double b = grey + 2 * (1 - blue) * (yuv[1] - 128) / chroma;
    return {r, (grey - red * r - blue * b) / (1 - red - blue), b};
}

QImage converted(const cv::Mat3b &picture, bool is709, bool isLimited)
{
    const auto level = [](double value) { return int(std::lround(std::clamp(value, 0.0, 1.0) * 255)); };
    QImage image(picture.cols, picture.rows, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const auto [red, green, blue] = converted(picture(y, x), is709, isLimited);
            image.setPixel(x, y, qRgb(level(red), level(green), level(blue)));
        }
    }
    return image;
}

ColourSettings coloursOf(bool is709, bool isLimited)
{
    ColourSettings colours;
    colours.standard = is709 ? ColourSettings::BT709 : ColourSettings::BT601;
    colours.range = isLimited ? ColourSettings::Limited : ColourSettings::Full;
    return colours;
}

/// The largest difference of a channel between two pictures.
double difference(const QImage &a, const QImage &b)
{
    const auto matrix = [](const QImage &image) {
        return cv::Mat(image.height(), image.width(), CV_8UC4, const_cast<uchar *>(image.constBits()));
    };
    return cv::norm(matrix(a), matrix(b), cv::NORM_INF);
}

class FormatTest : public DisplayTest
{
protected:
    /// The picture as the widget shows it, one to one.
    QImage shown(const std::vector<uchar> &bytes, int width, int height, int stride, int format)
    {
        showAs(*display, {width, height});
        display->setMode(GeometryEngine::OneToOne);
        display->showBytes(reinterpret_cast<const char *>(bytes.data()), qint64(bytes.size()), width, height,
                           stride, RenderImgFormat(format));
        return shownBy(*display);
    }
};

TEST_P(FormatTest, ThePackedColoursStandInTheOrderOfTheirNames)
{
    // Sides and strides that no alignment fits; the last row is without its padding. OpenGL may round what it
    // blends otherwise.
    QImage picture(37, 23, QImage::Format_RGB32);
    ColourSettings colours;
    colours.background = Qt::blue;
    display->setColours(colours);
    const std::pair<int, std::array<std::size_t, 3>> orders[] = {
        {RGBA, {2, 1, 0}}, {ARGB, {2, 1, 0}}, {RGB, {0, 1, 2}}, {BGR, {2, 1, 0}}};
    for (const auto &[format, order] : orders) {
        const int texel = format == RGBA || format == ARGB ? 4 : 3;
        for (const int padding : {0, texel, 5}) {
            const int stride = picture.width() * texel + padding;
            std::vector<uchar> bytes(std::size_t(stride * picture.height() - padding));
            cv::randu(bytes, 0, 256);
            for (int y = 0; y < picture.height(); ++y) {
                for (int x = 0; x < picture.width(); ++x) {
                    const uchar *const pixel = bytes.data() + y * stride + x * texel;
                    const int alpha = format == ARGB ? pixel[3] : 255;
                    const auto over = [alpha](int value, int behind) {
                        return int(std::lround((value * alpha + behind * (255 - alpha)) / 255.0));
                    };
                    picture.setPixel(
                        x, y,
                        qRgb(over(pixel[order[0]], 0), over(pixel[order[1]], 0), over(pixel[order[2]], 255)));
                }
            }
            EXPECT_LE(difference(shown(bytes, picture.width(), picture.height(), stride, format), picture),
                      int(format == ARGB && GetParam()))
                << "format " << format << " padding " << padding;
        }
    }
}

TEST_P(FormatTest, YuvIsConvertedByTheStandardThatIsSetAlsoWhileItIsShown)
{
    for (const auto &[width, height] : {std::pair(64, 48), {37, 23}}) {
        const cv::Mat3b picture = makeYuv(width, height);
        for (const int format : {NV12, UYVY, YUV420P, YUYV}) {
            const int row = isPacked(format) ? (width + 1) / 2 * 4 : width;
            for (const int stride : {row, row + 4, row + 7}) {
                shown(bytesOf(picture, format, stride), width, height, stride, format);
                for (const int setting : {0, 1, 2, 3}) {
                    const bool is709 = setting & 1, isLimited = setting & 2;
                    display->setColours(coloursOf(is709, isLimited));
                    EXPECT_LE(difference(shownBy(*display), converted(picture, is709, isLimited)), 2)
                        << "format " << format << " stride " << stride << " setting " << setting;
                }
            }
        }
    }
}

TEST_P(FormatTest, TheStandardFollowsTheNumberOfLines)
{
    for (const int height : {719, 720}) {
        const cv::Mat3b picture = makeYuv(16, height);
        EXPECT_LE(difference(shown(bytesOf(picture, NV12, 16), 16, height, 0, NV12),
                             converted(picture, height == 720, true)),
                  2)
            << height;
    }
}

TEST(ColourConversion, IsExact)
{
    for (const int setting : {0, 1, 2, 3}) {
        const bool is709 = setting & 1, isLimited = setting & 2;
        const YuvToRgb conversion = yuvToRgb(coloursOf(is709, isLimited), 480);
        for (const cv::Vec3b &yuv :
             {cv::Vec3b(16, 128, 128), {235, 128, 128}, {100, 200, 128}, {100, 128, 200}}) {
            const auto expected = converted(yuv, is709, isLimited);
            for (std::size_t row = 0; row < 3; ++row) {
                double level = 0;
                for (std::size_t i = 0; i < 3; ++i)
                    level += conversion.matrix[3 * row + i] * (yuv[int(i)] / 255.0 - conversion.offset[i]);
                EXPECT_NEAR(level, expected[row], 1e-6) << setting << ' ' << row;
            }
        }
    }
    // Each grey of the limited range, as the processor converts it.
    const auto bytes = std::make_shared<std::vector<char>>(220 + 2 * 110, char(128));
    std::iota(bytes->begin(), bytes->begin() + 220, char(16));
    QString error;
    const QImage greys = toImage(VideoFrame::adopt(bytes, 220, 1, 0, YUV420P, DisplayFit, &error), {});
    for (int x = 0; x < 220; ++x) {
        const int grey = int(std::lround(x * 255 / 219.0));
        EXPECT_EQ(greys.pixel(x, 0), qRgb(grey, grey, grey)) << x;
    }
}

INSTANTIATE_TEST_SUITE_P(, FormatTest, ::testing::Bool(), nameOfWidget);

} // namespace

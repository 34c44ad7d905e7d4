#include "rendering.h"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <numeric>
#include <random>

namespace {

/// Y, U and V of each pixel; the pixels of a 2 by 2 block have one U and one V.
struct YuvPicture
{
    QSize size;
    std::vector<std::array<int, 3>> pixels;

    std::size_t index(int x, int y) const
    {
        return std::size_t(y) * std::size_t(size.width()) + std::size_t(x);
    }
    const std::array<int, 3> &at(int x, int y) const { return pixels[index(x, y)]; }
};

/// Colours of all kinds, within the limited range.
YuvPicture makeYuv(const QSize &size)
{
    std::mt19937 random(5);
    const auto from16To = [&random](int last) { return 16 + int(random() % unsigned(last - 15)); };
    YuvPicture picture{
        size, std::vector<std::array<int, 3>>(std::size_t(size.width()) * std::size_t(size.height()))};
    for (int y = 0; y < size.height(); ++y) {
        for (int x = 0; x < size.width(); ++x) {
            auto &pixel = picture.pixels[picture.index(x, y)];
            pixel = {from16To(235), from16To(240), from16To(240)};
            const auto &corner = picture.at(x / 2 * 2, y / 2 * 2);
            pixel[1] = corner[1];
            pixel[2] = corner[2];
        }
    }
    return picture;
}

/// The bytes of a picture in one of the formats, rows padded to the stride; what pads is not 0.
std::vector<char> packed(const YuvPicture &picture, int format, int stride)
{
    const int width = picture.size.width(), height = picture.size.height();
    const int halfHeight = (height + 1) / 2, halfStride = (stride + 1) / 2;
    std::vector<char> bytes(
        std::size_t(stride * height + (format == UYVY || format == YUYV ? 0 : 2 * halfStride * halfHeight)),
        char(77));
    const auto put = [&](int place, int value) { bytes[std::size_t(place)] = char(value); };
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const auto [luma, u, v] = picture.at(x, y);
            const int pair = y * stride + x / 2 * 4, second = stride * height;
            const int chroma = y / 2 * 2 * halfStride + x / 2 * 2;
            switch (format) {
            case UYVY:
                put(pair, u), put(pair + 2, v), put(pair + 1 + x % 2 * 2, luma);
                break;
            case YUYV:
                put(pair + 1, u), put(pair + 3, v), put(pair + x % 2 * 2, luma);
                break;
            case NV12:
                put(y * stride + x, luma), put(second + chroma, u), put(second + chroma + 1, v);
                break;
            default:
                put(y * stride + x, luma);
                put(second + y / 2 * halfStride + x / 2, u);
                put(second + halfStride * halfHeight + y / 2 * halfStride + x / 2, v);
            }
        }
    }
    return bytes;
}

/// The textbook's conversion, in double.
QImage converted(const YuvPicture &picture, bool is709, bool isLimited)
{
    const double red = is709 ? 0.2126 : 0.299, blue = is709 ? 0.0722 : 0.114;
    QImage image(picture.size, QImage::Format_RGB32);
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const auto [luma, u, v] = picture.at(x, y);
            const double grey = isLimited ? (luma - 16) / 219.0 : luma / 255.0;
            const double pb = (u - 128) / (isLimited ? 224.0 : 255.0),
                         pr = (v - 128) / (isLimited ? 224.0 : 255.0);
            const double r = grey + 2 * (1 - red) * pr, b = grey + 2 * (1 - blue) * pb;
            const double g = (grey - red * r - blue * b) / (1 - red - blue);
            const auto level = [](double value) {
                return int(std::lround(std::clamp(value, 0.0, 1.0) * 255));
            };
            image.setPixel(x, y, qRgb(level(r), level(g), level(b)));
        }
    }
    return image;
}

class FormatTest : public ::testing::TestWithParam<bool>
{
protected:
    /// The picture as the widget shows it, one to one.
    QImage shown(const std::vector<char> &bytes, const QSize &size, int stride, int format)
    {
        showAs(*display, size);
        display->setMode(GeometryEngine::OneToOne);
        display->showBytes(bytes.data(), qint64(bytes.size()), size.width(), size.height(), stride,
                           RenderImgFormat(format));
        return shownBy(*display);
    }

    std::unique_ptr<VideoDisplay> display{makeDisplay(GetParam())};
};

TEST_P(FormatTest, ThePackedColoursStandInTheOrderOfTheirNames)
{
    // Sides and strides that no alignment fits; the last row is without its padding.
    const QSize size(37, 23);
    std::mt19937 random(3);
    QImage picture(size, QImage::Format_RGB32);
    const std::vector<std::pair<int, std::array<int, 4>>> orders{
        {RGBA, {2, 1, 0, 3}}, {ARGB, {2, 1, 0, 3}}, {RGB, {0, 1, 2, 0}}, {BGR, {2, 1, 0, 0}}};
    for (const auto &entry : orders) {
        const int format = entry.first;
        const auto &order = entry.second;
        const int texel = format == RGBA || format == ARGB ? 4 : 3;
        for (const int padding : {0, texel, 5}) {
            const int stride = size.width() * texel + padding;
            std::vector<char> bytes(std::size_t(stride * size.height() - padding), char(99));
            for (int y = 0; y < size.height(); ++y) {
                for (int x = 0; x < size.width(); ++x) {
                    const int red = int(random() % 256), green = int(random() % 256),
                              blue = int(random() % 256);
                    const int alpha = int(random() % 256);
                    char *const pixel = bytes.data() + y * stride + x * texel;
                    const auto at = [&](int n) -> char & { return pixel[order[std::size_t(n)]]; };
                    if (texel == 4)
                        at(3) = char(alpha);
                    at(0) = char(red), at(1) = char(green), at(2) = char(blue);
                    const auto over = [=](int value, int behind) {
                        return format == ARGB
                                   ? int(std::lround((value * alpha + behind * (255 - alpha)) / 255.0))
                                   : value;
                    };
                    picture.setPixel(x, y, qRgb(over(red, 0), over(green, 0), over(blue, 255)));
                }
            }
            ColourSettings colours;
            colours.background = Qt::blue;
            display->setColours(colours);
            const bool isBlendedByOpenGL = format == ARGB && GetParam();
            EXPECT_LE(largestDifference(shown(bytes, size, stride, format), picture), int(isBlendedByOpenGL))
                << "format " << format << " padding " << padding;
        }
    }
}

TEST_P(FormatTest, YuvIsConvertedByTheStandardThatIsSet)
{
    for (const QSize &size : {QSize(64, 48), QSize(37, 23)}) {
        const YuvPicture picture = makeYuv(size);
        for (const int format : {NV12, UYVY, YUV420P, YUYV}) {
            const int row = format == UYVY || format == YUYV ? (size.width() + 1) / 2 * 4 : size.width();
            for (const int stride : {row, row + 4, row + 7}) {
                const std::vector<char> bytes = packed(picture, format, stride);
                for (const int setting : {0, 1, 2, 3}) {
                    ColourSettings colours;
                    colours.standard = setting & 1 ? ColourSettings::BT709 : ColourSettings::BT601;
                    colours.range = setting & 2 ? ColourSettings::Full : ColourSettings::Limited;
                    display->setColours(colours);
                    EXPECT_LE(largestDifference(shown(bytes, size, stride, format),
                                                converted(picture, setting & 1, !(setting & 2))),
                              2)
                        << "format " << format << " stride " << stride << " setting " << setting;
                }
            }
        }
    }
}

TEST_P(FormatTest, Bt601AgreesWithOpenCv)
{
    const QSize size(64, 48);
    const YuvPicture picture = makeYuv(size);
    const std::pair<int, int> conversions[] = {{NV12, cv::COLOR_YUV2RGB_NV12},
                                               {YUV420P, cv::COLOR_YUV2RGB_I420},
                                               {UYVY, cv::COLOR_YUV2RGB_UYVY},
                                               {YUYV, cv::COLOR_YUV2RGB_YUYV}};
    for (const auto &[format, code] : conversions) {
        const bool isPacked = format == UYVY || format == YUYV;
        std::vector<char> bytes = packed(picture, format, isPacked ? 128 : 64);
        const cv::Mat yuv(isPacked ? 48 : 72, 64, isPacked ? CV_8UC2 : CV_8UC1, bytes.data());
        cv::Mat rgb;
        cv::cvtColor(yuv, rgb, code);
        const QImage expected(rgb.data, 64, 48, int(rgb.step), QImage::Format_RGB888);
        EXPECT_LE(largestDifference(shown(bytes, size, 0, format), expected), 2) << "format " << format;
    }
}

TEST_P(FormatTest, TheStandardFollowsTheNumberOfLines)
{
    for (const int height : {718, 720}) {
        const YuvPicture picture = makeYuv({16, height});
        EXPECT_LE(largestDifference(shown(packed(picture, NV12, 16), picture.size, 0, NV12),
                                    converted(picture, height == 720, true)),
                  2)
            << height;
    }
}

TEST(ColourConversion, IsExact)
{
    for (const bool is709 : {false, true}) {
        for (const bool isLimited : {false, true}) {
            ColourSettings settings;
            settings.standard = is709 ? ColourSettings::BT709 : ColourSettings::BT601;
            settings.range = isLimited ? ColourSettings::Limited : ColourSettings::Full;
            const YuvToRgb conversion = yuvToRgb(settings, 480);
            const double red = is709 ? 0.2126 : 0.299, blue = is709 ? 0.0722 : 0.114;
            for (const auto &rgb : {std::array{1., 0., 0.}, {0., 1., 0.}, {0., 0., 1.}, {1., 1., 1.}}) {
                const double luma = red * rgb[0] + (1 - red - blue) * rgb[1] + blue * rgb[2];
                const double size = isLimited ? 224 : 255;
                const double yuv[] = {isLimited ? (16 + 219 * luma) / 255 : luma,
                                      (128 + (rgb[2] - luma) / 2 / (1 - blue) * size) / 255,
                                      (128 + (rgb[0] - luma) / 2 / (1 - red) * size) / 255};
                for (std::size_t row = 0; row < 3; ++row) {
                    double level = 0;
                    for (std::size_t i = 0; i < 3; ++i)
                        level += conversion.matrix[3 * row + i] * (yuv[i] - conversion.offset[i]);
                    EXPECT_NEAR(level, rgb[row], 1e-6) << is709 << isLimited << row;
                }
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

INSTANTIATE_TEST_SUITE_P(, FormatTest, ::testing::Bool(), [](const ::testing::TestParamInfo<bool> &widget) {
    return widget.param ? "OpenGL" : "Painter";
});

} // namespace

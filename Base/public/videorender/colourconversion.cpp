#include "colourconversion.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int linesOfHighDefinition = 720;
constexpr int fractionBits = 16;

/// The conversion in whole numbers: sums of products, with fractionBits behind the point.
class YuvTable
{
public:
    YuvTable(const ColourSettings &settings, int frameHeight)
    {
        const YuvToRgb conversion = yuvToRgb(settings, frameHeight);
        for (std::size_t row = 0; row < 3; ++row) {
            double constant = 0.5;
            for (std::size_t column = 0; column < 3; ++column) {
                const double factor = double(conversion.matrix[3 * row + column]);
                m_factors[row][column] = int(std::lround(factor * (1 << fractionBits)));
                constant -= factor * double(conversion.offset[column]) * 255;
            }
            m_constants[row] = int(std::lround(constant * (1 << fractionBits)));
        }
    }

    QRgb colour(int y, int u, int v) const
    {
        return qRgb(channel(0, y, u, v), channel(1, y, u, v), channel(2, y, u, v));
    }

private:
    int channel(int row, int y, int u, int v) const
    {
        const int sum =
            m_factors[row][0] * y + m_factors[row][1] * u + m_factors[row][2] * v + m_constants[row];
        return std::clamp(sum >> fractionBits, 0, 255);
    }

    int m_factors[3][3];
    int m_constants[3];
};

int blended(int value, int behind, int alpha)
{
    return (value * alpha + behind * (255 - alpha) + 127) / 255;
}

/// Fills the picture row by row: colour(row, x) for each pixel, where row(y) prepares the row's addresses.
template <class PrepareRow>
void fill(QImage &image, PrepareRow prepareRow)
{
    for (int y = 0; y < image.height(); ++y) {
        auto *const out = reinterpret_cast<QRgb *>(image.scanLine(y));
        const auto colour = prepareRow(y);
        for (int x = 0; x < image.width(); ++x)
            out[x] = colour(x);
    }
}

} // namespace

YuvToRgb yuvToRgb(const ColourSettings &settings, int frameHeight)
{
    const bool is709 =
        settings.standard == ColourSettings::BT709 ||
        (settings.standard == ColourSettings::Automatic && frameHeight >= linesOfHighDefinition);
    const float red = is709 ? 0.2126F : 0.299F;
    const float blue = is709 ? 0.0722F : 0.114F;
    const float green = 1 - red - blue;
    const bool limited = settings.range == ColourSettings::Limited;
    const float luma = limited ? 255.0F / 219 : 1;
    const float chroma = limited ? 255.0F / 224 : 1;
    const float redOfV = 2 * (1 - red) * chroma;
    const float blueOfU = 2 * (1 - blue) * chroma;
    return {{luma, 0, redOfV, luma, -blueOfU * blue / green, -redOfV * red / green, luma, blueOfU, 0},
            {limited ? 16.0F / 255 : 0, 128.0F / 255, 128.0F / 255}};
}

QImage toImage(const VideoFrame &frame, const ColourSettings &settings)
{
    if (frame.isNull())
        return {};
    QImage image(frame.size(), QImage::Format_RGB32);
    const auto &planes = frame.planes();
    const auto line = [&](int plane, int y) {
        const FramePlane &found = planes[std::size_t(plane)];
        return frame.bits(found) + std::int64_t(found.stride) * y;
    };
    const YuvTable table(settings, frame.size().height());
    const QColor behind = settings.background;

    switch (frame.format()) {
    case RGBA:
        fill(image, [&](int y) {
            return [in = line(0, y)](int x) { return qRgb(in[4 * x + 2], in[4 * x + 1], in[4 * x]); };
        });
        break;
    case ARGB:
        fill(image, [&](int y) {
            return [in = line(0, y), &behind](int x) {
                const uchar *const pixel = in + 4 * x;
                return qRgb(blended(pixel[2], behind.red(), pixel[3]),
                            blended(pixel[1], behind.green(), pixel[3]),
                            blended(pixel[0], behind.blue(), pixel[3]));
            };
        });
        break;
    case RGB:
        fill(image, [&](int y) {
            return [in = line(0, y)](int x) { return qRgb(in[3 * x], in[3 * x + 1], in[3 * x + 2]); };
        });
        break;
    case BGR:
        fill(image, [&](int y) {
            return [in = line(0, y)](int x) { return qRgb(in[3 * x + 2], in[3 * x + 1], in[3 * x]); };
        });
        break;
    case UYVY:
    case YUYV: {
        const int luma = frame.format() == UYVY ? 1 : 0;
        fill(image, [&](int y) {
            return [in = line(0, y), luma, &table](int x) {
                const uchar *const pair = in + x / 2 * 4;
                return table.colour(in[2 * x + luma], pair[1 - luma], pair[3 - luma]);
            };
        });
        break;
    }
    case NV12:
        fill(image, [&](int y) {
            return [in = line(0, y), chroma = line(1, y / 2), &table](int x) {
                return table.colour(in[x], chroma[x / 2 * 2], chroma[x / 2 * 2 + 1]);
            };
        });
        break;
    case YUV420P:
        fill(image, [&](int y) {
            return [in = line(0, y), u = line(1, y / 2), v = line(2, y / 2), &table](int x) {
                return table.colour(in[x], u[x / 2], v[x / 2]);
            };
        });
        break;
    default:
        break;
    }
    return image;
}

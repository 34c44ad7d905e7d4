#include "videoframe.h"

#include <algorithm>

namespace {

constexpr int largestSide = 16384;
/// Enough for one that is filled, one that waits, one that is shown, and one to spare.
constexpr std::size_t pooledBuffers = 4;

constexpr int half(int pixels)
{
    return (pixels + 1) / 2;
}

/// Bytes of a row of the first plane; 0 for a format that is none.
int rowBytes(int format, int width)
{
    switch (format) {
    case RGBA:
    case ARGB:
        return 4 * width;
    case RGB:
    case BGR:
        return 3 * width;
    case UYVY:
    case YUYV:
        return 4 * half(width);
    case NV12:
    case YUV420P:
        return width;
    default:
        return 0;
    }
}

std::vector<FramePlane> planesOf(int format, int width, int height, int stride)
{
    std::vector<FramePlane> planes{{0, stride, rowBytes(format, width), height}};
    const auto append = [&planes](int planeStride, int bytes, int rows) {
        const FramePlane &last = planes.back();
        planes.push_back({last.offset + std::int64_t(last.stride) * last.rows, planeStride, bytes, rows});
    };
    if (format == NV12)
        append(2 * half(stride), 2 * half(width), half(height));
    if (format == YUV420P) {
        append(half(stride), half(width), half(height));
        append(half(stride), half(width), half(height));
    }
    return planes;
}

} // namespace

QString VideoFrame::misfit(std::int64_t size, int width, int height, int stride, int format)
{
    if (width < 1 || height < 1 || width > largestSide || height > largestSide)
        return QStringLiteral("no sides of a frame: %1 x %2").arg(width).arg(height);
    const int row = rowBytes(format, width);
    if (row == 0)
        return QStringLiteral("no format of a frame: %1").arg(format);
    if (stride != 0 && (stride < row || stride > 64 * largestSide))
        return QStringLiteral("a row of %1 bytes does not fit into a stride of %2").arg(row).arg(stride);
    // The last row needs no padding.
    const FramePlane last = planesOf(format, width, height, stride ? stride : row).back();
    const std::int64_t needed = last.offset + std::int64_t(last.stride) * (last.rows - 1) + last.rowBytes;
    if (size < needed)
        return QStringLiteral("%1 bytes are too few for %2 x %3 in format %4, which needs %5")
            .arg(size)
            .arg(width)
            .arg(height)
            .arg(format)
            .arg(needed);
    return {};
}

VideoFrame VideoFrame::adopt(Bytes bytes, int width, int height, int stride, int format, int displayModel,
                             QString *error)
{
    *error = bytes ? misfit(std::int64_t(bytes->size()), width, height, stride, format)
                   : QStringLiteral("no bytes");
    if (!error->isEmpty())
        return {};
    VideoFrame frame;
    frame.m_bytes = std::move(bytes);
    frame.m_planes = planesOf(format, width, height, stride ? stride : rowBytes(format, width));
    frame.m_width = width;
    frame.m_height = height;
    frame.m_format = format;
    frame.m_displayModel = displayModel;
    return frame;
}

std::shared_ptr<std::vector<char>> FramePool::take(std::size_t size)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    // Only the pool hands out buffers, so one that it alone holds stays so until the lock is released.
    const auto unused = std::find_if(m_buffers.begin(), m_buffers.end(),
                                     [](const auto &buffer) { return buffer.use_count() == 1; });
    if (unused != m_buffers.end()) {
        if ((*unused)->size() != size)
            (*unused)->resize(size);
        return *unused;
    }
    auto buffer = std::make_shared<std::vector<char>>(size);
    if (m_buffers.size() < pooledBuffers)
        m_buffers.push_back(buffer);
    return buffer;
}

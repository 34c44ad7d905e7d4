#pragma once

#include "imageblock.h"

#include <QSize>
#include <QString>

#include <memory>
#include <mutex>
#include <vector>

/// How a frame lies in its view: the values of ImageBlock::displayModel. Any other value stands for
/// DisplayFit.
enum DisplayModel : std::int32_t
{
    DisplayFit = 0, ///< the whole frame, with bars beside it
    DisplayFill = 1 ///< the whole view, with the frame's edges cut off
};

/// One plane of a frame in memory.
struct FramePlane
{
    std::int64_t offset = 0; ///< bytes from the beginning of the frame
    int stride = 0;          ///< bytes from one row to the next
    int rowBytes = 0;        ///< bytes of a row that count
    int rows = 0;
};

/**
 * A frame to be shown: its bytes, shared and never changed, and how they lie.
 *
 * The order of the bytes, with the chroma of two odd pixels shared like that of a full pair:
 *
 * | Format      | In memory                                                                           |
 * |-------------|-------------------------------------------------------------------------------------|
 * | RGBA (1)    | blue, green, red, unused: what the service takes this format for                    |
 * | ARGB (7)    | blue, green, red, alpha: QImage::Format_ARGB32 on a little-endian machine           |
 * | RGB (5)     | red, green, blue                                                                    |
 * | BGR (6)     | blue, green, red                                                                    |
 * | UYVY (3)    | U, Y0, V, Y1 for two pixels; an odd width ends with a whole group of four            |
 * | YUYV (8)    | Y0, U, Y1, V, likewise                                                              |
 * | NV12 (2)    | plane Y, then a plane of U, V pairs, half as wide and high, rounded up; its stride is |
 * |             | that of plane Y, rounded up to an even number                                       |
 * | YUV420P (4) | planes Y, U, V; U and V half as wide and high, rounded up, with half the stride of Y, |
 * |             | rounded up                                                                          |
 *
 * Threads: a value; copies share the bytes and may be used on different threads.
 */
class VideoFrame
{
public:
    using Bytes = std::shared_ptr<const std::vector<char>>;

    VideoFrame() = default;

    /**
     * Checks before anything is read: the format, sides of 1 to 16384 pixels, a stride of at least one row,
     * and that all rows lie within the bytes.
     *
     * @param stride bytes from one row to the next (of plane Y), 0 for rows without padding
     * @param error  why the frame is null, a text for the log
     * @return a null frame when something does not fit
     */
    static VideoFrame adopt(Bytes bytes, int width, int height, int stride, int format, int displayModel,
                            QString *error);

    /// The same checks against a number of bytes, without a frame: empty when all fits, else why it does not.
    static QString misfit(std::int64_t size, int width, int height, int stride, int format);

    bool isNull() const { return !m_bytes; }
    QSize size() const { return {m_width, m_height}; }
    int format() const { return m_format; }
    int displayModel() const { return m_displayModel; }

    /// One plane for packed formats, two for NV12, three for YUV420P.
    const std::vector<FramePlane> &planes() const { return m_planes; }
    const uchar *bits(const FramePlane &plane) const
    {
        return reinterpret_cast<const uchar *>(m_bytes->data()) + plane.offset;
    }

private:
    Bytes m_bytes;
    std::vector<FramePlane> m_planes;
    int m_width = 0;
    int m_height = 0;
    int m_format = 0;
    int m_displayModel = DisplayFit;
};

/**
 * Buffers for frames that come at the rate of a video: one that nobody uses any more is taken again, so that
 * no memory is given back and faulted in for each frame. Any thread.
 */
class FramePool
{
public:
    /// A buffer of at least that many bytes, in nobody else's hands.
    std::shared_ptr<std::vector<char>> take(std::size_t size);

private:
    std::mutex m_mutex;
    std::vector<std::shared_ptr<std::vector<char>>> m_buffers;
};

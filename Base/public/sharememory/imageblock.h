#pragma once

#include <QMetaType>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Pixel layout of a frame, the values of ImageBlock::format.
enum RenderImgFormat : std::int32_t
{
    RGBA = 1,
    NV12 = 2,
    UYVY = 3,
    YUV420P = 4,
    RGB = 5,
    BGR = 6,
    ARGB = 7,
    YUYV = 8
};

/**
 * The record of one frame: what the signals carry, and what stands before the frame's bytes in the
 * segment. All numbers are in native byte order. Copying it copies no pixels.
 */
struct ImageBlock
{
    std::int32_t size = 0;         ///< bytes of the frame
    std::int32_t width = 0;        ///< pixels
    std::int32_t height = 0;       ///< pixels
    std::int32_t reserved = 0;     ///< carried unchanged, without a meaning here
    std::int32_t displayModel = 0; ///< carried unchanged, for those who draw the frame
    std::int32_t format = 0;       ///< a RenderImgFormat
    char *data = nullptr; ///< the frame's bytes; in the segment an address of the writer, never followed
    char id[104] = {};    ///< 38 characters of QUuid::toString() and a NUL

    /// The identifier as text. Ends with the array when a foreign writer left out the NUL.
    QString idText() const;
};

/**
 * What the segment begins with. `capacity` blocks of `stride` bytes follow: block i at offset
 * sizeof(ShmHeader) + i * stride, and in it first the ImageBlock, then the frame's bytes.
 */
struct ShmHeader
{
    std::int32_t totalSize = 0;  ///< bytes of the whole segment
    std::int32_t stride = 0;     ///< bytes of a block: the largest frame and its record
    std::int32_t used = 0;       ///< blocks that hold a frame, at most capacity
    std::int32_t capacity = 0;   ///< number of blocks
    std::int32_t writeIndex = 0; ///< block that the next frame goes to
    std::int32_t readIndex = 0;  ///< oldest block with a frame
    char changeID[100] = {};     ///< NUL-terminated, new with each write

    /// The change identifier as text. Ends with the array when a foreign writer left out the NUL.
    QString changeText() const;
};

inline QString ImageBlock::idText() const
{
    return QString::fromUtf8(id, static_cast<int>(strnlen(id, sizeof id)));
}

inline QString ShmHeader::changeText() const
{
    return QString::fromUtf8(changeID, static_cast<int>(strnlen(changeID, sizeof changeID)));
}

// Other programs write and read the segment by these offsets.
static_assert(sizeof(ImageBlock) == 136, "the frame record of all writers and readers of the segment");
static_assert(offsetof(ImageBlock, size) == 0 && offsetof(ImageBlock, width) == 4 &&
                  offsetof(ImageBlock, height) == 8 && offsetof(ImageBlock, reserved) == 12 &&
                  offsetof(ImageBlock, displayModel) == 16 && offsetof(ImageBlock, format) == 20 &&
                  offsetof(ImageBlock, data) == 24 && offsetof(ImageBlock, id) == 32,
              "the frame record of all writers and readers of the segment");
static_assert(sizeof(ShmHeader) == 124, "the header of all writers and readers of the segment");
static_assert(offsetof(ShmHeader, totalSize) == 0 && offsetof(ShmHeader, stride) == 4 &&
                  offsetof(ShmHeader, used) == 8 && offsetof(ShmHeader, capacity) == 12 &&
                  offsetof(ShmHeader, writeIndex) == 16 && offsetof(ShmHeader, readIndex) == 20 &&
                  offsetof(ShmHeader, changeID) == 24,
              "the header of all writers and readers of the segment");

Q_DECLARE_METATYPE(ImageBlock)

#include "segmentpeek.h"

#include <atomic>

namespace {

template <class Record>
Record copyOf(const char *address)
{
    Record record;
    std::memcpy(static_cast<void *>(&record), address, sizeof record);
    return record;
}

} // namespace

SegmentPeek::SegmentPeek(const QString &key) : m_key(key) {}

bool SegmentPeek::attach()
{
    if (m_memory.isAttached())
        return true;
    // By key, attaching and detaching would take the semaphore; by the native key they do not know it. The
    // name is computed without touching anything.
    m_memory.setNativeKey(QSharedMemory(m_key).nativeKey());
    return m_memory.attach(QSharedMemory::ReadOnly);
}

void SegmentPeek::detach()
{
    m_memory.detach();
}

bool SegmentPeek::headerFits(const ShmHeader &header) const
{
    const std::int64_t room = m_memory.size() - std::int64_t(sizeof header);
    return header.capacity > 0 && header.stride > std::int32_t(sizeof(ImageBlock)) &&
           std::int64_t(header.stride) * header.capacity <= room && header.used > 0 &&
           header.writeIndex >= 0 && header.writeIndex < header.capacity;
}

SegmentPeek::Result SegmentPeek::look(VideoFrame *frame, QString *error)
{
    if (!attach())
        return NoSegment;
    if (m_memory.size() < int(sizeof(ShmHeader)))
        return Empty;
    const char *const start = static_cast<const char *>(m_memory.constData());
    const auto header = copyOf<ShmHeader>(start);
    const QString change = header.changeText();
    if (!headerFits(header))
        return Empty;
    if (change == m_change)
        return Unchanged;

    const int newest = (header.writeIndex + header.capacity - 1) % header.capacity;
    const char *const block = start + sizeof header + std::int64_t(header.stride) * newest;
    const auto record = copyOf<ImageBlock>(block);
    if (record.idText() == m_frameId) {
        m_change = change;
        return Unchanged;
    }
    *error = record.size > header.stride - std::int32_t(sizeof record)
                 ? QStringLiteral("a frame of %1 bytes does not fit into a block of %2")
                       .arg(record.size)
                       .arg(header.stride)
                 : VideoFrame::misfit(record.size, record.width, record.height, 0, record.format);
    if (!error->isEmpty()) {
        m_change = change;
        return Refused;
    }
    const auto bytes = m_pool.take(std::size_t(record.size));
    std::memcpy(bytes->data(), block + sizeof record, bytes->size());
    std::atomic_thread_fence(std::memory_order_acquire);
    if (copyOf<ShmHeader>(start).changeText() != change ||
        copyOf<ImageBlock>(block).idText() != record.idText())
        return Torn;

    m_change = change;
    m_frameId = record.idText();
    *frame =
        VideoFrame::adopt(bytes, record.width, record.height, 0, record.format, record.displayModel, error);
    return NewFrame;
}

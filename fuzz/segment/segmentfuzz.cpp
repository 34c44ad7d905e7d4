#include "home.h"
#include "imagereader.h"
#include "source.h"
#include "systemv.h"

#include <QSharedMemory>

#include <atomic>
#include <thread>

namespace {

constexpr char key[] = "segment";

/// A segment, a writer that follows no rule, and the reader on it.
class Room
{
public:
    explicit Room(Source &bytes) : m_bytes(bytes)
    {
        if (!m_memory.create(1 + m_bytes.take<std::uint16_t>() % 8192))
            std::abort();
        systemv::setSemaphoreHook([this] { return onSemaphore(); });
        QObject::connect(
            &m_reader, &ImageReader::newImageBlockSignal, &m_reader, [this](ImageBlock ib) { onFrame(ib); },
            Qt::DirectConnection);
        start();
    }
    ~Room()
    {
        endScribbler();
        systemv::setSemaphoreHook({});
    }

    void play()
    {
        while (!m_bytes.isEmpty())
            step();
        poll();
    }

private:
    /// The reader's own timer is stopped: the input tells when it polls.
    void start()
    {
        m_reader.startToRead();
        auto *const thread = m_reader.findChild<QThread *>();
        thread->quit();
        thread->wait();
    }

    void step()
    {
        switch (m_bytes.choose(11)) {
        case 0:
            return poll();
        case 1:
            return put(4 * m_bytes.choose(6), number());
        case 2:
            return newChange();
        case 3:
            return goodHeader();
        case 4:
            return block();
        case 5:
            return write(m_bytes.take<std::uint16_t>(), m_bytes.bytes(m_bytes.take<std::uint8_t>()));
        case 6:
            m_reader.stopToRead();
            return start();
        case 7:
            m_failingLocks = m_bytes.choose(3);
            return;
        case 8:
            m_changesAtLock = !m_changesAtLock;
            return;
        case 9:
            m_changesAtFrame = !m_changesAtFrame;
            return;
        default:
            return toggleScribbler();
        }
    }

    void poll()
    {
        m_frames = 0;
        m_reader.readDataSlot();
        // As many blocks as ever fit into the segment.
        if (m_frames > m_memory.size() / int(sizeof(ImageBlock)))
            std::abort();
    }

    /// The pixels belong to the receiver until the next poll: all of them can be read and written.
    void onFrame(const ImageBlock &ib)
    {
        ++m_frames;
        if (ib.size <= 0 || ib.size > m_memory.size() || !ib.data)
            std::abort();
        std::memset(ib.data, ib.data[ib.size - 1], std::size_t(ib.size));
        if (m_changesAtFrame)
            change();
    }

    bool onSemaphore()
    {
        if (m_changesAtLock)
            change();
        return m_failingLocks == 0 || --m_failingLocks > 0;
    }

    void change()
    {
        put(4 * m_bytes.choose(6), number());
        newChange();
    }

    std::int32_t number()
    {
        static constexpr std::int32_t edges[] = {
            -1, 0, 1, 2, 3, 135, 136, 137, 200, INT32_MAX, 1 << 30, 0x55555555, 0x7fffff00, 124, INT32_MIN};
        const std::uint8_t choice = m_bytes.take<std::uint8_t>();
        if (choice < std::size(edges))
            return edges[choice];
        return choice < 128 ? m_bytes.take<std::uint8_t>() : m_bytes.take<std::int32_t>();
    }

    void write(std::size_t offset, const QByteArray &bytes)
    {
        const std::size_t size = std::size_t(m_memory.size());
        if (offset < size)
            std::memcpy(static_cast<char *>(m_memory.data()) + offset, bytes.constData(),
                        std::min(std::size_t(bytes.size()), size - offset));
    }

    void put(int offset, std::int32_t value)
    {
        write(std::size_t(offset), QByteArray(reinterpret_cast<const char *>(&value), sizeof value));
    }

    void newChange() { write(24, QByteArray::number(++m_changes) + '\0'); }

    /// A header that fits the segment, for so many blocks.
    void goodHeader()
    {
        const int room = m_memory.size() - int(sizeof(ShmHeader));
        const int capacity = 1 + m_bytes.choose(8);
        m_stride = std::max(room / capacity, 1);
        ShmHeader header;
        header.totalSize = m_memory.size();
        header.stride = m_stride;
        header.capacity = capacity;
        header.used = m_bytes.choose(capacity + 1);
        header.readIndex = m_bytes.choose(capacity);
        write(0, QByteArray(reinterpret_cast<const char *>(&header), sizeof header));
        newChange();
    }

    /// A frame in one of the blocks; its size may fit, or be any number.
    void block()
    {
        ImageBlock ib;
        const int number_ = m_bytes.choose(8);
        ib.size = m_bytes.oneIn(4) ? number() : m_stride - int(sizeof ib) - m_bytes.choose(3);
        ib.width = number();
        ib.format = number();
        ib.data = reinterpret_cast<char *>(std::intptr_t(m_bytes.take<std::int8_t>()));
        const QByteArray id = m_bytes.oneIn(8) ? QByteArray(sizeof ib.id, 'x')
                                               : QByteArray::number(m_bytes.take<std::uint8_t>());
        std::memcpy(ib.id, id.constData(), std::size_t(id.size()));
        write(sizeof(ShmHeader) + std::size_t(number_) * std::size_t(m_stride),
              QByteArray(reinterpret_cast<const char *>(&ib), sizeof ib));
        newChange();
    }

    /// Another thread that changes header and records without a pause, also while the reader reads.
    void toggleScribbler()
    {
        if (m_scribbler.joinable())
            return endScribbler();
        m_scribbling = true;
        m_scribbler =
            std::thread([this, offset = std::size_t{4} * m_bytes.choose(6), a = number(), b = number(),
                         blockOffset = sizeof(ShmHeader) + m_bytes.take<std::uint8_t>()] {
                for (int i = 0; m_scribbling; ++i) {
                    const std::int32_t value = i % 2 ? a : b;
                    const QByteArray bytes(reinterpret_cast<const char *>(&value), sizeof value);
                    write(offset, bytes);
                    write(blockOffset, bytes);
                    write(24, QByteArray::number(i) + '\0');
                }
            });
    }

    void endScribbler()
    {
        m_scribbling = false;
        if (m_scribbler.joinable())
            m_scribbler.join();
    }

    Source &m_bytes;
    QSharedMemory m_memory{key};
    ImageReader m_reader{key};
    int m_stride = 200;
    int m_changes = 0;
    int m_frames = 0;
    int m_failingLocks = 0;
    bool m_changesAtLock = false;
    bool m_changesAtFrame = false;
    std::atomic<bool> m_scribbling{false};
    std::thread m_scribbler;
};

} // namespace

/// Two bytes for the size of the segment, then steps: what the writer leaves in the segment and when the
/// reader looks at it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const QString home = enterHome();
    Source bytes(data, size);
    Room(bytes).play();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}

#include "imagewritter.h"

#include "timerthread.h"

#include <QDebug>
#include <QSystemSemaphore>
#include <QUuid>

#include <limits>

namespace {

template <std::size_t N>
void setNewId(char (&field)[N])
{
    qstrncpy(field, QUuid::createUuid().toString().toLatin1().constData(), N);
}

/// The header of an empty ring; without blocks when no segment can have the layout asked for.
ShmHeader emptyRing(int blockCount, unsigned int blockSize)
{
    const std::int64_t limit = std::numeric_limits<std::int32_t>::max();
    const std::int64_t stride = std::int64_t(blockSize) + std::int64_t(sizeof(ImageBlock));
    ShmHeader header;
    if (blockCount > 0 && stride <= (limit - std::int64_t(sizeof(ShmHeader))) / blockCount) {
        header.stride = std::int32_t(stride);
        header.capacity = blockCount;
    }
    header.totalSize = header.stride * header.capacity + std::int32_t(sizeof(ShmHeader));
    std::strcpy(header.changeID, "create-changeID");
    return header;
}

} // namespace

ImageWritter::ImageWritter(const QString &key, int blockCount, unsigned int blockSize, QObject *parent)
    : QObject(parent), header(emptyRing(blockCount, blockSize))
{
    bufferCount = header.capacity;
    for (int i = 0; i < bufferCount; ++i)
        buffers.emplace_back(new char[std::size_t(header.stride)]);

    memory.setKey(key);
    openSegment();

    thread = new QThread(this);
    timer = createThreadTimer(thread, 20);
    connect(timer, &QTimer::timeout, this, &ImageWritter::copyDataToShm, Qt::DirectConnection);
    thread->start(QThread::InheritPriority);
}

ImageWritter::~ImageWritter()
{
    if (thread) {
        qInfo() << "force to release key";
        releaseKey();
        endThreadTimer(timer, thread);
    }
    if (memory.isAttached()) {
        memory.unlock();
        memory.detach();
    }
    qDebug() << "force to release key";
    releaseKey();
}

void ImageWritter::openSegment()
{
    if (memory.isAttached())
        memory.detach();
    if (memory.create(header.totalSize, QSharedMemory::ReadWrite))
        return;
    memory.attach(QSharedMemory::ReadWrite);
    if (!memory.isAttached() || memory.size() >= header.totalSize)
        return;

    // A smaller segment. Detaching removes it when it was left behind by a writer that has died.
    const int size = memory.size();
    memory.detach();
    if (!memory.create(header.totalSize, QSharedMemory::ReadWrite))
        qWarning().noquote() << "share memory" << memory.key() << "has" << size << "bytes, needed"
                             << header.totalSize;
}

void ImageWritter::releaseKey()
{
    QSystemSemaphore semaphore(memory.key(), 0, QSystemSemaphore::Open);
    semaphore.release();
}

bool ImageWritter::writeImageBlock(const ImageBlock &ib)
{
    QMutexLocker locker(&mutex);
    if (!ib.data || ib.size <= 0 || ib.size > header.stride - std::int32_t(sizeof(ImageBlock))) {
        qWarning().noquote() << "drop frame of" << ib.size << "bytes, share memory" << memory.key();
        return true;
    }

    if (bufferIndex >= bufferCount) {
        while (pending.size() >= bufferCount)
            pending.removeFirst();
        bufferIndex = 0;
    }
    ImageBlock block = ib;
    block.data = buffers[std::size_t(bufferIndex)].get();
    std::memcpy(block.data, ib.data, std::size_t(ib.size));
    setNewId(block.id);
    pending.append(block);
    pendingCount.store(pending.size(), std::memory_order_relaxed);
    ++bufferIndex;
    return true;
}

void ImageWritter::copyDataToShm()
{
    if (pendingCount.load(std::memory_order_relaxed) == 0)
        return;

    QMutexLocker locker(&mutex);
    setNewId(header.changeID);
    if (!memory.isAttached() || !memory.lock())
        return;
    while (!pending.isEmpty())
        writeBlock(pending.takeFirst());
    pendingCount.store(0, std::memory_order_relaxed);
    std::memcpy(memory.data(), &header, sizeof header);
    memory.unlock();
}

void ImageWritter::writeBlock(const ImageBlock &ib)
{
    char *const block = static_cast<char *>(memory.data()) + sizeof(ShmHeader) +
                        std::size_t(header.stride) * std::size_t(header.writeIndex);
    std::memcpy(block, &ib, sizeof ib);
    std::memcpy(block + sizeof ib, ib.data, std::size_t(ib.size));

    header.writeIndex = (header.writeIndex + 1) % header.capacity;
    if (header.used == header.capacity)
        header.readIndex = header.writeIndex;
    else
        ++header.used;
}

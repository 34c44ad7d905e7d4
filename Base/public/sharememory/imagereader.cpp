#include "imagereader.h"

#include "timerthread.h"

#include <QDebug>
#include <QSet>

#include <algorithm>
#include <chrono>
#include <future>

namespace {

constexpr int pollInterval = 10; // milliseconds
constexpr std::chrono::milliseconds stuck(1000);
constexpr std::chrono::milliseconds patience(9000);
constexpr std::chrono::milliseconds watchInterval(50);

std::int64_t now()
{
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

} // namespace

ImageReader::ImageReader(const QString &segmentKey, QObject *parent)
    : QObject(parent), changeID("start"), key(segmentKey)
{
    qRegisterMetaType<ImageBlock>("ImageBlock");

    thread = new QThread(this);
    timer = createThreadTimer(thread, pollInterval);
    connect(timer, &QTimer::timeout, this, &ImageReader::readDataSlot, Qt::DirectConnection);
}

ImageReader::~ImageReader()
{
    stopToRead();
    endThreadTimer(timer, thread);
}

bool ImageReader::startToRead()
{
    releaseKey(); // before the mutex: a poll that waits for a dead writer's lock holds that
    QMutexLocker locker(&mutex);

    // By its native key the segment is attached and detached without the semaphore, so nothing here waits.
    // A segment that is just being removed fails to attach, and the caller comes again.
    memory.setNativeKey(QSharedMemory(key).nativeKey());
    if (!memory.isAttached()) {
        semaphore.setKey(QString());
        semaphore.setKey(key, 1);
        memory.attach(QSharedMemory::ReadOnly);
    }
    reading = memory.isAttached();
    if (reading)
        thread->start(QThread::InheritPriority);
    else
        qWarning().noquote() << "fail to connect share memory" << key << "error" << int(memory.error());
    return reading;
}

bool ImageReader::stopToRead()
{
    if (!reading.exchange(false)) // told at once: a poll that waits for the semaphore holds the mutex
        return true;
    const auto stopped = std::async(std::launch::async, &ImageReader::detach, this);
    while (stopped.wait_for(watchInterval) != std::future_status::ready)
        endStuckWait();
    return true;
}

void ImageReader::detach()
{
    QMutexLocker locker(&mutex);
    reading = false;
    // Under the lock, as everybody detaches: a segment that nobody has attached is removed.
    const bool locked = lockSegment();
    memory.detach();
    if (locked)
        semaphore.release();
}

bool ImageReader::lockSegment()
{
    waitingSince = now();
    const bool locked = semaphore.acquire();
    waitingSince = 0;
    return locked;
}

/// A writer that stands still with the lock would hold whoever waits for as long as it stands. One release is
/// enough, unless another process was faster and stands still as well: then there is one more after some time
/// that even a busy machine does not need to wake a thread.
void ImageReader::endStuckWait()
{
    std::int64_t since = waitingSince;
    if (since == 0 || now() - since < stuck.count())
        return;
    if (waitingSince.compare_exchange_strong(since, now() + patience.count()))
        releaseKey();
}

void ImageReader::releaseKey() const
{
    QSystemSemaphore(key, 0, QSystemSemaphore::Open).release();
}

void ImageReader::readDataSlot()
{
    QMutexLocker locker(&mutex);
    if (!reading || !memory.isAttached() || memory.size() < int(sizeof header) || !lockSegment())
        return;
    if (reading)
        readSegment();
    semaphore.release();
    deliver();
}

void ImageReader::readSegment()
{
    std::memcpy(&header, memory.constData(), sizeof header);
    const QString change = header.changeText();
    if (change == changeID)
        return;
    changeID = change;
    if (header.used > 0 && headerFits())
        collectBlocks();
}

bool ImageReader::headerFits() const
{
    const std::int64_t room = memory.size() - std::int64_t(sizeof header);
    return header.capacity > 0 && header.stride > std::int32_t(sizeof(ImageBlock)) &&
           std::int64_t(header.stride) * header.capacity <= room && header.readIndex >= 0;
}

void ImageReader::allocateBuffers()
{
    if (!buffers.empty())
        return;
    seenLimit = header.capacity + 1;
    bufferSize = header.stride;
    for (int i = 0; i < header.capacity; ++i)
        buffers.emplace_back(new char[std::size_t(bufferSize)]);
}

void ImageReader::collectBlocks()
{
    allocateBuffers();
    const char *const blocks = static_cast<const char *>(memory.constData()) + sizeof header;
    const std::int32_t frameLimit = std::min(header.stride, bufferSize) - std::int32_t(sizeof(ImageBlock));
    const int count = std::min({header.used, header.capacity, int(buffers.size())});
    QSet<QString> seen(seenIDs.cbegin(), seenIDs.cend());

    for (int i = 0; i < count; ++i) {
        const std::int64_t number = (std::int64_t(i) + header.readIndex) % header.capacity;
        const char *const block = blocks + number * header.stride;
        ImageBlock ib;
        std::memcpy(&ib, block, sizeof ib);
        const QString id = ib.idText();
        if (ib.size <= 0 || ib.size > frameLimit || seen.contains(id))
            continue;
        ib.data = buffers[std::size_t(i)].get();
        std::memcpy(ib.data, block + sizeof ib, std::size_t(ib.size));
        pending.append(ib);
        seenIDs.append(id);
        seen.insert(id);
    }
    while (seenIDs.size() >= seenLimit)
        seenIDs.removeFirst();
}

void ImageReader::deliver()
{
    while (!pending.isEmpty())
        emit newImageBlockSignal(pending.takeFirst());
}

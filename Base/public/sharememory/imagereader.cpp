#include "imagereader.h"

#include "timerthread.h"

#include <QDebug>
#include <QSet>
#include <QSystemSemaphore>

#include <algorithm>

ImageReader::ImageReader(const QString &segmentKey, QObject *parent)
    : QObject(parent), changeID("start"), key(segmentKey)
{
    qRegisterMetaType<ImageBlock>("ImageBlock");

    thread = new QThread(this);
    timer = createThreadTimer(thread, 10);
    connect(timer, &QTimer::timeout, this, &ImageReader::readDataSlot, Qt::DirectConnection);
}

ImageReader::~ImageReader()
{
    stopToRead();
    endThreadTimer(timer, thread);
}

bool ImageReader::startToRead()
{
    QMutexLocker locker(&mutex);
    QSystemSemaphore(key, 0, QSystemSemaphore::Open).release();

    memory.setKey(key);
    if (!memory.isAttached() && !memory.attach(QSharedMemory::ReadOnly)) {
        reading = false;
        qWarning().noquote() << "fail to connect share memory" << key << "error" << int(memory.error());
    }
    if (memory.isAttached()) {
        reading = true;
        thread->start(QThread::InheritPriority);
    }
    return reading;
}

bool ImageReader::stopToRead()
{
    QMutexLocker locker(&mutex);
    if (reading) {
        reading = false;
        if (memory.isAttached())
            memory.detach();
    }
    return true;
}

void ImageReader::readDataSlot()
{
    QMutexLocker locker(&mutex);
    if (!reading || !memory.isAttached() || memory.size() < int(sizeof header) || !memory.lock())
        return;
    std::memcpy(&header, memory.constData(), sizeof header);
    const QString change = header.changeText();
    if (change != changeID) {
        changeID = change;
        if (header.used > 0 && headerFits())
            collectBlocks();
    }
    memory.unlock();
    deliver();
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

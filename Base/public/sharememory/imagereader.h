#pragma once

#include "imageblock.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QSharedMemory>
#include <QStringList>
#include <QSystemSemaphore>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

/**
 * Delivers the frames that another process writes into a shared-memory segment.
 *
 * Threads: polls on a thread of its own, every 10 ms. startToRead() and stopToRead() may be called from
 * any thread; they wait for a running poll. Never call them from a directly connected receiver: the
 * signal is emitted with the reader's lock held. Only a poll and a stop wait for the segment's semaphore,
 * and a stop ends a wait that has taken a second, so a writer that stands still holds up nobody for longer.
 *
 * Memory: the pixels of a delivered block lie in buffers of the reader and are valid until the next poll
 * that finds a new frame. A receiver that needs them longer copies them.
 *
 * Trust: the segment belongs to another process. Its header and records are copied once, checked against
 * the attached size, and only the copies are used; a block that does not fit is skipped. Frames larger
 * than the layout of the first valid header aren't delivered by this object.
 */
class ImageReader : public QObject
{
    Q_OBJECT

public:
    /// @param segmentKey name of the segment and of its semaphore, for example "Camera"
    explicit ImageReader(const QString &segmentKey, QObject *parent = nullptr);
    ~ImageReader() override;

    /// Attaches and starts polling. False, with a warning in the log, as long as no writer has created
    /// the segment: call again later. Also frees a lock that a dead writer left behind.
    bool startToRead();

    /// Takes no more frames and detaches; returns true. startToRead() goes on from there, without
    /// delivering a frame twice.
    bool stopToRead();

    /// Looks for new frames. Called by the timer, on the poll thread.
    Q_SLOT void readDataSlot();

signals:
    /// One for each new frame, oldest first, on the poll thread. Size in bytes, sides in pixels; neither
    /// the sides nor the format are checked against the size.
    void newImageBlockSignal(ImageBlock ib);

private:
    void detach();
    bool lockSegment();
    void endStuckWait();
    void releaseKey() const;
    void readSegment();
    bool headerFits() const;
    void allocateBuffers();
    void collectBlocks();
    void deliver();

    QTimer *timer = nullptr;
    QThread *thread = nullptr;
    QString changeID;
    QString key;
    QSharedMemory memory;              ///< by its native key, so without a lock of its own
    QSystemSemaphore semaphore{{}, 1}; ///< the lock of the segment
    ShmHeader header;
    QStringList seenIDs;
    int seenLimit = 0;
    std::vector<std::unique_ptr<char[]>> buffers;
    QList<ImageBlock> pending;
    QMutex mutex; ///< guards all of the above

    // Told without the mutex.
    std::atomic<bool> reading{false};
    std::atomic<std::int64_t> waitingSince{
        0}; ///< for the semaphore, steady milliseconds; 0 while nobody waits

    std::int32_t bufferSize = 0; ///< bytes of each of the buffers
};

#pragma once

#include "imageblock.h"

#include <QList>
#include <QMutex>
#include <QObject>
#include <QSharedMemory>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <memory>
#include <vector>

/**
 * Puts frames into a shared-memory segment, from where ImageReaders of other processes take them.
 *
 * Threads: writeImageBlock() may be called from any thread and waits for no reader; a thread of the
 * object's own copies what was taken in to the segment every 20 ms. The object lives until no thread
 * calls it any more.
 *
 * Memory: the bytes of a frame are copied before writeImageBlock() returns. The segment is created by
 * the first writer of a key and shared by further ones, each with indices of its own.
 *
 * When more than blockCount frames come between two copies, the oldest ones are dropped.
 */
class ImageWritter : public QObject
{
    Q_OBJECT

public:
    /// @param key name of the segment and of its semaphore, for example "Camera"
    /// @param blockCount frames that the segment holds, at least 1
    /// @param blockSize bytes of the largest frame
    ///
    /// Creates the segment, or attaches to it when it exists. A writer that can do neither takes frames
    /// and drops them: isAttached() tells.
    ImageWritter(const QString &key, int blockCount, unsigned int blockSize, QObject *parent = nullptr);
    ~ImageWritter() override;

    /// Takes a copy of the frame, gives it a new identifier and returns true. A frame of no bytes, or of
    /// more than blockSize bytes, is dropped with a warning.
    bool writeImageBlock(const ImageBlock &ib);

    /// Whether frames can reach the segment.
    bool isAttached() const { return memory.isAttached(); }

    /// Copies the frames taken in to the segment. Called by the timer, on the copy thread.
    Q_SLOT void copyDataToShm();

private:
    void openSegment();
    void releaseKey();
    void writeBlock(const ImageBlock &ib);

    QSharedMemory memory;
    QList<ImageBlock> pending;
    std::vector<std::unique_ptr<char[]>> buffers;
    int bufferIndex = 0;
    int bufferCount = 0;
    QTimer *timer = nullptr;
    QThread *thread = nullptr;
    QMutex mutex; ///< guards pending, buffers and header
    ShmHeader header;
    std::atomic<int> pendingCount{0}; ///< size of pending, for a look at it without the lock
};

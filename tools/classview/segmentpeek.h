#pragma once

#include "videoframe.h"

#include <QSharedMemory>

/**
 * Looks at the newest frame of a camera's segment without anybody noticing: neither lock nor semaphore is
 * touched, so nobody waits for this reader and it waits for nobody, not even for a camera that was stopped
 * while it held the lock.
 *
 * The price is that a frame may change while it is copied. The change identifier of the header and the
 * identifier of the frame are compared before and after; a frame that was touched is left out. (With a single
 * block, or when the camera writes more frames at once than there are blocks, one that was torn before can
 * still pass.)
 *
 * Whoever detaches last takes the segment along; that may be this reader.
 *
 * Trust: header and record are copied once and checked against the attached size; only the copies are used.
 *
 * Threads: one at a time.
 */
class SegmentPeek
{
public:
    enum Result
    {
        NoSegment, ///< no camera has made one
        Empty,     ///< nothing was written yet, or what is written is not a segment's header
        Unchanged, ///< no new frame since the last look
        Torn,      ///< the camera wrote while the frame was copied: look again
        Refused,   ///< a frame that cannot be shown; the error tells why
        NewFrame
    };

    /// @param key name of the segment, for example "Camera"
    explicit SegmentPeek(const QString &key);

    /// Attaches when needed, and copies the newest frame when it is another than at the last look.
    Result look(VideoFrame *frame, QString *error);

    /// Lets go of the segment. The next look attaches again: to the segment that has the name then.
    void detach();

private:
    bool attach();
    bool headerFits(const ShmHeader &header) const;

    const QString m_key;
    QSharedMemory m_memory;
    FramePool m_pool;
    QString m_change;
    QString m_frameId;
};

#pragma once

#include "videoframe.h"

#include <mutex>

/**
 * Holds the newest frame for whoever shows it: a frame that was not fetched before the next one came is
 * dropped.
 *
 * Threads: any. Nobody waits for longer than the exchange of a pointer.
 */
class FrameMailbox
{
public:
    /// Puts a frame in the place of the one that waits. True when the owner has to be woken: none waited.
    bool put(VideoFrame frame);
    /// The frame that waits; null when none does.
    VideoFrame take();

    /// Frames that were put in since the beginning.
    std::uint64_t received() const;

private:
    mutable std::mutex m_mutex;
    VideoFrame m_frame;
    std::uint64_t m_received = 0;
};

#include "framemailbox.h"

#include <utility>

bool FrameMailbox::put(VideoFrame frame)
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    const bool waited = !m_frame.isNull();
    std::swap(m_frame, frame); // the old one goes after the lock
    ++m_received;
    return !waited;
}

VideoFrame FrameMailbox::take()
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::exchange(m_frame, {});
}

std::uint64_t FrameMailbox::received() const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_received;
}

#pragma once

#include "framesource.h"

#include <memory>

/**
 * A camera: a stream of the network, or a device. Only its newest picture counts.
 *
 * A thread of its own reads as fast as pictures come; those of HLS, which come a segment at a time, at the
 * pace in which they were taken. When they end it opens the stream again, after pauses that grow from half a
 * second to ten; it tells what it waits for, never with the password of the address. A stream that stalls
 * counts as ended after five seconds, HLS after twenty, a device after ten, which is OpenCV's own limit.
 *
 * Threads: as every source. The thread isn't waited for at the end, since FFmpeg may hold it for seconds: a
 * program that had a live source ends without destroying static objects.
 */
class LiveSource : public FrameSource
{
public:
    struct Wanted
    {
        cv::Size size;    ///< of a device; empty takes 1920 by 1080
        double rate = 30; ///< of a device, pictures a second
    };

    /// @param source an address, the number of a device, or its path
    LiveSource(const QString &source, const Wanted &wanted);
    ~LiveSource() override;

    cv::Mat next() override;
    bool ended() const override { return false; }
    bool isLive() const override { return true; }

    /// How FFmpeg opens streams from now on: RTSP over TCP or UDP, nothing held back. To be called once,
    /// before there are threads.
    static void configure(const QString &transport);

    /// False, with a reason, when a device can't be opened now.
    static bool canOpen(const QString &device, QString &error);

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
};

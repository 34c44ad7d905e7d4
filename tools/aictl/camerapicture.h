#pragma once

#include "imageblock.h"

#include <opencv2/core.hpp>

#include <condition_variable>
#include <memory>
#include <mutex>

class ImageReader;

/**
 * The newest picture of the camera, out of the shared-memory segment "Camera".
 *
 * Threads: current() belongs to one thread; frames come in on the reader's own.
 */
class CameraPicture
{
public:
    CameraPicture();
    ~CameraPicture();

    /// A copy of the newest frame, CV_8UC3 in blue-green-red order; of a frame that is overwritten just now
    /// it may show parts of two. Empty as long as no camera has written the segment, and for formats other
    /// than RGB and RGBA.
    cv::Mat current();

private:
    void take(const ImageBlock &block);

    bool m_reading = false;
    std::mutex m_mutex; // guards m_newest
    std::condition_variable m_arrived;
    ImageBlock m_newest; // without data until the first frame
    // Last, so that its thread has ended before the rest goes.
    std::unique_ptr<ImageReader> m_reader;
};

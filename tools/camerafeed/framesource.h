#pragma once

#include <QString>

#include <opencv2/core.hpp>

#include <memory>

/**
 * Where the pictures of a camera come from.
 *
 * Threads: used by one thread at a time. A source that is made is open; it ends with its object.
 */
class FrameSource
{
public:
    virtual ~FrameSource() = default;

    /// The next picture, CV_8UC3 in blue-green-red order and of any size. Files and folders begin again at
    /// their end. An empty picture when nothing more can be had: a camera was unplugged, a file vanished.
    virtual cv::Mat next() = 0;

    /// Leaves out pictures that come too late. Only the demo class does, whose film keeps to the clock;
    /// every picture of the others is shown.
    virtual void skip(int pictures) { Q_UNUSED(pictures) }

    /// Opens a camera ("/dev/video0" or "0"), a video, a picture, or a folder of pictures. Null when that
    /// can't be done, with the reason in error.
    /// @param hold for how many frames each picture of a folder stays, at least 1
    static std::unique_ptr<FrameSource> open(const QString &source, int hold, QString &error);

    /// The demo class from a folder of photographs; from where they usually lie when the name is empty.
    static std::unique_ptr<FrameSource> openDemo(const QString &photoFolder, QString &error);

    /// Repeats the first picture of the other source.
    static std::unique_ptr<FrameSource> still(std::unique_ptr<FrameSource> source);
};

/// The picture as large as it fits into the size, in the middle of black, red-green-blue.
cv::Mat letterboxed(const cv::Mat &picture, const cv::Size &size);

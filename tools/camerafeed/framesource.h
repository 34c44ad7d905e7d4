#pragma once

#include <opencv2/core.hpp>

#include <QString>

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
    /// their end, unless they are shown once. Empty when there is none: now, or ever again if ended().
    virtual cv::Mat next() = 0;

    /// True when no further picture will come: a file vanished, or was shown to its end.
    virtual bool ended() const = 0;

    /// True for a camera, which goes on whether its pictures are taken or not.
    virtual bool isLive() const { return false; }

    /// Pictures a second, as the source says itself; 0 when it has no rate of its own.
    virtual double rate() const { return 0; }

    /// Leaves out pictures that come too late. Only the demo class does, whose film keeps to the clock;
    /// every picture of the others is shown.
    virtual void skip(int pictures) { Q_UNUSED(pictures) }

    struct Options
    {
        int hold = 1;      ///< for how many frames each picture of a folder stays, at least 1
        bool once = false; ///< files and folders are shown once, not again and again
        cv::Size size;     ///< asked of a camera device; empty for 1920 by 1080
        double rate = 30;  ///< asked of a camera device, pictures a second
    };

    /// Opens the address of a network camera, a camera device ("/dev/video0" or "0"), a video, a picture, or
    /// a folder of pictures. Null when that can't be done, with the reason in error. A network camera need
    /// not be there yet.
    static std::unique_ptr<FrameSource> open(const QString &source, const Options &options, QString &error);

    /// The demo class from a folder of photographs; from where they usually lie when the name is empty.
    static std::unique_ptr<FrameSource> openDemo(const QString &photoFolder, QString &error);

    /// Repeats the first picture of the other source.
    static std::unique_ptr<FrameSource> still(std::unique_ptr<FrameSource> source);
};

/// How a picture gets the size of a frame.
enum class Fit
{
    Pad,     ///< as large as it fits, in the middle of black
    Crop,    ///< as small as it covers the frame; what stands out is cut off on both sides alike
    Stretch, ///< width and height each by a factor of its own
    Exact    ///< only a picture of this very size
};

/// The picture in this size, red-green-blue; empty when it has another one and has to be exact.
cv::Mat fitted(const cv::Mat &picture, const cv::Size &size, Fit fit);

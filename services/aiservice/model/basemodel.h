#pragma once

#include <opencv2/core.hpp>

#include <QObject>

#include <exception>
#include <memory>
#include <vector>

/**
 * One use of a recogniser on one picture: made by a ModelManager factory, run once with detect(), read
 * from its public fields, and dropped.
 *
 * Threads: everything happens on the caller's thread. Wrappers of one class take turns on their shared
 * recogniser where the class has a lock.
 *
 * Memory: the picture (CV_8UC3, blue-green-red) isn't copied; the caller keeps it alive and unchanged
 * until the results have been read.
 *
 * Failure: detect() is false when the recogniser was never loaded (without a word), when it threw or
 * when its lists have impossible lengths (with a line in the log). Rectangles and points that it
 * delivers are cut to a sane range.
 */
class BaseModel : public QObject
{
    Q_OBJECT

public:
    BaseModel(const cv::Mat &image, bool available);

    virtual bool detect() = 0;
    virtual void emitFinished(bool ret) = 0;

    const cv::Mat *m_image;
    int m_width;      ///< columns of the picture
    int m_height;     ///< rows of the picture
    bool m_available; ///< the recogniser exists
    bool m_finished;  ///< detect() has run

protected:
    /// Runs one call into a recogniser. Whatever it throws ends here, as false and a line in the log:
    /// a foreign library must not end the process.
    template <class Call>
    bool guarded(const char *name, Call call)
    {
        try {
            call();
            return true;
        } catch (const std::exception &error) {
            logThrown(name, error.what());
        } catch (...) {
            logThrown(name, "unknown exception");
        }
        return false;
    }

    /// Whether a list has the length that it must have; logs when it hasn't.
    static bool hasLength(const char *name, size_t length, size_t expected);

    static void bound(std::vector<cv::Rect> &rects);

private:
    static void logThrown(const char *name, const char *what);
};

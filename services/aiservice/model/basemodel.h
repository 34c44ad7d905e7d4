#pragma once

#include "recognisertable.h"

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
 * recogniser where its row says so.
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
    BaseModel(const cv::Mat &image, Recogniser recogniser, bool available);

    /// The steps below, in their order, as far as they succeed.
    virtual bool detect();
    /// Would tell who waits for the result; nobody does. Kept on purpose, as are the signals of subclasses.
    virtual void emitFinished(bool ret);

    const cv::Mat *m_image;
    int m_width;      ///< columns of the picture
    int m_height;     ///< rows of the picture
    bool m_available; ///< the recogniser exists
    bool m_finished;  ///< detect() has run

protected:
    /// Makes the input ready. False if there is nothing to look at, which is a success.
    virtual bool prepare();
    /// Calls the recogniser, in turn with the others. May throw, which ends in a line of the log: a foreign
    /// library must not end the process.
    virtual void call() = 0;
    /// Whether the lists that came have the lengths that they must have. Still in turn.
    virtual bool fits() const;
    /// Empties the lists of a call that failed.
    virtual void discard();
    /// Makes the results out of what the recogniser delivered.
    virtual void conclude();
    /// What the line about the time begins with, before the row's text.
    virtual QString subject() const;

    /// Whether a list has the length that it must have; logs when it hasn't.
    bool hasLength(size_t length, size_t expected) const;
    /// Runs something that may throw. False, and a line in the log, if it does.
    template <class Step>
    bool guarded(Step step) const
    {
        try {
            step();
            return true;
        } catch (const std::exception &error) {
            logThrown(error.what());
        } catch (...) {
            logThrown("unknown exception");
        }
        return false;
    }

    static void bound(std::vector<cv::Rect> &rects);

private:
    void logThrown(const char *what) const;

    const RecogniserRow &m_row;
};

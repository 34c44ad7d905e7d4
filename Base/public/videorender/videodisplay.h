#pragma once

#include "colourconversion.h"
#include "framemailbox.h"
#include "geometryengine.h"

#include <QWidget>

#include <atomic>
#include <functional>
#include <memory>

/**
 * What VideoRender and VideoPainter have in common: they show the newest of the frames that they are given,
 * and drop those for which there was no time.
 *
 * Threads: frames may be given on any thread; the giver copies the bytes at most and never waits for the
 * drawing. Everything else belongs to the thread of the widgets. Nobody may give frames any more while the
 * widget is being deleted.
 *
 * A hidden widget keeps the newest frame and shows it when it is seen again.
 */
class VideoDisplay
{
public:
    virtual ~VideoDisplay();

    /// A VideoRender where OpenGL can be had, else a VideoPainter. This is found out before the widget is
    /// made: a QOpenGLWidget without a context leaves its whole window empty.
    static VideoDisplay *create(QWidget *parent);
    /// Tries a context on a surface of its own.
    static bool hasOpenGL();

    virtual QWidget *widget() = 0;

    /// Shows a frame without copying it. A null frame is ignored.
    void showFrame(const VideoFrame &frame);
    /// Copies the bytes of a block, whose data must be valid until the call returns. A block that is null, of
    /// sides that are none, or too small for its format is refused with a line in the log, once for each
    /// reason.
    void showBlock(const ImageBlock &block);
    /// Copies bytes. @param stride bytes from one row to the next, 0 for rows without padding
    void showBytes(const char *bytes, qint64 size, int width, int height, int stride, RenderImgFormat format,
                   int displayModel = DisplayFit);
    /// Forgets the frame that is shown: only the background is left.
    void clear();

    /// The frame that is shown, null before the first.
    const VideoFrame &frame() const { return m_frame; }
    std::uint64_t receivedFrames() const { return m_mailbox.received(); }
    std::uint64_t shownFrames() const { return m_shown.load(std::memory_order_relaxed); }

    /// By the displayModel of each frame, or as it is told here.
    void followDisplayModel();
    void setMode(GeometryEngine::Mode mode);
    void setMirrored(bool mirrored);
    void setQuarterTurns(int turns);
    void zoomAt(const QPointF &point, double factor);
    void moveBy(const QPointF &distance);
    void resetZoom();
    const GeometryEngine &geometryEngine() const { return m_geometry; }

    void setColours(const ColourSettings &colours);
    const ColourSettings &colours() const { return m_colours; }

    /// Called on the widgets' thread after geometryEngine() has changed: for what is drawn over the picture.
    void setGeometryWatcher(std::function<void()> watcher) { m_geometryWatcher = std::move(watcher); }

protected:
    /// Fetches the frame that waits. True when the picture has to be made anew: there is a new frame, or none
    /// any more, or it has other colours.
    bool fetchFrame();
    void updateView();

private:
    void changeGeometry(const std::function<void(GeometryEngine &)> &change);
    void refuse(const QString &reason);

    FrameMailbox m_mailbox;
    FramePool m_pool;
    VideoFrame m_frame;
    std::atomic<std::uint64_t> m_shown{0};
    std::mutex m_refusalMutex;
    QString m_refusal; ///< the reason told last
    GeometryEngine m_geometry;
    ColourSettings m_colours;
    bool m_followsModel = true;
    bool m_isStale = false; ///< the picture, for another reason than a new frame
    std::function<void()> m_geometryWatcher;
};

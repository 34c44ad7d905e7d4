#pragma once

#include <QPoint>
#include <QPointF>
#include <QSize>
#include <QSizeF>
#include <QTransform>

/**
 * Where a frame lies in its view, and the way back from a point of the view to a pixel of the frame.
 *
 * Frame coordinates are pixels with (0, 0) at the outer corner of the first one; view coordinates are those
 * of the widget, independent of the density of the screen. The frame is first turned, then mirrored as it is
 * seen, then scaled and put into the middle of the view, then zoomed and moved.
 *
 * Threads: used by one thread at a time.
 */
class GeometryEngine
{
public:
    enum Mode
    {
        Fit,     ///< the whole frame, with bars beside it
        Fill,    ///< the whole view, with the frame's edges cut off
        OneToOne ///< one pixel of the frame is one pixel of the screen
    };

    static constexpr double smallestZoom = 1;
    static constexpr double largestZoom = 32;

    /// @param density pixels of the screen in one unit of the widget
    void setView(const QSizeF &size, double density);
    void setFrameSize(const QSize &size);
    void setMode(Mode mode);
    void setMirrored(bool mirrored);
    /// Clockwise turns by 90 degrees; any number.
    void setQuarterTurns(int turns);

    /// Enlarges by a factor, so that the point of the view keeps its place. The zoom stays within its limits.
    void zoomAt(const QPointF &viewPoint, double factor);
    /// Moves the frame by a distance in the view, no further than to its edge.
    void moveBy(const QPointF &distance);
    /// No zoom, and the frame in the middle.
    void resetZoom();

    QSize frameSize() const { return m_frameSize; }
    QSizeF viewSize() const { return m_viewSize; }
    Mode mode() const { return m_mode; }
    bool isMirrored() const { return m_mirrored; }
    int quarterTurns() const { return m_turns; }
    double zoom() const { return m_zoom; }

    /// From pixels of the frame to the view; the identity while frame or view is empty.
    QTransform frameToView() const;
    QPointF toView(const QPointF &framePoint) const { return frameToView().map(framePoint); }
    /// From the view to the frame; may lie outside of it.
    QPointF toFrame(const QPointF &viewPoint) const { return frameToView().inverted().map(viewPoint); }
    /// The pixel under a point of the view. False outside of the frame.
    bool pixelAt(const QPointF &viewPoint, QPoint *pixel) const;

    /// From the unit square, with (0, 0) at the frame's first pixel, to the clip coordinates of OpenGL.
    QTransform unitToClip() const;
    /// Whether each pixel of the frame is exactly one pixel of the screen.
    bool isPixelExact() const;

private:
    bool isEmpty() const { return m_frameSize.isEmpty() || m_viewSize.isEmpty(); }
    QSizeF turnedSize() const;
    double scale() const;
    QPointF origin() const;
    void keepInView();

    QSizeF m_viewSize;
    double m_density = 1;
    QSize m_frameSize;
    Mode m_mode = Fit;
    bool m_mirrored = false;
    int m_turns = 0;
    double m_zoom = 1;
    QPointF m_shift; ///< of the frame's middle from the view's middle
};

#include "videodisplay.h"

#include "videopainter.h"
#include "videorender.h"

#include <QDebug>
#include <QMetaObject>
#include <QOffscreenSurface>
#include <QOpenGLContext>

#include <cstring>
#include <utility>

VideoDisplay::~VideoDisplay() = default;

bool VideoDisplay::hasOpenGL()
{
    QOffscreenSurface surface;
    surface.setFormat(VideoRender::surfaceFormat());
    surface.create();
    QOpenGLContext context;
    context.setFormat(VideoRender::surfaceFormat());
    if (!surface.isValid() || !context.create() || !context.makeCurrent(&surface))
        return false;
    return context.format().version() >= qMakePair(2, context.isOpenGLES() ? 0 : 1);
}

VideoDisplay *VideoDisplay::create(QWidget *parent)
{
    if (hasOpenGL())
        return new VideoRender(parent);
    qInfo() << "no OpenGL: the video is drawn by the processor";
    return new VideoPainter(parent);
}

void VideoDisplay::showFrame(const VideoFrame &frame)
{
    if (frame.isNull() || !m_mailbox.put(frame))
        return;
    QMetaObject::invokeMethod(
        widget(), [this] { widget()->update(); }, Qt::QueuedConnection);
}

void VideoDisplay::showBlock(const ImageBlock &block)
{
    showBytes(block.data, block.size, block.width, block.height, 0, RenderImgFormat(block.format),
              block.displayModel);
}

void VideoDisplay::showBytes(const char *bytes, qint64 size, int width, int height, int stride,
                             RenderImgFormat format, int displayModel)
{
    const QString misfit = bytes ? VideoFrame::misfit(size, width, height, stride, format)
                                 : QStringLiteral("no bytes of %1 x %2").arg(width).arg(height);
    if (!bytes || !misfit.isEmpty()) {
        refuse(misfit);
        return;
    }
    const auto buffer = m_pool.take(std::size_t(size));
    std::memcpy(buffer->data(), bytes, std::size_t(size));
    QString error;
    showFrame(VideoFrame::adopt(buffer, width, height, stride, format, displayModel, &error));
}

void VideoDisplay::refuse(const QString &reason)
{
    {
        const std::lock_guard<std::mutex> guard(m_refusalMutex);
        if (reason == m_refusal)
            return;
        m_refusal = reason;
    }
    qWarning().noquote() << "frame refused:" << reason;
}

void VideoDisplay::clear()
{
    m_mailbox.take();
    m_frame = {};
    m_isStale = true;
    updateView();
    widget()->update();
}

bool VideoDisplay::fetchFrame()
{
    VideoFrame frame = m_mailbox.take();
    const bool wasStale = std::exchange(m_isStale, false);
    if (frame.isNull())
        return wasStale;
    m_frame = std::move(frame);
    m_shown.fetch_add(1, std::memory_order_relaxed);
    return true;
}

void VideoDisplay::updateView()
{
    const auto before = m_geometry.frameToView();
    m_geometry.setView(widget()->size(), widget()->devicePixelRatioF());
    m_geometry.setFrameSize(m_frame.size());
    if (m_followsModel)
        m_geometry.setMode(m_frame.displayModel() == DisplayFill ? GeometryEngine::Fill
                                                                 : GeometryEngine::Fit);
    if (m_geometryWatcher && m_geometry.frameToView() != before)
        m_geometryWatcher();
}

void VideoDisplay::changeGeometry(const std::function<void(GeometryEngine &)> &change)
{
    change(m_geometry);
    widget()->update();
    if (m_geometryWatcher)
        m_geometryWatcher();
}

void VideoDisplay::followDisplayModel()
{
    m_followsModel = true;
    updateView();
    widget()->update();
}

void VideoDisplay::setMode(GeometryEngine::Mode mode)
{
    m_followsModel = false;
    changeGeometry([mode](GeometryEngine &geometry) { geometry.setMode(mode); });
}

void VideoDisplay::setMirrored(bool mirrored)
{
    changeGeometry([mirrored](GeometryEngine &geometry) { geometry.setMirrored(mirrored); });
}

void VideoDisplay::setQuarterTurns(int turns)
{
    changeGeometry([turns](GeometryEngine &geometry) { geometry.setQuarterTurns(turns); });
}

void VideoDisplay::zoomAt(const QPointF &point, double factor)
{
    changeGeometry([&](GeometryEngine &geometry) { geometry.zoomAt(point, factor); });
}

void VideoDisplay::moveBy(const QPointF &distance)
{
    changeGeometry([&](GeometryEngine &geometry) { geometry.moveBy(distance); });
}

void VideoDisplay::resetZoom()
{
    changeGeometry([](GeometryEngine &geometry) { geometry.resetZoom(); });
}

void VideoDisplay::setColours(const ColourSettings &colours)
{
    m_colours = colours;
    m_isStale = true;
    widget()->update();
}

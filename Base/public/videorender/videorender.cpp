#include "videorender.h"

#include <QOpenGLContext>

VideoRender::VideoRender(QWidget *parent) : QOpenGLWidget(parent)
{
    setFormat(surfaceFormat());
}

VideoRender::~VideoRender()
{
    if (context())
        disconnect(context(), nullptr, this, nullptr);
    releaseLayer();
}

QSurfaceFormat VideoRender::surfaceFormat()
{
    QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    format.setVersion(2, format.renderableType() == QSurfaceFormat::OpenGLES ? 0 : 1);
    format.setProfile(QSurfaceFormat::NoProfile);
    return format;
}

void VideoRender::initializeGL()
{
    // The widget gets a new context when it comes into another window.
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &VideoRender::releaseLayer,
            Qt::UniqueConnection);
}

void VideoRender::releaseLayer()
{
    makeCurrent();
    m_layer.reset();
    m_layerFormat = 0;
    doneCurrent();
}

void VideoRender::resizeGL(int, int)
{
    updateView();
}

void VideoRender::paintGL()
{
    const bool isNew = fetchFrame();
    updateView();
    const QColor &background = colours().background;
    auto *const functions = context()->functions();
    functions->glClearColor(float(background.redF()), float(background.greenF()), float(background.blueF()),
                            1);
    functions->glClear(GL_COLOR_BUFFER_BIT);
    if (!frame().isNull())
        drawFrame(isNew);
}

void VideoRender::drawFrame(bool isNew)
{
    bool needsUpload = isNew;
    if (m_layerFormat != frame().format()) {
        m_layer = RenderLayerBase::create(frame().format());
        m_layerFormat = frame().format();
        needsUpload = true;
    }
    if (!m_layer)
        return;
    if (needsUpload)
        m_layer->upload(frame());
    m_layer->draw(geometryEngine(), colours());
}

#pragma once

#include "renderlayerbase.h"
#include "videodisplay.h"

#include <QOpenGLWidget>
#include <QSurfaceFormat>

/**
 * Shows frames with OpenGL. Which layer draws them is chosen by their format, and again when it changes; when
 * the context is lost, textures and shaders are made anew for the next one.
 *
 * Needs an OpenGL context: VideoDisplay::create() knows whether there is one.
 */
class VideoRender : public QOpenGLWidget, public VideoDisplay
{
    Q_OBJECT

public:
    explicit VideoRender(QWidget *parent = nullptr);
    ~VideoRender() override;

    /// What the widget asks for: version 2.1 or ES 2, with the old texture formats.
    static QSurfaceFormat surfaceFormat();

    QWidget *widget() override { return this; }

public slots:
    /// As in VideoDisplay. Connect directly: a queued block's bytes may be gone.
    void showImageBlock(const ImageBlock &block) { showBlock(block); }

protected:
    void initializeGL() override;
    void paintGL() override;
    void resizeGL(int width, int height) override;

private:
    void releaseLayer();
    void drawFrame(bool isNew);

    std::unique_ptr<RenderLayerBase> m_layer;
    int m_layerFormat = 0;
};

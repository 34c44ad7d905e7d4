#pragma once

#include "videodisplay.h"

/// Shows frames without OpenGL: the processor converts and scales them. For machines and remote desktops that
/// have none; it takes several times as long as VideoRender with a graphics card.
class VideoPainter : public QWidget, public VideoDisplay
{
    Q_OBJECT

public:
    explicit VideoPainter(QWidget *parent = nullptr);

    QWidget *widget() override { return this; }

public slots:
    /// As in VideoDisplay. Connect directly: a queued block's bytes may be gone.
    void showImageBlock(const ImageBlock &block) { showBlock(block); }

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QImage m_image;
};

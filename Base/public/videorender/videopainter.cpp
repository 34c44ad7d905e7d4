#include "videopainter.h"

#include <QPainter>

VideoPainter::VideoPainter(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void VideoPainter::resizeEvent(QResizeEvent *)
{
    updateView();
}

void VideoPainter::paintEvent(QPaintEvent *)
{
    if (fetchFrame())
        m_image = toImage(frame(), colours());
    updateView();
    QPainter painter(this);
    painter.fillRect(rect(), colours().background);
    painter.setRenderHint(QPainter::SmoothPixmapTransform, !geometryEngine().isPixelExact());
    painter.setTransform(geometryEngine().frameToView(), true);
    painter.drawImage(QPointF(0, 0), m_image);
}

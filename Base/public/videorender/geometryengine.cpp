#include "geometryengine.h"

#include <QRect>

#include <algorithm>
#include <cmath>

void GeometryEngine::setView(const QSizeF &size, double density)
{
    m_viewSize = size;
    m_density = density > 0 ? density : 1;
    keepInView();
}

void GeometryEngine::setFrameSize(const QSize &size)
{
    if (size == m_frameSize)
        return;
    m_frameSize = size;
    keepInView();
}

void GeometryEngine::setMode(Mode mode)
{
    if (mode == m_mode)
        return;
    m_mode = mode;
    keepInView();
}

void GeometryEngine::setMirrored(bool mirrored)
{
    m_mirrored = mirrored;
}

void GeometryEngine::setQuarterTurns(int turns)
{
    m_turns = (turns % 4 + 4) % 4;
    keepInView();
}

void GeometryEngine::zoomAt(const QPointF &viewPoint, double factor)
{
    if (isEmpty() || !(factor > 0))
        return;
    const double zoom = std::clamp(m_zoom * factor, smallestZoom, largestZoom);
    const QPointF middle(m_viewSize.width() / 2, m_viewSize.height() / 2);
    const QPointF fromMiddle = viewPoint - middle - m_shift;
    m_shift += fromMiddle * (1 - zoom / m_zoom);
    m_zoom = zoom;
    keepInView();
}

void GeometryEngine::moveBy(const QPointF &distance)
{
    m_shift += distance;
    keepInView();
}

void GeometryEngine::resetZoom()
{
    m_zoom = 1;
    m_shift = {};
}

QSizeF GeometryEngine::turnedSize() const
{
    return m_turns % 2 ? QSizeF(m_frameSize).transposed() : QSizeF(m_frameSize);
}

double GeometryEngine::scale() const
{
    const QSizeF frame = turnedSize();
    const double across = m_viewSize.width() / frame.width();
    const double down = m_viewSize.height() / frame.height();
    switch (m_mode) {
    case Fill:
        return std::max(across, down) * m_zoom;
    case OneToOne:
        return m_zoom / m_density;
    case Fit:
        break;
    }
    return std::min(across, down) * m_zoom;
}

QPointF GeometryEngine::origin() const
{
    const QSizeF size = turnedSize() * scale();
    const QPointF corner =
        QPointF(m_viewSize.width() - size.width(), m_viewSize.height() - size.height()) / 2;
    // On whole pixels of the screen, or a frame shown one to one would be blurred.
    const auto whole = [this](double value) { return std::round(value * m_density) / m_density; };
    return {whole(corner.x() + m_shift.x()), whole(corner.y() + m_shift.y())};
}

void GeometryEngine::keepInView()
{
    if (isEmpty())
        return;
    // A side that fits into the view stays where all of it is seen; a larger one leaves no bar.
    const QSizeF size = turnedSize() * scale();
    const double across = std::max(0.0, (size.width() - m_viewSize.width()) / 2);
    const double down = std::max(0.0, (size.height() - m_viewSize.height()) / 2);
    m_shift = {std::clamp(m_shift.x(), -across, across), std::clamp(m_shift.y(), -down, down)};
}

QTransform GeometryEngine::frameToView() const
{
    if (isEmpty())
        return {};
    const double width = m_frameSize.width();
    const double height = m_frameSize.height();
    QTransform turn;
    switch (m_turns) {
    case 1:
        turn = QTransform(0, 1, -1, 0, height, 0);
        break;
    case 2:
        turn = QTransform(-1, 0, 0, -1, width, height);
        break;
    case 3:
        turn = QTransform(0, -1, 1, 0, 0, width);
        break;
    default:
        break;
    }
    const QTransform mirror = m_mirrored ? QTransform(-1, 0, 0, 1, turnedSize().width(), 0) : QTransform();
    const QPointF corner = origin();
    return turn * mirror * QTransform::fromScale(scale(), scale()) *
           QTransform::fromTranslate(corner.x(), corner.y());
}

bool GeometryEngine::pixelAt(const QPointF &viewPoint, QPoint *pixel) const
{
    if (isEmpty())
        return false;
    const QPointF point = toFrame(viewPoint);
    *pixel = {int(std::floor(point.x())), int(std::floor(point.y()))};
    return QRect({0, 0}, m_frameSize).contains(*pixel);
}

QTransform GeometryEngine::unitToClip() const
{
    const QTransform viewToClip(2 / m_viewSize.width(), 0, 0, -2 / m_viewSize.height(), -1, 1);
    return QTransform::fromScale(m_frameSize.width(), m_frameSize.height()) * frameToView() * viewToClip;
}

bool GeometryEngine::isPixelExact() const
{
    return !isEmpty() && qFuzzyCompare(scale() * m_density, 1.0);
}

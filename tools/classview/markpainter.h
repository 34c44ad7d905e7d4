#pragma once

#include "classmodel.h"
#include "geometryengine.h"

#include <QPainter>

#include <functional>
#include <optional>

/// The name of a student with what is told of him beside it, and where it is written: at his face where that
/// is known, else at his body.
struct NameLabel
{
    Mark anchor;
    std::optional<Mark> hand;
    std::optional<Mark> smile;
    std::optional<Mark> attention;

    /// When the oldest of what it tells was told. A face has its age at its own place.
    std::optional<qint64> told() const;
};

/// Leaves out faces from whose place the student has gone, as a newer body tells.
QVector<Mark> withoutStaleFaces(const QVector<Mark> &marks);
QVector<NameLabel> labelsOf(const QVector<Mark> &marks);

void paintNotice(QPainter &painter, const QRect &area, const QString &title, const QString &text);
void paintBanner(QPainter &painter, const QRect &area, const QString &text);

/// Draws marks of the frame into a view.
class MarkPainter
{
public:
    using Opacity = std::function<double(const Mark &)>;

    /// @param now on the clock of the marks
    MarkPainter(QPainter &painter, const GeometryEngine &geometry, const QRect &area, qint64 now,
                Opacity opacity);

    void paintShape(const Mark &mark);
    /// Returns where the label is.
    QRect paintLabel(const NameLabel &label);

private:
    /// Empty for what is as new as can be.
    QString ageOf(qint64 time) const;
    double opacityOf(const std::optional<Mark> &mark) const { return mark ? m_opacity(*mark) : 0; }
    void paintAge(const QRectF &box, const QString &age);
    QRectF inView(const QRect &place) const;
    void paintCorners(const QRectF &box, const QColor &colour, double width);
    void paintTrail(const QPolygon &points, const QColor &colour);

    QPainter &m_painter;
    const QTransform m_toView;
    const QRect m_area;
    const qint64 m_now;
    const Opacity m_opacity;
};

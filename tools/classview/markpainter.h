#pragma once

#include "classmodel.h"
#include "geometryengine.h"

#include <QPainter>

/// The name of a student, and where it is written: at his face where that is known, else at his body.
struct NameLabel
{
    Mark anchor;
    bool handUp = false;
    bool smiles = false;
    int attention = -1; ///< the pose class, -1 when it is not known
    qint64 newest = 0;  ///< when anything was last told of him
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
    MarkPainter(QPainter &painter, const GeometryEngine &geometry, const QRect &area);

    void paintShape(const Mark &mark, double opacity);
    /// Returns where the label is.
    QRect paintLabel(const NameLabel &label, qint64 now, double opacity);

private:
    QRectF inView(const QRect &place) const;
    void paintCorners(const QRectF &box, const QColor &colour, double width);
    void paintTrail(const QPolygon &points, const QColor &colour);

    QPainter &m_painter;
    const QTransform m_toView;
    const QRect m_area;
};

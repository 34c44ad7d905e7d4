#pragma once

#include "classmodel.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

/// The last minutes at a glance: the attention of the class as a curve, whose hand was up when, and whether
/// there was video. Time goes to the right and ends now.
class TimelineStrip : public QWidget
{
    Q_OBJECT

public:
    TimelineStrip(const ClassModel *model, const QElapsedTimer *clock);

    QSize sizeHint() const override { return {600, 150}; }
    QSize minimumSizeHint() const override { return {300, 90}; }

protected:
    void paintEvent(QPaintEvent *event) override;
    bool event(QEvent *event) override;

private:
    double positionOf(qint64 time, qint64 now) const;
    void paintAxis(QPainter &painter, qint64 now) const;
    void paintAttention(QPainter &painter, const QRectF &area, qint64 now) const;
    void paintHands(QPainter &painter, const QRectF &area, qint64 now) const;
    void paintVideo(QPainter &painter, const QRectF &area, qint64 now) const;

    const ClassModel *const m_model;
    const QElapsedTimer *const m_clock;
    QTimer m_timer;
};

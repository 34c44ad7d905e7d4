#pragma once

#include "classmodel.h"
#include "videodisplay.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

#include <bitset>

/**
 * Lies over the picture, draws what the service has told, and takes the mouse: a click on a face or a
 * student, the wheel to zoom, dragging or the arrow keys to move, a double click to see everything again.
 */
class Overlay : public QWidget
{
    Q_OBJECT

public:
    /// @param clock that of the model's times
    Overlay(VideoDisplay *display, const ClassModel *model, const QElapsedTimer *clock);

    void setShown(MarkKind kind, bool shown);
    /// Text in the middle of an empty picture.
    void setNotice(const QString &title, const QString &text);
    /// The video stands still: a veil says how old the picture is. 0 for a living one.
    void setPictureAge(qint64 milliseconds);

    /// Something that was drawn, for those who check a screenshot.
    struct Drawn
    {
        MarkKind kind;
        QString student;
        QRect place; ///< pixels of the frame
        QRect label; ///< pixels of this widget; empty for a mark without a name
        double opacity = 1;
    };
    const QVector<Drawn> &drawn() const { return m_drawn; }

signals:
    /// A face that nobody knows, by its number in ClassModel::faces().
    void unknownFaceClicked(int face);
    void studentClicked(const QString &name, const QPoint &globalPosition);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QVector<Mark> shownMarks() const;
    /// What is known of a student, in words.
    static QString tipOf(const Mark &mark, const QVector<Mark> &marks);
    /// The smallest mark under a point; null when there is none.
    const Mark *markAt(const QVector<Mark> &marks, const QPointF &point) const;

    VideoDisplay *const m_display;
    const ClassModel *const m_model;
    const QElapsedTimer *const m_clock;
    std::bitset<markKinds> m_kinds;
    QTimer m_fading;
    QString m_noticeTitle;
    QString m_noticeText;
    qint64 m_pictureAge = 0;
    QVector<Drawn> m_drawn;
    QPoint m_pressed;
    QPoint m_dragged;
    bool m_isDragging = false;
};

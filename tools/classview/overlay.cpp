#include "overlay.h"

#include "markpainter.h"
#include "theme.h"
#include "words.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

namespace {

constexpr int fadingInterval = 200; // milliseconds
constexpr int keyStep = 40;         ///< an arrow key moves the picture so far

} // namespace

Overlay::Overlay(VideoDisplay *display, const ClassModel *model, const QElapsedTimer *clock)
    : QWidget(display->widget()), m_display(display), m_model(model), m_clock(clock)
{
    m_kinds.set();
    setMouseTracking(true);
    setFocusPolicy(Qt::TabFocus);
    setAttribute(Qt::WA_TranslucentBackground);
    display->widget()->installEventFilter(this);
    display->setGeometryWatcher([this] { update(); });
    connect(model, &ClassModel::marksChanged, this, [this] { update(); });
    connect(&m_fading, &QTimer::timeout, this, [this] {
        if (!m_drawn.isEmpty())
            update();
    });
    m_fading.start(fadingInterval);
    setAccessibleName(tr("Camera picture with what the service has told"));
}

void Overlay::setShown(MarkKind kind, bool shown)
{
    m_kinds.set(std::size_t(kind), shown);
    update();
}

void Overlay::setNotice(const QString &title, const QString &text)
{
    if (title == m_noticeTitle && text == m_noticeText)
        return;
    m_noticeTitle = title;
    m_noticeText = text;
    update();
}

void Overlay::setPictureAge(qint64 milliseconds)
{
    if (m_pictureAge / 1000 == milliseconds / 1000)
        return;
    m_pictureAge = milliseconds;
    update();
}

bool Overlay::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_display->widget() && event->type() == QEvent::Resize)
        resize(m_display->widget()->size());
    return QWidget::eventFilter(watched, event);
}

QVector<Mark> Overlay::shownMarks() const
{
    QVector<Mark> shown;
    for (const Mark &mark : m_model->marks(m_clock->elapsed()))
        if (m_kinds.test(std::size_t(mark.kind)))
            shown.append(mark);
    return withoutStaleFaces(shown);
}

void Overlay::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    m_drawn.clear();
    if (!m_noticeTitle.isEmpty()) {
        paintNotice(painter, rect(), m_noticeTitle, m_noticeText);
        return;
    }
    const qint64 now = m_clock->elapsed();
    const auto marks = shownMarks();
    const auto opacity = [this, now](const Mark &mark) { return m_model->opacity(mark, now); };
    MarkPainter pen(painter, m_display->geometryEngine(), rect(), now, opacity);
    for (const Mark &mark : marks)
        pen.paintShape(mark);
    for (const Mark &mark : marks)
        m_drawn.append({mark.kind, mark.student, mark.place, {}, opacity(mark)});
    for (const auto &label : labelsOf(marks)) {
        const QRect place = pen.paintLabel(label);
        m_drawn.append({MarkKind::Face, label.anchor.student, label.anchor.place, place, 1});
    }
    if (hasFocus()) { // only the keyboard gives it
        painter.setPen(QPen(palette().color(QPalette::Highlight), 3));
        painter.setBrush(Qt::NoBrush);
        painter.drawRect(rect().adjusted(1, 1, -2, -2));
    }
    if (m_pictureAge > 0)
        paintBanner(painter, rect(), tr("The picture has stood still for %1").arg(words::age(m_pictureAge)));
}

QString Overlay::tipOf(const Mark &mark, const QVector<Mark> &marks)
{
    if (mark.student.isEmpty())
        return tr("Nobody known. Click to give this face a name.");
    QStringList facts;
    for (const NameLabel &label : labelsOf(marks)) {
        if (label.anchor.student != mark.student)
            continue;
        if (label.hand)
            facts.append(tr("hand up"));
        if (label.smile)
            facts.append(tr("smiles"));
        if (label.attention)
            facts.append(words::attention(label.attention->state));
    }
    const QString name =
        facts.isEmpty()
            ? mark.student
            : tr("%1 (%2)", "a name and what is known").arg(mark.student, facts.join(QStringLiteral(", ")));
    return tr("%1: click for more").arg(name);
}

const Mark *Overlay::markAt(const QVector<Mark> &marks, const QPointF &point) const
{
    const QPointF inFrame = m_display->geometryEngine().toFrame(point);
    const Mark *found = nullptr;
    for (const Mark &mark : marks) {
        const bool isHit = mark.place.contains(inFrame.toPoint());
        // The smallest one: a face lies within a body.
        if (isHit && (!found || mark.place.width() * mark.place.height() <
                                    found->place.width() * found->place.height()))
            found = &mark;
    }
    return found;
}

void Overlay::mousePressEvent(QMouseEvent *event)
{
    m_pressed = m_dragged = event->pos();
    m_isDragging = false;
}

void Overlay::mouseMoveEvent(QMouseEvent *event)
{
    if (event->buttons() & Qt::LeftButton) {
        if ((event->pos() - m_pressed).manhattanLength() >= QApplication::startDragDistance())
            m_isDragging = true;
        if (m_isDragging)
            m_display->moveBy(event->pos() - m_dragged);
        m_dragged = event->pos();
        return;
    }
    const auto marks = shownMarks();
    const Mark *const mark = markAt(marks, event->localPos());
    setCursor(mark ? Qt::PointingHandCursor : Qt::ArrowCursor);
    setToolTip(mark ? tipOf(*mark, marks) : QString());
}

void Overlay::mouseReleaseEvent(QMouseEvent *event)
{
    if (m_isDragging)
        return;
    const auto marks = shownMarks();
    const Mark *const mark = markAt(marks, event->localPos());
    if (!mark)
        return;
    if (!mark->student.isEmpty()) {
        emit studentClicked(mark->student, event->globalPos());
        return;
    }
    const auto &faces = m_model->faces();
    for (int i = 0; i < faces.size(); ++i)
        if (faces[i].place == mark->place)
            emit unknownFaceClicked(i);
}

void Overlay::mouseDoubleClickEvent(QMouseEvent *)
{
    m_display->resetZoom();
}

void Overlay::wheelEvent(QWheelEvent *event)
{
    m_display->zoomAt(event->position(), std::pow(1.0015, event->angleDelta().y()));
}

void Overlay::keyPressEvent(QKeyEvent *event)
{
    const QMap<int, QPoint> steps{{Qt::Key_Left, {keyStep, 0}},
                                  {Qt::Key_Right, {-keyStep, 0}},
                                  {Qt::Key_Up, {0, keyStep}},
                                  {Qt::Key_Down, {0, -keyStep}}};
    if (steps.contains(event->key()))
        m_display->moveBy(steps[event->key()]);
    else
        QWidget::keyPressEvent(event);
}

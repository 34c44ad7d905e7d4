#include "timelinestrip.h"

#include "theme.h"

#include <QHelpEvent>
#include <QPainter>
#include <QPainterPath>
#include <QToolTip>

#include <algorithm>

namespace {

constexpr int gutter = 96; ///< for the names of the rows
constexpr int margin = 8;
constexpr int axisHeight = 16;
constexpr int narrow = 480; ///< here the minutes don't fit beside each other
constexpr qint64 shownTime = 5 * 60 * 1000;
/// The mean of a class lies between these: the lowest and the highest weight of a pose.
constexpr double lowestAttention = -0.6;
constexpr double highestAttention = 1.45;
/// Moments further apart belong to different runs of the analysis.
constexpr qint64 longestGap = 20000;
constexpr int mostNames = 6;

} // namespace

TimelineStrip::TimelineStrip(const ClassModel *model, const QElapsedTimer *clock)
    : m_model(model), m_clock(clock)
{
    setAccessibleName(tr("The last minutes"));
    connect(model, &ClassModel::lessonChanged, this, [this] { update(); });
    connect(&m_timer, &QTimer::timeout, this, [this] { update(); });
    m_timer.start(1000);
}

double TimelineStrip::positionOf(qint64 time, qint64 now) const
{
    const double length = width() - gutter - margin;
    return gutter + length * (1 - double(now - time) / shownTime);
}

void TimelineStrip::paintAxis(QPainter &painter, qint64 now) const
{
    QColor faint = palette().color(QPalette::Text);
    faint.setAlphaF(0.15);
    for (int minute = 0; minute * 60000 <= shownTime; ++minute) {
        const double x = positionOf(now - minute * 60000, now);
        painter.setPen(faint);
        painter.drawLine(QPointF(x, margin), QPointF(x, height() - axisHeight));
        if (const bool isCrowded = width() < narrow; isCrowded && minute % 5 != 0)
            continue;
        painter.setPen(palette().color(QPalette::PlaceholderText));
        const QString text = minute == 0 ? tr("now") : tr("−%1 min").arg(minute);
        const QRectF place(x - 40, height() - axisHeight, minute == 0 ? 40 : 80, axisHeight);
        painter.drawText(place, Qt::AlignVCenter | (minute == 0 ? Qt::AlignRight : Qt::AlignHCenter), text);
    }
}

void TimelineStrip::paintAttention(QPainter &painter, const QRectF &area, qint64 now) const
{
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(QRectF(margin, area.top(), gutter - margin, area.height()), Qt::AlignVCenter,
                     tr("Attention"));
    QPainterPath path;
    qint64 last = -1;
    for (const LessonMoment &moment : m_model->lesson()) {
        if (!moment.attention || now - moment.time > shownTime)
            continue;
        const double height = (*moment.attention - lowestAttention) / (highestAttention - lowestAttention);
        const QPointF point(positionOf(moment.time, now),
                            area.bottom() - area.height() * std::clamp(height, 0.0, 1.0));
        if (last < 0 || moment.time - last > longestGap)
            path.moveTo(point);
        else
            path.lineTo(point);
        last = moment.time;
        painter.setPen(Qt::NoPen);
        painter.setBrush(theme::mark(MarkKind::Attention));
        painter.drawEllipse(point, 2, 2);
    }
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(theme::mark(MarkKind::Attention), 2));
    painter.drawPath(path);
}

void TimelineStrip::paintHands(QPainter &painter, const QRectF &area, qint64 now) const
{
    // Who raised a hand last comes first; each has a row.
    QStringList names;
    const auto &lesson = m_model->lesson();
    for (auto moment = lesson.crbegin(); moment != lesson.crend() && now - moment->time <= shownTime;
         ++moment)
        for (const auto &name : moment->hands)
            if (!names.contains(name) && names.size() < mostNames)
                names.append(name);
    std::sort(names.begin(), names.end());
    if (names.isEmpty()) {
        painter.setPen(palette().color(QPalette::Text));
        painter.drawText(QRectF(margin, area.top(), gutter - margin, area.height()), Qt::AlignVCenter,
                         tr("Hands"));
        return;
    }
    const double row = std::min(area.height() / names.size(), 16.0);
    QFont small = painter.font();
    small.setPixelSize(std::max(8, std::min(12, int(row) - 2)));
    painter.setFont(small);
    for (int i = 0; i < names.size(); ++i) {
        const QRectF line(0, area.top() + i * row, width(), row);
        painter.setPen(palette().color(QPalette::Text));
        const QString shown = painter.fontMetrics().elidedText(names[i], Qt::ElideRight, gutter - 2 * margin);
        painter.drawText(line.adjusted(margin, 0, 0, 0), Qt::AlignVCenter | Qt::AlignLeft, shown);
        qint64 upSince = -1, lastTime = -1;
        const auto paintStretch = [&](qint64 until) {
            const double from = std::max(positionOf(upSince, now), double(gutter));
            painter.fillRect(
                QRectF(from, line.top() + 2, std::max(3.0, positionOf(until, now) - from), row - 4),
                theme::mark(MarkKind::Hand));
        };
        for (const LessonMoment &moment : lesson) {
            if (!moment.tellsHands || now - moment.time > shownTime)
                continue;
            const bool isUp = moment.hands.contains(names[i]);
            if (upSince >= 0 && (!isUp || moment.time - lastTime > longestGap)) {
                paintStretch(isUp ? lastTime : moment.time);
                upSince = -1;
            }
            if (isUp && upSince < 0)
                upSince = moment.time;
            lastTime = moment.time;
        }
        if (upSince >= 0)
            paintStretch(std::min(now, lastTime + 2000));
    }
}

void TimelineStrip::paintVideo(QPainter &painter, const QRectF &area, qint64 now) const
{
    painter.setPen(palette().color(QPalette::Text));
    painter.drawText(QRectF(margin, area.top(), gutter - margin, area.height()), Qt::AlignVCenter,
                     tr("Video"));
    // What is told holds until the next news; before the first one nothing is known.
    std::optional<bool> hasVideo;
    double from = gutter;
    const auto paintUntil = [&](double until) {
        const QRectF bar(from, area.center().y() - 3, until - from, 6);
        if (!hasVideo)
            from = until;
        else if (*hasVideo)
            painter.fillRect(bar, theme::good());
        else
            painter.fillRect(bar, QBrush(theme::bad(), Qt::BDiagPattern));
        from = until;
    };
    for (const LessonMoment &moment : m_model->lesson()) {
        if (!moment.video)
            continue;
        if (now - moment.time <= shownTime)
            paintUntil(positionOf(moment.time, now));
        hasVideo = *moment.video;
    }
    paintUntil(positionOf(now, now));
}

void TimelineStrip::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), palette().color(QPalette::Base));
    const qint64 now = m_clock->elapsed();
    const QRectF rows = QRectF(rect()).adjusted(0, margin, 0, -axisHeight);
    paintAxis(painter, now);
    const QFont usual = painter.font();
    paintVideo(painter, {rows.left(), rows.bottom() - 16, rows.width(), 16}, now);
    const double half = (rows.height() - 20) / 2;
    paintAttention(painter, {rows.left(), rows.top(), rows.width(), half - 4}, now);
    paintHands(painter, {rows.left(), rows.top() + half, rows.width(), half}, now);
    painter.setFont(usual);
}

bool TimelineStrip::event(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QWidget::event(event);
    const auto *const help = static_cast<QHelpEvent *>(event);
    const qint64 now = m_clock->elapsed();
    const double share = (help->x() - gutter) / std::max(1.0, double(width() - gutter - margin));
    const qint64 asked = now - qint64((1 - share) * shownTime);
    QString text;
    for (const LessonMoment &moment : m_model->lesson()) {
        if (std::abs(moment.time - asked) > 3000)
            continue;
        if (moment.attention)
            text = tr("Attention %1").arg(*moment.attention, 0, 'f', 2);
        if (moment.tellsHands && !moment.hands.isEmpty())
            text = tr("Hands up: %1").arg(moment.hands.join(QStringLiteral(", ")));
    }
    QToolTip::showText(help->globalPos(), text, this);
    return true;
}

#include "markpainter.h"

#include "theme.h"
#include "words.h"

#include <QPainterPath>

#include <algorithm>

namespace {

const QColor ink(12, 16, 20);
constexpr int labelHeight = 20;
constexpr int iconSide = 14;
constexpr int padding = 6;
constexpr int levelWidth = 14; ///< of the bars of attention
/// Behind this, a face and a body are told of different moments.
constexpr qint64 sameMoment = 3000;

QColor withAlpha(QColor colour, double alpha)
{
    colour.setAlphaF(alpha);
    return colour;
}

} // namespace

QVector<Mark> withoutStaleFaces(const QVector<Mark> &marks)
{
    QVector<Mark> left;
    for (const Mark &mark : marks) {
        const auto hasGone = [&mark](const Mark &body) {
            return body.kind == MarkKind::Body && body.student == mark.student &&
                   body.time > mark.time + sameMoment && !body.place.contains(mark.place.center());
        };
        const bool isNamedFace = mark.kind == MarkKind::Face && !mark.student.isEmpty();
        if (!isNamedFace || std::none_of(marks.begin(), marks.end(), hasGone))
            left.append(mark);
    }
    return left;
}

std::optional<qint64> NameLabel::told() const
{
    std::optional<qint64> oldest;
    for (const auto *const fact : {&hand, &smile, &attention})
        if (*fact)
            oldest = std::min(oldest.value_or((*fact)->time), (*fact)->time);
    return oldest || anchor.kind == MarkKind::Face ? oldest : anchor.time;
}

QVector<NameLabel> labelsOf(const QVector<Mark> &marks)
{
    // In the order in which the kinds are the better place for a name.
    static const MarkKind order[] = {MarkKind::Face, MarkKind::Smile,     MarkKind::Followed, MarkKind::Body,
                                     MarkKind::Hand, MarkKind::Attention, MarkKind::Game};
    QMap<QString, NameLabel> labels;
    for (const MarkKind kind : order) {
        for (const Mark &mark : marks) {
            if (mark.kind != kind || mark.student.isEmpty())
                continue;
            if (!labels.contains(mark.student))
                labels[mark.student].anchor = mark;
            NameLabel &label = labels[mark.student];
            if (kind == MarkKind::Hand)
                label.hand = mark;
            if (kind == MarkKind::Smile)
                label.smile = mark;
            if (kind == MarkKind::Attention)
                label.attention = mark;
        }
    }
    return labels.values().toVector();
}

void paintNotice(QPainter &painter, const QRect &area, const QString &title, const QString &text)
{
    painter.fillRect(area, ink);
    QFont font = painter.font();
    font.setPointSizeF(font.pointSizeF() * 1.6);
    font.setBold(true);
    const int width = std::min(area.width() - 40, 640);
    const QRect column((area.width() - width) / 2, 0, width, area.height());
    painter.save();
    painter.setFont(font);
    painter.setPen(Qt::white);
    painter.drawText(column.adjusted(0, 0, 0, -area.height() / 2 - 4),
                     Qt::AlignHCenter | Qt::AlignBottom | Qt::TextWordWrap, title);
    painter.restore();
    painter.setPen(QColor(190, 200, 210));
    painter.drawText(column.adjusted(0, area.height() / 2 + 8, 0, 0),
                     Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, text);
}

void paintBanner(QPainter &painter, const QRect &area, const QString &text)
{
    const QRect bar(0, 0, area.width(), 30);
    painter.fillRect(bar, withAlpha(ink, 0.75));
    painter.setPen(QColor(255, 190, 90));
    painter.drawText(bar, Qt::AlignCenter, text);
}

MarkPainter::MarkPainter(QPainter &painter, const GeometryEngine &geometry, const QRect &area, qint64 now,
                         Opacity opacity)
    : m_painter(painter),
      m_toView(geometry.frameToView()),
      m_area(area),
      m_now(now),
      m_opacity(std::move(opacity))
{
}

QString MarkPainter::ageOf(qint64 time) const
{
    return m_now - time < 1000 ? QString() : words::age(m_now - time);
}

void MarkPainter::paintAge(const QRectF &box, const QString &age)
{
    QFont small = m_painter.font();
    small.setPointSizeF(small.pointSizeF() * 0.8);
    const QFontMetrics metrics(small);
    const QSizeF size(metrics.horizontalAdvance(age) + 6, metrics.height());
    const QRectF place(box.right() - size.width(), box.bottom() + 2, size.width(), size.height());
    m_painter.save();
    m_painter.setFont(small);
    m_painter.setPen(Qt::NoPen);
    m_painter.setBrush(withAlpha(ink, 0.6));
    m_painter.drawRoundedRect(place, 3, 3);
    m_painter.setPen(Qt::white);
    m_painter.drawText(place, Qt::AlignCenter, age);
    m_painter.restore();
}

QRectF MarkPainter::inView(const QRect &place) const
{
    // Whatever an event claims, the drawing stays near the picture.
    return m_toView.mapRect(QRectF(place & QRect(-2000, -2000, 6000, 6000)));
}

void MarkPainter::paintCorners(const QRectF &box, const QColor &colour, double width)
{
    const double arm = std::min({box.width() / 4, box.height() / 4, 18.0});
    QPainterPath path;
    for (const auto &[corner, across, down] : {std::tuple(box.topLeft(), arm, arm),
                                               {box.topRight(), -arm, arm},
                                               {box.bottomRight(), -arm, -arm},
                                               {box.bottomLeft(), arm, -arm}}) {
        path.moveTo(corner + QPointF(across, 0));
        path.lineTo(corner);
        path.lineTo(corner + QPointF(0, down));
    }
    m_painter.setBrush(Qt::NoBrush);
    m_painter.setPen(QPen(withAlpha(ink, 0.55), width + 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    m_painter.drawPath(path);
    m_painter.setPen(QPen(colour, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    m_painter.drawPath(path);
}

void MarkPainter::paintTrail(const QPolygon &points, const QColor &colour)
{
    for (int i = 1; i < points.size(); ++i) {
        m_painter.setPen(QPen(withAlpha(colour, double(i) / points.size()), 3, Qt::SolidLine, Qt::RoundCap));
        m_painter.drawLine(m_toView.map(QPointF(points[i - 1])), m_toView.map(QPointF(points[i])));
    }
}

void MarkPainter::paintShape(const Mark &mark)
{
    m_painter.setOpacity(m_opacity(mark));
    const QColor colour = theme::mark(mark.kind);
    const QRectF box = inView(mark.place);
    const auto outline = [&](Qt::PenStyle style, double width, double radius) {
        m_painter.setBrush(Qt::NoBrush);
        m_painter.setPen(QPen(withAlpha(ink, 0.5), width + 2));
        m_painter.drawRoundedRect(box, radius, radius);
        m_painter.setPen(QPen(colour, width, style));
        m_painter.drawRoundedRect(box, radius, radius);
    };
    switch (mark.kind) {
    case MarkKind::Face:
        outline(mark.student.isEmpty() ? Qt::DashLine : Qt::SolidLine, 2, 6);
        if (const QString age = ageOf(mark.time); !age.isEmpty())
            paintAge(box, age);
        break;
    case MarkKind::Body:
        paintCorners(box, colour, 1.5);
        break;
    case MarkKind::Hand:
        paintCorners(box, colour, 4);
        break;
    case MarkKind::Followed:
        paintTrail(mark.points, colour);
        outline(Qt::SolidLine, 3, 2);
        break;
    case MarkKind::Game:
        outline(Qt::DotLine, 2, 10);
        m_painter.setPen(QPen(ink, 1));
        m_painter.setBrush(colour);
        for (const QPoint &bone : mark.points)
            m_painter.drawEllipse(m_toView.map(QPointF(bone)), 4, 4);
        break;
    case MarkKind::Smile:     // told by the label
    case MarkKind::Attention: // likewise
        break;
    }
    m_painter.setOpacity(1);
}

QRect MarkPainter::paintLabel(const NameLabel &label)
{
    QFont bold = m_painter.font();
    bold.setBold(true);
    const QFontMetrics names(bold), ages(m_painter.font());
    const QString age = label.told() ? ageOf(*label.told()) : QString();
    const double density = m_painter.device()->devicePixelRatioF();

    const int nameWidth = names.horizontalAdvance(label.anchor.student);
    const int ageWidth = age.isEmpty() ? 0 : ages.horizontalAdvance(age) + padding;
    const int width = 2 * padding + nameWidth + ageWidth + (label.attention ? levelWidth : 0) +
                      (int(label.hand.has_value()) + int(label.smile.has_value())) * (iconSide + 4);

    const QRectF box = inView(label.anchor.place);
    QRect place(int(box.center().x()) - width / 2, int(box.top()) - labelHeight - 4, width, labelHeight);
    place.moveLeft(std::clamp(place.left(), 0, std::max(0, m_area.width() - width)));
    place.moveTop(std::clamp(place.top(), 0, std::max(0, m_area.height() - labelHeight)));

    // As fresh as the freshest that it tells; each part fades by itself.
    const double handUp = opacityOf(label.hand);
    const double whole =
        std::max({m_opacity(label.anchor), handUp, opacityOf(label.smile), opacityOf(label.attention)});
    const QRectF frame = QRectF(place).adjusted(0.5, 0.5, -0.5, -0.5);
    m_painter.setOpacity(whole);
    m_painter.setPen(QPen(theme::mark(label.hand ? MarkKind::Hand : MarkKind::Face), 1));
    m_painter.setBrush(withAlpha(ink, 0.82));
    m_painter.drawRoundedRect(frame, 5, 5);
    m_painter.setOpacity(handUp);
    m_painter.setBrush(theme::mark(MarkKind::Hand));
    m_painter.drawRoundedRect(frame, 5, 5);
    const QColor text = handUp > 0.5 ? ink : QColor(Qt::white);

    int x = place.left() + padding;
    const auto drawIcon = [&](const std::optional<Mark> &mark) {
        if (!mark)
            return;
        m_painter.setOpacity(m_opacity(*mark));
        m_painter.setPen(Qt::NoPen);
        m_painter.setBrush(theme::mark(mark->kind));
        m_painter.drawEllipse(QRect(x - 1, place.top() + 2, iconSide + 2, iconSide + 2));
        m_painter.drawPixmap(x, place.top() + 3,
                             theme::pixmap(theme::markIcon(mark->kind), iconSide, ink, density));
        x += iconSide + 4;
    };
    const auto write = [&](const QFont &font, const QString &what, int space, const QColor &colour) {
        m_painter.setOpacity(whole);
        m_painter.setFont(font);
        m_painter.setPen(colour);
        m_painter.drawText(QRect(x, place.top(), space, labelHeight), Qt::AlignVCenter | Qt::AlignLeft, what);
        x += space;
    };
    const QFont usual = m_painter.font();
    drawIcon(label.hand);
    drawIcon(label.smile);
    write(bold, label.anchor.student, nameWidth, text);
    if (label.attention) {
        // Three bars: as many are full as the attention is high.
        m_painter.setOpacity(m_opacity(*label.attention));
        const double weight = words::attentionWeight(label.attention->state);
        const int level = weight > 0.5 ? 3 : weight > 0 ? 2 : 1;
        const QColor full = handUp > 0.5 ? ink : theme::mark(MarkKind::Attention);
        for (int bar = 0; bar < 3; ++bar) {
            const QRect column(x + 3 + bar * 4, place.bottom() - 6 - bar * 3, 3, 3 + bar * 3);
            m_painter.fillRect(column, bar < level ? full : withAlpha(text, 0.3));
        }
        x += levelWidth;
    }
    if (!age.isEmpty()) {
        x += padding;
        write(usual, age, ageWidth, withAlpha(text, 0.75));
    }
    m_painter.setFont(usual);
    m_painter.setOpacity(1);
    return place;
}

#include "legendbar.h"

#include "theme.h"
#include "words.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QPainter>

namespace {

constexpr int swatchSide = 20;

/// The kind's shape on its colour; only its frame when it is switched off.
QPixmap swatch(MarkKind kind, bool shown, double density)
{
    QPixmap made(QSize(swatchSide, swatchSide) * density);
    made.setDevicePixelRatio(density);
    made.fill(Qt::transparent);
    QPainter painter(&made);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor colour = theme::mark(kind);
    painter.setPen(QPen(colour, 2));
    painter.setBrush(shown ? QBrush(colour) : QBrush(Qt::NoBrush));
    painter.drawRoundedRect(QRectF(1, 1, swatchSide - 2, swatchSide - 2), 5, 5);
    const QColor ink = shown ? QColor(12, 16, 20) : colour;
    painter.drawPixmap(3, 3, theme::pixmap(theme::markIcon(kind), swatchSide - 6, ink, density));
    return made;
}

} // namespace

LegendBar::LegendBar()
{
    auto *const layout = new QHBoxLayout(this);
    layout->setContentsMargins(6, 2, 6, 2);
    layout->setSizeConstraint(QLayout::SetNoConstraint);
    for (int i = 0; i < markKinds; ++i) {
        auto *const button = new QToolButton;
        const auto kind = MarkKind(i);
        m_buttons[i] = button;
        button->setCheckable(true);
        button->setChecked(true);
        button->setAutoRaise(true);
        button->setText(words::markKind(kind));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setIconSize({swatchSide, swatchSide});
        button->setFocusPolicy(Qt::TabFocus);
        button->setToolTip(tr("Show or hide: %1").arg(words::markKind(kind)));
        button->setStyleSheet(QStringLiteral("QToolButton:checked { background: none; border: none; }"));
        connect(button, &QToolButton::toggled, this, [this, kind](bool shown) {
            paintIcons();
            emit toggled(kind, shown);
        });
        layout->addWidget(button);
    }
    layout->addStretch();
    paintIcons();
    m_fullWidth = layout->sizeHint().width();
}

QSize LegendBar::minimumSizeHint() const
{
    return {markKinds * m_buttons[0]->iconSize().width() * 2, layout()->sizeHint().height()};
}

void LegendBar::resizeEvent(QResizeEvent *)
{
    const auto style = width() < m_fullWidth ? Qt::ToolButtonIconOnly : Qt::ToolButtonTextBesideIcon;
    for (auto *const button : m_buttons)
        button->setToolButtonStyle(style);
}

void LegendBar::paintIcons()
{
    for (int i = 0; i < markKinds; ++i)
        m_buttons[i]->setIcon(swatch(MarkKind(i), m_buttons[i]->isChecked(), devicePixelRatioF()));
}

void LegendBar::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange)
        paintIcons();
    QWidget::changeEvent(event);
}

#include "theme.h"

#include <QAbstractButton>
#include <QAction>
#include <QFile>
#include <QPalette>
#include <QStyleFactory>

namespace theme {

namespace {

bool dark = false;
Scheme applied = System;

QPalette paletteOf(bool isDarkOne)
{
    const QColor window = isDarkOne ? QColor(0x20, 0x24, 0x29) : QColor(0xf3, 0xf5, 0xf7);
    const QColor base = isDarkOne ? QColor(0x17, 0x1a, 0x1e) : QColor(Qt::white);
    const QColor text = isDarkOne ? QColor(0xe8, 0xea, 0xed) : QColor(0x1c, 0x22, 0x28);
    const QColor button = isDarkOne ? QColor(0x2c, 0x32, 0x38) : QColor(0xe6, 0xea, 0xee);
    const QColor faint = isDarkOne ? QColor(0x83, 0x8b, 0x94) : QColor(0x7a, 0x83, 0x8c);
    const QColor accent = isDarkOne ? QColor(0x4a, 0xa3, 0xdf) : QColor(0x00, 0x68, 0xa8);
    QPalette palette(button, window);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::Highlight, accent);
    palette.setColor(QPalette::HighlightedText, isDarkOne ? QColor(0x0c, 0x10, 0x14) : QColor(Qt::white));
    palette.setColor(QPalette::Link, accent);
    palette.setColor(QPalette::PlaceholderText, faint);
    for (const auto role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText}) {
        palette.setColor(role, text);
        if (role != QPalette::ToolTipText)
            palette.setColor(QPalette::Disabled, role, faint);
    }
    return palette;
}

} // namespace

void apply(QApplication &application, Scheme scheme)
{
    static const bool systemIsDark = QApplication::palette().color(QPalette::Window).lightness() < 128;
    applied = scheme;
    dark = scheme == Dark || (scheme == System && systemIsDark);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(paletteOf(dark));
    application.setStyleSheet(QStringLiteral("QToolBar { spacing: 4px; padding: 4px; border: none; }"
                                             "QToolBar QToolButton { padding: 4px 8px; border-radius: 6px; }"
                                             "QToolBar QToolButton:checked { background: palette(highlight);"
                                             " color: palette(highlighted-text); }"
                                             "QStatusBar::item { border: none; }"
                                             "QPushButton { padding: 5px 12px; }"));
}

Scheme current()
{
    return applied;
}

void refreshIcons(QObject *root)
{
    for (auto *const action : root->findChildren<QAction *>())
        if (action->property("themeIcon").isValid())
            setIcon(action, action->property("themeIcon").toString());
    for (auto *const button : root->findChildren<QAbstractButton *>())
        if (button->property("themeIcon").isValid())
            setIcon(button, button->property("themeIcon").toString());
}

QColor mark(MarkKind kind)
{
    switch (kind) {
    case MarkKind::Face:
        return {0x56, 0xb4, 0xe9};
    case MarkKind::Body:
        return {0xd8, 0xd8, 0xd8};
    case MarkKind::Hand:
        return {0xe6, 0x9f, 0x00};
    case MarkKind::Attention:
        return {0x00, 0xb0, 0x80};
    case MarkKind::Smile:
        return {0xf0, 0xe4, 0x42};
    case MarkKind::Followed:
        return {0xe8, 0x63, 0x0a};
    case MarkKind::Game:
        return {0xcc, 0x79, 0xa7};
    }
    return Qt::white;
}

QString markIcon(MarkKind kind)
{
    switch (kind) {
    case MarkKind::Face:
        return QStringLiteral("faces");
    case MarkKind::Body:
        return QStringLiteral("body");
    case MarkKind::Hand:
        return QStringLiteral("hand");
    case MarkKind::Attention:
        return QStringLiteral("attention");
    case MarkKind::Smile:
        return QStringLiteral("smile");
    case MarkKind::Followed:
        return QStringLiteral("follow");
    case MarkKind::Game:
        return QStringLiteral("game");
    }
    return {};
}

QColor good()
{
    return dark ? QColor(0x3c, 0xc8, 0x9c) : QColor(0x00, 0x7d, 0x5a);
}

QColor warning()
{
    return dark ? QColor(0xf0, 0xb4, 0x29) : QColor(0x9a, 0x62, 0x00);
}

QColor bad()
{
    return dark ? QColor(0xff, 0x7a, 0x45) : QColor(0xb8, 0x3c, 0x00);
}

QPixmap pixmap(const QString &name, int side, const QColor &colour, double density)
{
    QFile file(QStringLiteral(":/icons/%1.svg").arg(name));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const int pixels = qRound(side * density);
    QByteArray content = file.readAll().replace("currentColor", colour.name().toLatin1());
    // The size at which the picture is to be painted, so that it is sharp.
    content.replace("<svg ", "<svg width=\"" + QByteArray::number(pixels) + "\" height=\"" +
                                 QByteArray::number(pixels) + "\" ");
    QPixmap painted;
    painted.loadFromData(content, "SVG");
    painted.setDevicePixelRatio(density);
    return painted;
}

QIcon icon(const QString &name)
{
    QIcon made;
    const QPalette palette = QApplication::palette();
    for (const double density : {1.0, 2.0}) {
        const auto add = [&](const QColor &colour, QIcon::Mode mode, QIcon::State state) {
            made.addPixmap(pixmap(name, 24, colour, density), mode, state);
        };
        add(palette.color(QPalette::ButtonText), QIcon::Normal, QIcon::Off);
        add(palette.color(QPalette::HighlightedText), QIcon::Normal, QIcon::On);
        add(palette.color(QPalette::Disabled, QPalette::ButtonText), QIcon::Disabled, QIcon::Off);
        add(palette.color(QPalette::Disabled, QPalette::ButtonText), QIcon::Disabled, QIcon::On);
    }
    return made;
}

} // namespace theme

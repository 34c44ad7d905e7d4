#pragma once

#include "classmodel.h"

#include <QApplication>
#include <QColor>
#include <QIcon>
#include <QPixmap>

/// Colours and icons. The colours of marks are ones that colour-blind people tell apart, and no meaning is
/// told by a colour alone: each kind has a shape of its own.
namespace theme {

enum Scheme
{
    System, ///< light or dark as the desktop is
    Light,
    Dark
};

/// Sets style, palette and style sheet of the application.
void apply(QApplication &application, Scheme scheme);
Scheme current();
/// Where the choice is kept.
constexpr const char *settingsKey = "theme";

QColor mark(MarkKind kind);
/// The icon of a kind of marks, by the name of its file.
QString markIcon(MarkKind kind);
QColor good();
QColor warning();
QColor bad();

/// An icon in the colour of the text, sharp at each density of the screen.
QIcon icon(const QString &name);
/// Gives an action or a button an icon that follows the colours.
template <class Bearer>
void setIcon(Bearer *bearer, const QString &name)
{
    bearer->setProperty("themeIcon", name);
    bearer->setIcon(icon(name));
}
/// After the colours have changed.
void refreshIcons(QObject *root);
QPixmap pixmap(const QString &name, int side, const QColor &colour, double density);

} // namespace theme

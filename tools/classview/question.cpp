#include "question.h"

#include <QMessageBox>

namespace {

/// The buttons of Qt's own dialogs, which are in the language of the viewer also where Qt's translations are
/// not installed.
[[maybe_unused]] constexpr const char *buttons[] = {
    QT_TRANSLATE_NOOP("QPlatformTheme", "&Yes"), QT_TRANSLATE_NOOP("QPlatformTheme", "&No"),
    QT_TRANSLATE_NOOP("QPlatformTheme", "OK"), QT_TRANSLATE_NOOP("QPlatformTheme", "Cancel")};

} // namespace

bool isConfirmed(QWidget *window, const QString &title, const QString &question)
{
    return QMessageBox::question(window, title, question, QMessageBox::Yes | QMessageBox::No,
                                 QMessageBox::No) == QMessageBox::Yes;
}

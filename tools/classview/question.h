#pragma once

#include <QString>

class QWidget;

/// Asks before something that cannot be taken back. Enter and Escape mean no.
bool isConfirmed(QWidget *window, const QString &title, const QString &question);

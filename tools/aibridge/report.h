#pragma once

#include <QString>

/// One line of the bridge to standard error, where systemd's journal takes it from. Never with a password or
/// a name.
void report(const QString &text);

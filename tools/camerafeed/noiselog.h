#pragma once

#include <QString>
#include <QStringList>

/**
 * Takes standard error away from the libraries: what OpenCV and FFmpeg write there goes to a file, or
 * nowhere, and without the secrets of an address. The program itself keeps writing to the former standard
 * error through say().
 *
 * Threads: say() from any; the lines are taken over by a thread of its own.
 */
namespace noiselog {

/// To be called once, before there are threads. False, with a reason, when the file can't be written.
/// @param file empty: the lines are dropped. At 10 MB it is renamed to "<file>.1" and begun anew.
bool begin(const QString &file, const QStringList &secrets, QString &error);

/// One line of the program to standard error, with its name before it.
void say(const QString &text);

} // namespace noiselog

#pragma once

#include <QDir>
#include <QRegularExpression>

/// The lock file of the camera program that writes into a segment, in the temporary folder. It tells the
/// number of its process.
/// @param key name of the segment
inline QString cameraLockFile(QString key)
{
    static const QRegularExpression unfit(QStringLiteral("[^A-Za-z0-9_.-]"));
    return QDir::temp().filePath("camerafeed-" + key.replace(unfit, QStringLiteral("_")) + ".lock");
}

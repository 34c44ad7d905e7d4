#pragma once

#include <QLockFile>
#include <QString>

/**
 * The right to be the one camera program that writes into a segment, as a lock file in the temporary folder.
 * Given back with the object, and by the system when the program has died.
 */
class CameraLock
{
public:
    /// @param key name of the segment
    explicit CameraLock(const QString &key);

    /// Takes the lock without waiting. False, with a text for a person, when another program has it or when
    /// there can be no lock file.
    bool take(QString &error);

    /// Asks the program that has the lock to end, and waits until it has. Unlike take() it gives up only when
    /// there can be no lock file, or when the condition says so; then it is false.
    bool takeOver(bool (*isUnwanted)(), QString &error);

private:
    const QString m_key;
    QLockFile m_file;
};

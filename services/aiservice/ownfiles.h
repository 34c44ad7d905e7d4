#pragma once

#include <QDir>
#include <QTimer>

/**
 * What earlier runs of the service left on the disk (leftfiles.h): closed to other users, and removed when it
 * is old. Folders are never changed: somebody may have made them so.
 *
 * Threads: made and used on one thread with an event loop, which removes old files at each midnight.
 */
class OwnFiles
{
public:
    /// @param temporary where logs and dumps lie
    /// @param working where the store lies
    OwnFiles(const QDir &temporary, const QDir &working);

    /// Leaves logs, dumps and the store to the service's user alone.
    void close() const;

    /// Removes logs and dumps that were last written before so many days, now and at each midnight, but never
    /// the newest log, which is the open one. With 0 days or fewer nothing is ever removed.
    void keepFor(int days);

private:
    void removeOld() const;
    void awaitMidnight();

    QDir m_temporary;
    QDir m_working;
    int m_days = 0;
    QTimer m_midnight;
};

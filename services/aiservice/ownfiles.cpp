#include "ownfiles.h"

#include "leftfiles.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>

OwnFiles::OwnFiles(const QDir &temporary, const QDir &working) : m_temporary(temporary), m_working(working)
{
    m_midnight.setSingleShot(true);
    m_midnight.setTimerType(Qt::VeryCoarseTimer);
    QObject::connect(&m_midnight, &QTimer::timeout, [this] {
        removeOld();
        awaitMidnight();
    });
}

void OwnFiles::close() const
{
    const auto files =
        left_files::logs(m_temporary) + left_files::dumps(m_temporary) + left_files::store(m_working);
    for (const QFileInfo &file : files)
        QFile::setPermissions(file.filePath(), QFile::ReadOwner | QFile::WriteOwner);
}

void OwnFiles::keepFor(int days)
{
    m_days = days;
    if (days <= 0)
        return;
    removeOld();
    awaitMidnight();
}

void OwnFiles::removeOld() const
{
    QFileInfoList files = left_files::logs(m_temporary);
    if (!files.isEmpty())
        files.removeLast();
    files += left_files::dumps(m_temporary);
    const QDateTime oldest = QDateTime::currentDateTime().addDays(-qint64(m_days));
    for (const QFileInfo &file : qAsConst(files)) {
        if (file.lastModified() >= oldest)
            continue;
        if (QFile::remove(file.filePath()))
            qInfo().noquote() << "removed after" << m_days << "days:" << file.fileName();
        else
            qWarning().noquote() << "can't remove" << file.fileName();
    }
}

void OwnFiles::awaitMidnight()
{
    // A little later, and anew each time: days have 23 to 25 hours.
    constexpr qint64 later = 1000;
    const QDateTime now = QDateTime::currentDateTime();
    m_midnight.start(static_cast<int>(now.msecsTo(now.date().addDays(1).startOfDay()) + later));
}

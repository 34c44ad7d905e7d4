#include "cameralock.h"

#include "cameralockfile.h"

#include <csignal>
#include <cstdio>

#ifndef Q_OS_WIN
#include <sys/types.h>
#endif

namespace {

constexpr int retryInterval = 100; // milliseconds

bool askToEnd(qint64 process)
{
#ifdef Q_OS_WIN
    Q_UNUSED(process)
    return false;
#else
    return process > 0 && kill(static_cast<pid_t>(process), SIGTERM) == 0;
#endif
}

} // namespace

CameraLock::CameraLock(const QString &key) : m_key(key), m_file(cameraLockFile(key))
{
    m_file.setStaleLockTime(0); // a camera runs for days; only the death of its process frees the lock
}

bool CameraLock::take(QString &error)
{
    if (m_file.tryLock(0))
        return true;
    qint64 process = 0;
    QString host;
    QString program;
    if (m_file.error() == QLockFile::LockFailedError && m_file.getLockInfo(&process, &host, &program))
        error = QStringLiteral("process %1 writes to \"%2\" already; --take-over ends it")
                    .arg(process)
                    .arg(m_key);
    else
        error = QStringLiteral("cannot make the lock file %1").arg(cameraLockFile(m_key));
    return false;
}

bool CameraLock::takeOver(bool (*isUnwanted)(), QString &error)
{
    qint64 asked = 0;
    while (!m_file.tryLock(retryInterval)) {
        if (m_file.error() != QLockFile::LockFailedError)
            return take(error);
        if (isUnwanted()) {
            error = QStringLiteral("interrupted");
            return false;
        }
        qint64 process = 0;
        QString host;
        QString program;
        if (!m_file.getLockInfo(&process, &host, &program) || process == asked)
            continue; // it has just ended, or is about to
        if (!askToEnd(process)) {
            if (m_file.tryLock(0))
                return true;
            error = QStringLiteral("cannot end process %1, which writes to \"%2\"").arg(process).arg(m_key);
            return false;
        }
        asked = process;
        std::fprintf(stderr, "camerafeed: waiting for the end of process %lld\n",
                     static_cast<long long>(process));
    }
    return true;
}

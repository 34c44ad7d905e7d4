#pragma once

#include <QMutex>
#include <QMutexLocker>
#include <QStringList>
#include <QtGlobal>

/// Takes the Qt message log for as long as it lives, from all threads: "warning: text" and so on, one entry a
/// message. One at a time.
class LogCapture
{
public:
    LogCapture()
    {
        s_current = this;
        m_previous = qInstallMessageHandler(take);
    }
    ~LogCapture()
    {
        qInstallMessageHandler(m_previous);
        QMutexLocker locker(&s_mutex);
        s_current = nullptr;
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    /// What was logged since the last call.
    QStringList takeLines()
    {
        QMutexLocker locker(&s_mutex);
        QStringList lines;
        lines.swap(m_lines);
        return lines;
    }

private:
    static void take(QtMsgType type, const QMessageLogContext &, const QString &text)
    {
        const char *levels[] = {"debug", "warning", "critical", "fatal", "info"};
        QMutexLocker locker(&s_mutex);
        if (s_current)
            s_current->m_lines.append(QString("%1: %2").arg(levels[type], text));
    }

    inline static QMutex s_mutex;
    inline static LogCapture *s_current = nullptr;
    QtMessageHandler m_previous = nullptr;
    QStringList m_lines;
};

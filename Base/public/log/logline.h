#pragma once

#include <QMessageLogContext>
#include <QString>

/**
 * Lines for the roads that every request and every event takes: they reach the Qt message log as those of
 * qInfo() and qDebug() do, and cost a third to make.
 *
 *     LOG_INFO("started IAsyncCommand=", address, ": ThreadPool active count=", count);
 *
 * The parts follow each other with nothing in between. A part is a text (Latin-1 if it is a literal), a whole
 * number, or an address, which reads as with "%p".
 *
 * Threads: free functions without state.
 */
#define LOG_INFO(...) LOG_LINE(QtInfoMsg, __VA_ARGS__)
#define LOG_DEBUG(...) LOG_LINE(QtDebugMsg, __VA_ARGS__)
#define LOG_WARNING(...) LOG_LINE(QtWarningMsg, __VA_ARGS__)
#define LOG_LINE(type, ...)                                                                                  \
    qt_message_output(                                                                                       \
        type, QMessageLogContext(QT_MESSAGELOG_FILE, QT_MESSAGELOG_LINE, QT_MESSAGELOG_FUNC, "default"),     \
        log_line::text(__VA_ARGS__))

namespace log_line {

void append(QString &text, const QString &part);
void append(QString &text, const char *part);
void append(QString &text, const void *part);
void append(QString &text, int part);
void append(QString &text, unsigned part);
void append(QString &text, qint64 part);

/// The parts, one after the other.
template <class... Parts>
QString text(const Parts &...parts)
{
    constexpr int usualLength = 120;
    QString result;
    result.reserve(usualLength);
    (append(result, parts), ...);
    return result;
}

} // namespace log_line

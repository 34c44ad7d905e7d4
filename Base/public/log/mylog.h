#pragma once

#include <QDir>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QtGlobal>

/**
 * Writes the Qt message log to the console and to daily files.
 *
 * Each start opens a file of its own, <folder>/<name>_<date>_<time>.log, and so does each midnight; old
 * files stay. A line reads "[time] [thread] [level] text    ==>>(function:line)" and ends in "\r\n".
 * Lines reach the disk every 3 seconds, or with flush(): a crash loses what came since. They reach a console
 * that isn't a terminal within 2 ms: what comes that soon after a line is written together. A crash that
 * CrashDump sees loses none of them, nor does exit(); a kill may lose those 2 ms.
 *
 * A picture in a line is written as its kind, length and a hash (picturetext.h).
 *
 * Threads: init() and addCategory() are called before other threads log. Everything else may be called
 * from any thread.
 *
 * Errors: a line that can't be written (disk full, folder gone) is lost, and the program goes on.
 */
class MyLog
{
    Q_GADGET

public:
    /// Opens the log and installs messageHandler(). Called once.
    /// @param name base name of the main file
    /// @param folder created when it is missing; an exception leaves when no file can be opened in it
    /// @param categories logging categories that get files of their own
    /// @param level lowest level written: 0 debug, 1 info, 2 warning, 3 critical, 4 fatal
    /// @param infoLimit bytes after which an info message is cut; other levels are never cut
    static void init(QString name, QDir folder, QStringList categories, int level, qint64 infoLimit);

    /// Gives a logging category a file of its own, <folder>/<category>_<date>_<time>.log. Does nothing
    /// for "default", "console" and a category that has one.
    static void addCategory(QString category);

    /// Whether each line goes to standard output too. Off at first, and when nobody could ever read it there:
    /// standard output is closed or the null device.
    static void setConsole(bool on);

    /// Writes everything logged so far to the disk.
    static void flush();

    /// What has gathered for the console is written now, and from here on each line at once. For the
    /// end of a process, by a crash too: waits for no lock longer than a tenth of a second.
    static void writeAtOnce();

    /// The handler that init() installs. A fatal message ends the process by abort().
    static void messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);
};

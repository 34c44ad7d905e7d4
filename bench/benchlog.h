#pragma once

#include "mylog.h"

#include <QDir>

#include <ctime>
#include <fcntl.h>
#include <unistd.h>

/// Seconds that a thread or process has spent on a processor.
inline double processorSeconds(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// As long as it lives, everything is logged as in the service whose standard output leads to a file.
class LogAsInTheService
{
public:
    LogAsInTheService()
    {
        // spdlog's loggers stay for the life of the process.
        static const bool once = [] {
            MyLog::init("AI", QDir(folder()), {}, 0, 10000);
            return true;
        }();
        static_cast<void>(once);
        const int file = open(qPrintable(folder() + "/console.txt"), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(file, STDOUT_FILENO);
        close(file);
        MyLog::setConsole(true);
        former = qInstallMessageHandler(&MyLog::messageHandler);
    }

    ~LogAsInTheService()
    {
        qInstallMessageHandler(former);
        MyLog::setConsole(false);
        MyLog::flush();
        dup2(output, STDOUT_FILENO);
        close(output);
    }

    LogAsInTheService(const LogAsInTheService &) = delete;
    LogAsInTheService &operator=(const LogAsInTheService &) = delete;

    static QString folder() { return QDir::temp().filePath("logs"); }

private:
    int output = dup(STDOUT_FILENO);
    QtMessageHandler former = nullptr;
};

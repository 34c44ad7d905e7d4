#pragma once

#include <QtGlobal>

#include <optional>

namespace counters {

/// What a process has taken of the machine.
struct ProcessUsage
{
    qint64 start = 0;            ///< "starttime" of /proc/PID/stat: with its number it names one process
    double processorSeconds = 0; ///< of all its threads, since its start
    qint64 residentBytes = 0;    ///< memory that it holds now
};

/// Nothing for a process that isn't there or has ended, and on systems without /proc. Threads: any.
std::optional<ProcessUsage> usageOf(qint64 process);

} // namespace counters

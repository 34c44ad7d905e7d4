#pragma once

#include <QDir>
#include <QFileInfoList>

/**
 * The files that runs of the service leave on the disk, by the names that it gives them: for the service,
 * which closes and ages them, and for the tools that erase. Only plain files count, never a symbolic link.
 *
 * Threads: free functions without state.
 */
namespace left_files {

constexpr char logName[] = "AI";
/// Below the temporary folder.
constexpr char logFolder[] = "Orelia/logs";
constexpr char dumpFolder[] = "Orelia/logs/dump/aidump";

/// `AI_<date>_<time>.log`, the oldest name first.
QFileInfoList logs(const QDir &temporary);
/// `<GUID>.dmp`
QFileInfoList dumps(const QDir &temporary);
/// "ai.data", and what SQLite may leave beside it. The first one is "ai.data" if that is there.
QFileInfoList store(const QDir &working);
/// `<identify>_<yyyyMMddhhmmss>.mp4`, in this folder and not below it.
QFileInfoList recordings(const QDir &folder);

} // namespace left_files

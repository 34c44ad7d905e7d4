#include "leftfiles.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

QFileInfoList filesOf(const QDir &folder, const QString &pattern)
{
    QFileInfoList files = folder.entryInfoList(QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDir::Name);
    const QRegularExpression name(QRegularExpression::anchoredPattern(pattern));
    const auto isOther = [&](const QFileInfo &file) { return !name.match(file.fileName()).hasMatch(); };
    files.erase(std::remove_if(files.begin(), files.end(), isOther), files.end());
    return files;
}

QDir below(const QDir &folder, const char *path)
{
    return QDir(folder.filePath(QLatin1String(path)));
}

} // namespace

QFileInfoList left_files::logs(const QDir &temporary)
{
    return filesOf(below(temporary, logFolder),
                   QLatin1String(logName) + R"(_\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d\.log)");
}

QFileInfoList left_files::dumps(const QDir &temporary)
{
    return filesOf(below(temporary, dumpFolder), R"([0-9a-fA-F-]{32,36}\.dmp)");
}

QFileInfoList left_files::store(const QDir &working)
{
    return filesOf(working, R"(ai\.data(-journal|-wal|-shm)?)");
}

QFileInfoList left_files::recordings(const QDir &folder)
{
    return filesOf(folder, R"(.*_\d{14}\.mp4)");
}

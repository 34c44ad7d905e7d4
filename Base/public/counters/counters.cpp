#include "counters.h"

#include "countersreader.h"
#include "processusage.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>

#include <filesystem>
#include <memory>
#include <new>
#include <vector>

namespace {

using namespace counters;

std::int64_t wallClock()
{
    return QDateTime::currentMSecsSinceEpoch();
}

template <class Row, std::size_t n>
void copyRows(const Rows<Row, n> &from, Rows<Row, n> &to)
{
    const std::uint64_t used = from.used;
    for (std::uint64_t i = 0; i < used; ++i)
        to.rows[i].head = from.rows[i].head;
    to.used = used;
}

void begin(Page &page, const Page *former)
{
    std::memcpy(page.magic, pageMagic, sizeof pageMagic);
    page.version = pageVersion;
    page.size = sizeof(Page);
    page.process = QCoreApplication::applicationPid();
    const auto usage = usageOf(page.process);
    page.processStart = usage ? usage->start : 0;
    page.startTime = wallClock();
    if (former) {
        page.restarts = former->restarts + 1;
        page.crashes = former->crashes + (former->endTime.value() == 0 ? 1 : 0);
    }
    copyRows(ownPage.analyses, page.analyses);
    copyRows(ownPage.recognisers, page.recognisers);
    copyRows(ownPage.requests, page.requests);
    copyRows(ownPage.events, page.events);
}

/// A new file with all its bytes, so that a full disk shows here and not when a number is written.
/// @return where it is mapped, null with the reason in the file's errorString()
uchar *mapNew(QFile &file)
{
    file.remove();
    if (!file.open(QIODevice::ReadWrite | QIODevice::NewOnly) ||
        !file.setPermissions(QFile::ReadOwner | QFile::WriteOwner))
        return nullptr;
    const QByteArray zeros(sizeof(Page), '\0');
    return file.write(zeros) == zeros.size() && file.flush() ? file.map(0, zeros.size()) : nullptr;
}

} // namespace

bool counters::open(const QDir &folder, QString &problem)
{
    const QString path = folder.filePath(QLatin1String(fileName));
    QString unreadable;
    const std::unique_ptr<Page> former = read(folder, unreadable);
    if (former && writerOf(*former) == Writer::Counts) {
        problem = QStringLiteral("process %1 counts in %2").arg(former->process).arg(path);
        return false;
    }
    // Kept as long as the process lives: a mapping ends with its file object.
    auto file = std::make_unique<QFile>(path + QStringLiteral(".new"));
    uchar *const memory = mapNew(*file);
    if (!memory) {
        problem = QStringLiteral("%1: %2").arg(file->fileName(), file->errorString());
        file->remove();
        return false;
    }
    Page *const page = new (memory) Page{};
    begin(*page, former.get());
    std::error_code error;
    std::filesystem::rename(std::filesystem::u8path(file->fileName().toStdString()),
                            std::filesystem::u8path(path.toStdString()), error);
    if (error) {
        problem = QStringLiteral("%1: %2").arg(path, QString::fromStdString(error.message()));
        file->remove();
        return false;
    }
    presentPage = page;
    // Never destroyed: threads count up to the end.
    static auto &kept = *new std::vector<std::unique_ptr<QFile>>;
    kept.push_back(std::move(file));
    return true;
}

void counters::end()
{
    page().endTime.set(wallClock());
}

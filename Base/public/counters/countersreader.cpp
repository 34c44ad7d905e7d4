#include "countersreader.h"

#include "processusage.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <cstring>

std::unique_ptr<counters::Page> counters::read(const QDir &folder, QString &problem)
{
    const QString path = folder.filePath(QLatin1String(fileName));
    const auto refuse = [&](const QString &reason) {
        problem = QStringLiteral("%1: %2").arg(path, reason);
        return nullptr;
    };
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return refuse(QStringLiteral("no service has counted here"));
    if (info.isSymLink() || !info.isFile())
        return refuse(QStringLiteral("not a plain file"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return refuse(file.errorString());
    if (file.size() < qint64(sizeof(Page)))
        return refuse(QStringLiteral("too short for a page of counters"));
    const uchar *const memory = file.map(0, sizeof(Page));
    if (!memory)
        return refuse(file.errorString());

    // Word by word, so that no number is torn.
    using Word = std::atomic<std::uint64_t>;
    static_assert(sizeof(Page) % sizeof(Word) == 0);
    const auto *const words = reinterpret_cast<const Word *>(memory);
    std::uint64_t copy[sizeof(Page) / sizeof(Word)];
    for (std::size_t i = 0; i < std::size(copy); ++i)
        copy[i] = words[i].load(std::memory_order_acquire);
    auto page = std::make_unique<Page>();
    std::memcpy(static_cast<void *>(page.get()), copy, sizeof(Page));

    if (std::memcmp(page->magic, pageMagic, sizeof pageMagic) != 0)
        return refuse(QStringLiteral("not a page of counters"));
    if (page->version != pageVersion || page->size != sizeof(Page))
        return refuse(QStringLiteral("a page of version %1, and this program reads version %2")
                          .arg(page->version)
                          .arg(pageVersion));
    return page;
}

counters::Writer counters::writerOf(const Page &page)
{
    if (page.endTime.value() != 0)
        return Writer::Ended;
    if (page.processStart == 0) // a system that doesn't tell
        return Writer::Counts;
    const auto usage = usageOf(page.process);
    return usage && usage->start == page.processStart ? Writer::Counts : Writer::Gone;
}

QString counters::nameOf(const RowHead &head)
{
    return QString::fromUtf8(head.name, int(qstrnlen(head.name, sizeof head.name)));
}

QString counters::describeEnd(const Page &page)
{
    switch (writerOf(page)) {
    case Writer::Counts:
        break;
    case Writer::Ended:
        return QStringLiteral("the service, process %1, has ended in order at %2")
            .arg(page.process)
            .arg(QDateTime::fromMSecsSinceEpoch(page.endTime.value()).toString(Qt::ISODate));
    case Writer::Gone:
        return QStringLiteral("the service, process %1, was killed or has crashed").arg(page.process);
    }
    return {};
}

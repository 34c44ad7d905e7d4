#include "processusage.h"

#include <QFile>

#ifdef Q_OS_LINUX
#include <unistd.h>
#endif

std::optional<counters::ProcessUsage> counters::usageOf(qint64 process)
{
#ifdef Q_OS_LINUX
    QFile file(QStringLiteral("/proc/%1/stat").arg(process));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // The program's name, in brackets, may hold anything. Behind it the fields count from the third.
    const QByteArray text = file.readAll();
    const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
    const auto field = [&](int number) { return fields.value(number - 3); };
    const QByteArray state = field(3);
    if (state.isEmpty() || state == "Z" || state == "X")
        return {};
    ProcessUsage usage;
    usage.processorSeconds =
        double(field(14).toLongLong() + field(15).toLongLong()) / double(sysconf(_SC_CLK_TCK));
    usage.start = field(22).toLongLong();
    usage.residentBytes = field(24).toLongLong() * sysconf(_SC_PAGESIZE);
    return usage;
#else
    Q_UNUSED(process)
    return {};
#endif
}

#include "counterstext.h"

#include "counterfields.h"
#include "countersreader.h"
#include "processusage.h"

#include <QDateTime>
#include <QTextStream>

#include <cmath>

namespace {

using counters::Counter;
using counters::Page;

constexpr double million = 1e6;
constexpr int nameWidth = 24;
constexpr int numberWidth = 10;

QString decimals(double value, int count = 1)
{
    return QString::number(value, 'f', count);
}

QString milliseconds(double nanoseconds)
{
    return decimals(nanoseconds / million);
}

QString age(const Counter &moment)
{
    const double seconds = counters::shown(counters::Unit::Newest, moment, counters::now());
    return std::isnan(seconds) ? QStringLiteral("never") : decimals(seconds) + " s ago";
}

/// Nothing once it is gone: another process may have its number.
std::optional<counters::ProcessUsage> usageOf(const Page &page)
{
    if (counters::writerOf(page) != counters::Writer::Counts)
        return {};
    return counters::usageOf(page.process);
}

QString line(const QString &name, const QStringList &cells)
{
    QString text = name.leftJustified(nameWidth);
    for (const QString &cell : cells)
        text += ' ' + cell.rightJustified(numberWidth);
    return text + '\n';
}

/// A row now, and what it was at the beginning of the time that rates are of; null for nothing.
template <class Row>
struct Change
{
    const Row &row;
    const Row *before;
    double seconds;

    std::int64_t of(Counter Row::*counter) const
    {
        return (row.*counter).value() - (before ? (before->*counter).value() : 0);
    }
    QString rate(Counter Row::*counter) const { return decimals(double(of(counter)) / seconds, 2); }
    /// Milliseconds of each; of the whole life when there was none of late.
    QString mean(Counter Row::*time, Counter Row::*count) const
    {
        if (of(count) > 0)
            return milliseconds(double(of(time)) / double(of(count)));
        const std::int64_t all = (row.*count).value();
        return all > 0 ? milliseconds(double((row.*time).value()) / double(all)) : QStringLiteral("-");
    }
    QString total(Counter Row::*counter) const { return QString::number((row.*counter).value()); }
    QString longest() const { return milliseconds(double(row.longest.value())); }
};

/// The lines of one kind of rows; nothing when there is none to show.
/// @param counts tells the rows of which there is nothing to say
template <class Rows, class Counts, class Cells>
QString section(const counters_text::View &view, Rows Page::*table, Counts counts, const QString &title,
                const QStringList &heads, Cells cells)
{
    QString text;
    const Rows &rows = view.page.*table;
    const auto used = std::min<std::uint64_t>(rows.used, Rows::most);
    for (std::uint64_t i = 0; i < used; ++i) {
        const auto &row = rows.rows[i];
        if (!view.allRows && (row.*counts).value() == 0)
            continue;
        const Change<std::decay_t<decltype(row)>> change{
            row, view.before ? &(view.before->*table).rows[i] : nullptr, view.seconds};
        text += line(counters::nameOf(row.head), cells(change));
    }
    return text.isEmpty() ? text : '\n' + line(title, heads) + text;
}

QString processLines(const counters_text::View &view)
{
    const Page &page = view.page;
    const auto usage = usageOf(page);
    QString text;
    QTextStream out(&text);
    const qint64 alive = (QDateTime::currentMSecsSinceEpoch() - page.startTime) / 1000;
    out << "AIService, process " << page.process << ", for " << alive / 3600
        << QTime(0, 0).addSecs(int(alive % 3600)).toString(":mm:ss") << " (restarts " << page.restarts
        << ", crashes " << page.crashes << ')';
    if (usage)
        out << ", processor time " << decimals(usage->processorSeconds) << " s, memory "
            << decimals(double(usage->residentBytes) / million) << " MB";
    out << "; rates of "
        << (view.before ? "the last " + decimals(view.seconds) + " s" : QStringLiteral("its whole life"))
        << '\n';

    const Change<counters::Frames> frames{page.frames, view.before ? &view.before->frames : nullptr,
                                          view.seconds};
    using counters::Frames;
    out << "frames: " << frames.rate(&Frames::read) << "/s, read " << frames.total(&Frames::read)
        << ", taken " << frames.total(&Frames::taken) << ", skipped for size "
        << frames.total(&Frames::skippedSize) << ", for format " << frames.total(&Frames::skippedFormat)
        << "; newest " << age(page.frames.newest) << '\n';
    return text;
}

QString trafficLines(const counters_text::View &view)
{
    const counters::Traffic &traffic = view.page.traffic;
    QString text;
    QTextStream out(&text);
    out << "\nclients: " << traffic.connections.value() << " connected, " << traffic.connectionsEver.value()
        << " ever; requests under way " << traffic.requestsUnderWay.value() << "; messages waiting "
        << traffic.waitingMessages.value() << " (" << traffic.waitingBytes.value() << " bytes), sent "
        << traffic.sentMessages.value() << " (" << decimals(double(traffic.sentBytes.value()) / million)
        << " MB), dropped " << traffic.droppedMessages.value() << '\n';
    using counters::Store;
    const Change<Store> store{view.page.store, view.before ? &view.before->store : nullptr, view.seconds};
    out << "store: statements " << store.total(&Store::statements) << ", failed "
        << store.total(&Store::failed) << "; ms each " << store.mean(&Store::time, &Store::statements)
        << ", longest " << store.longest() << '\n';
    return text;
}

QJsonValue number(double value)
{
    return std::isnan(value) ? QJsonValue() : QJsonValue(value);
}

} // namespace

QString counters_text::table(const View &view)
{
    using counters::AnalysisRow;
    using counters::EventRow;
    using counters::RecogniserRow;
    using counters::RequestRow;
    QString text = processLines(view);
    text += section(view, &Page::analyses, &AnalysisRow::offered, "analysis",
                    {"offered/s", "handled/s", "ms each", "longest", "queued", "handled", "interval", "queue",
                     "stopped", "unusable"},
                    [](const Change<AnalysisRow> &row) -> QStringList {
                        return {row.rate(&AnalysisRow::offered),
                                row.rate(&AnalysisRow::handled),
                                row.mean(&AnalysisRow::time, &AnalysisRow::handled),
                                row.longest(),
                                row.total(&AnalysisRow::queued),
                                row.total(&AnalysisRow::handled),
                                row.total(&AnalysisRow::skippedInterval),
                                row.total(&AnalysisRow::skippedQueue),
                                row.total(&AnalysisRow::skippedStopped),
                                row.total(&AnalysisRow::skippedUnusable)};
                    });
    text += section(view, &Page::recognisers, &RecogniserRow::calls, "recogniser",
                    {"calls/s", "ms each", "longest", "waited ms", "calls", "failed"},
                    [](const Change<RecogniserRow> &row) -> QStringList {
                        return {row.rate(&RecogniserRow::calls),
                                row.mean(&RecogniserRow::time, &RecogniserRow::calls),
                                row.longest(),
                                row.mean(&RecogniserRow::waited, &RecogniserRow::calls),
                                row.total(&RecogniserRow::calls),
                                row.total(&RecogniserRow::failed)};
                    });
    text += section(view, &Page::requests, &RequestRow::requests, "request",
                    {"requests/s", "ms each", "longest", "requests", "failed"},
                    [](const Change<RequestRow> &row) -> QStringList {
                        return {row.rate(&RequestRow::requests),
                                row.mean(&RequestRow::time, &RequestRow::requests), row.longest(),
                                row.total(&RequestRow::requests), row.total(&RequestRow::failed)};
                    });
    text +=
        section(view, &Page::events, &EventRow::events, "event", {"events/s", "events", "newest"},
                [](const Change<EventRow> &row) -> QStringList {
                    return {row.rate(&EventRow::events), row.total(&EventRow::events), age(row.row.newest)};
                });
    return text + trafficLines(view);
}

QJsonObject counters_text::object(const Page &page)
{
    QJsonObject process{
        {"id", double(page.process)},
        {"alive", counters::writerOf(page) == counters::Writer::Counts},
        {"start", QDateTime::fromMSecsSinceEpoch(page.startTime).toUTC().toString(Qt::ISODateWithMs)},
        {"restarts", double(page.restarts)},
        {"crashes", double(page.crashes)}};
    if (const auto usage = usageOf(page)) {
        process.insert("processor_seconds", usage->processorSeconds);
        process.insert("resident_bytes", double(usage->residentBytes));
    }
    QJsonObject whole{{"process", process}};
    const std::int64_t now = counters::now();
    counters::forEach(page, [&](const counters::Place &place, const auto &field, const Counter &counter) {
        QJsonObject part = whole[place.section].toObject();
        const QJsonValue value = number(counters::shown(field.unit, counter, now));
        if (place.row) {
            const QString name = counters::nameOf(*place.row);
            QJsonObject row = part[name].toObject();
            row.insert(field.name, value);
            if (const unsigned code = place.code())
                row.insert("code", int(code));
            part.insert(name, row);
        } else {
            part.insert(field.name, value);
        }
        whole.insert(place.section, part);
    });
    return whole;
}

#pragma once

#include "counterspage.h"

#include <cstring>

class QDir;
class QString;

/**
 * What the service counts, and where. Until open() has succeeded, and where it fails, that is memory of the
 * process's own, so counting never fails.
 *
 * Threads: open() and the adding of rows belong to the start, before anything counts. All else is free for
 * any thread, takes no lock and allocates nothing: a few nanoseconds a number, some more where the clock is
 * read.
 */
namespace counters {

inline Page ownPage{};
inline std::atomic<Page *> presentPage{&ownPage};

/// The page that is counted into. Stays valid.
inline Page &page()
{
    return *presentPage.load(std::memory_order_relaxed);
}

/**
 * Makes the page in a folder, for this user alone, in the place of whatever file has its name; the rows that
 * are known move there. A new file each time: nobody who has the old one open can harm this one. The page of
 * a process that lives is left alone.
 * @return false, with a reason for a person, when it can't be; the counting then goes on unseen
 */
bool open(const QDir &folder, QString &problem);

/// Notes in the page that the service ends in order.
void end();

/// The row of a key; the first one, for all others, when there is none.
template <class Row, std::size_t n>
Row &find(Rows<Row, n> &table, std::int64_t key)
{
    const std::uint64_t used = table.used.load(std::memory_order_acquire);
    for (std::uint64_t i = 1; i < used; ++i)
        if (table.rows[i].head.key == key)
            return table.rows[i];
    return table.rows[0];
}

/// The same by its name.
template <class Row, std::size_t n>
Row &find(Rows<Row, n> &table, const char *name)
{
    const std::uint64_t used = table.used.load(std::memory_order_acquire);
    for (std::uint64_t i = 1; i < used; ++i)
        if (std::strncmp(table.rows[i].head.name, name, nameBytes) == 0)
            return table.rows[i];
    return table.rows[0];
}

/// Adds a row, unless there is one of this key. What comes when all are taken goes to the first one.
template <class Row, std::size_t n>
void add(Rows<Row, n> &table, std::int64_t key, const char *name)
{
    const auto append = [&table](std::int64_t rowKey, const char *rowName) {
        const std::uint64_t used = table.used.load(std::memory_order_relaxed);
        RowHead &head = table.rows[used].head;
        std::strncpy(head.name, rowName, nameBytes - 1);
        head.key = rowKey;
        table.used.store(used + 1, std::memory_order_release);
    };
    if (table.used == 0)
        append(-1, "other");
    if (&find(table, key) == &table.rows[0] && table.used < n)
        append(key, name);
}

/// The key of a request's row.
/// @param kind "req_code"
/// @param code "command_code", which only execute and info requests have
constexpr std::int64_t requestKey(int kind, unsigned code)
{
    return (std::int64_t(kind) << 32) | code;
}

/// Adds a time to the sum and the longest of its kind.
inline void addTime(Counter &sum, Counter &longest, std::int64_t nanoseconds)
{
    sum.add(nanoseconds);
    longest.raise(nanoseconds);
}

} // namespace counters

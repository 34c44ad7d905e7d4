#pragma once

#include "counterspage.h"

#include <QDir>

#include <memory>

/**
 * Looks at the page of counters. Takes no lock, and the page is mapped read-only, so the service can't be
 * disturbed. Threads: any.
 */
namespace counters {

/// Who counts in a page.
enum class Writer
{
    Counts,
    Ended, ///< in order
    Gone   ///< killed, or crashed
};

/**
 * A copy of the page in a folder. Null, with a reason for a person, when there is none, or none that can be
 * read: not a plain file, too short, or of another version. A file that somebody cuts at this very moment
 * ends the caller by SIGBUS, as any mapped file does.
 */
std::unique_ptr<Page> read(const QDir &folder, QString &problem);

/// Whether the process that a page names still lives.
Writer writerOf(const Page &page);

/// The name of a row, whatever its bytes are.
QString nameOf(const RowHead &head);

/// Empty for a page that is counted in; otherwise what became of its process, for a person.
QString describeEnd(const Page &page);

} // namespace counters

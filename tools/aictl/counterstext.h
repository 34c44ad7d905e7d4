#pragma once

#include "counterspage.h"

#include <QJsonObject>
#include <QString>

/// The page of counters as a person and as a script read it. Threads: free functions without state.
namespace counters_text {

struct View
{
    const counters::Page &page;
    const counters::Page *before; ///< an earlier copy of the same service's, for rates; null: since its start
    double seconds;               ///< between the two
    bool allRows;                 ///< also those where nothing was counted
};

/// Lines of text: the process, frames, a table for each kind of row, clients and store.
QString table(const View &view);

/// All numbers, in objects by section and row; times in seconds. What happened never has an age of null.
QJsonObject object(const counters::Page &page);

} // namespace counters_text

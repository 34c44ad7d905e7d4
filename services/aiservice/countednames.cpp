#include "countednames.h"

#include "counters.h"
#include "messages.h"
#include "recognisertable.h"
#include "strategyfactory.h"
#include "videorecorder.h"

void nameCounters()
{
    counters::Page &page = counters::page();

    QStringList analyses = strategyNames();
    analyses.append(QLatin1String(VideoRecorder::countedName));
    for (int i = 0; i < analyses.size(); ++i)
        counters::add(page.analyses, i, qPrintable(analyses[i]));

    for (const RecogniserRow &row : recogniserTable)
        counters::add(page.recognisers, int(row.recogniser), row.requestKey);

    counters::add(page.requests, counters::requestKey(code(ai::Kind::Open), 0), "open");
    counters::add(page.requests, counters::requestKey(code(ai::Kind::Close), 0), "close");
    for (const ai::QuestionRow &row : ai::questions)
        counters::add(page.requests, counters::requestKey(code(ai::Kind::Info), code(row.question)),
                      row.name);
    for (const ai::CommandRow &row : ai::commands)
        counters::add(page.requests, counters::requestKey(code(ai::Kind::Execute), code(row.command)),
                      row.name);

    for (const ai::EventRow &row : ai::events)
        counters::add(page.events, code(row.event), row.name);
}

#include "command.h"
#include "counterspage.h"
#include "countersreader.h"
#include "counterstext.h"
#include "json.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QThread>

#ifndef Q_OS_WIN
#include <unistd.h>
#endif

namespace {

constexpr int slice = 50; // milliseconds
constexpr double millisecondsPerSecond = 1000;
const QString clearScreen = QStringLiteral("\x1b[H\x1b[J");

bool isTerminal()
{
#ifdef Q_OS_WIN
    return false;
#else
    return isatty(STDOUT_FILENO) == 1;
#endif
}

/// Whether two copies are of the same service, so that there are rates between them.
bool areOfOneLife(const counters::Page *former, const counters::Page &page)
{
    return former && former->process == page.process && former->startTime == page.startTime;
}

/// One look at the page after another; each is shown with the rates since the one before.
class Top
{
public:
    Top(bool asJson, bool allRows) : m_asJson(asJson), m_allRows(allRows) {}

    /// What there is to show, empty when there is no page that can be read.
    QString look()
    {
        std::unique_ptr<counters::Page> page = counters::read(QDir::temp(), m_problem);
        if (!page)
            return {};
        m_problem = counters::describeEnd(*page);
        if (m_asJson)
            return json::line(counters_text::object(*page)) + '\n';
        const bool continues = areOfOneLife(m_before.get(), *page);
        const qint64 life = QDateTime::currentMSecsSinceEpoch() - page->startTime;
        const qint64 time = std::max<qint64>(1, continues ? m_clock.elapsed() : life);
        QString text = counters_text::table(
            {*page, continues ? m_before.get() : nullptr, double(time) / millisecondsPerSecond, m_allRows});
        m_before = std::move(page);
        m_clock.start();
        return text;
    }

    /// Why the last look showed nothing, or what became of the service that it showed; empty when all is
    /// well.
    QString problem() const { return m_problem; }

private:
    const bool m_asJson;
    const bool m_allRows;
    std::unique_ptr<counters::Page> m_before;
    QElapsedTimer m_clock;
    QString m_problem;
};

int runTop(Console &console, const Arguments &arguments)
{
    int interval = 1000;
    if (arguments.has("interval") &&
        (!readSeconds(arguments.value("interval"), &interval) || interval == 0)) {
        Console::complain(
            QStringLiteral("--interval takes seconds, not %1").arg(arguments.value("interval")));
        return WrongUsage;
    }
    const bool asJson = arguments.has("json");
    const bool onScreen = !asJson && isTerminal();
    Top top(asJson, arguments.has("all"));
    if (arguments.has("once") || console.inSession()) {
        Console::print(top.look());
        if (!top.problem().isEmpty())
            Console::complain(top.problem());
        return top.problem().isEmpty() ? Success : Failure;
    }
    Console::catchInterrupts();
    QString told;
    while (!Console::interrupted()) {
        const QString text = top.look();
        if (onScreen)
            Console::print(clearScreen + text + top.problem() + '\n');
        else
            Console::print(text);
        if (!onScreen && top.problem() != told && !top.problem().isEmpty())
            Console::complain(top.problem());
        told = top.problem();
        for (int waited = 0; waited < interval && !Console::interrupted(); waited += slice)
            QThread::msleep(slice);
    }
    return Success;
}

} // namespace

std::vector<Command> counterCommands()
{
    return {
        {"top",
         "[--once] [--json] [--all] [--interval SECONDS]",
         "Shows the counters of the service, again and again until Ctrl-C. It reads them from the temporary "
         "folder and needs no connection, so it ends nothing and works while the service answers nobody. "
         "Stays while a service is away and shows the next one. docs/counters.md tells what each means.",
         0,
         0,
         {{"once", "Show them once, with rates since the service's start. Exit code 1 when it is gone."},
          {"json", "One line of JSON each time, with all that is counted."},
          {"all", "Also rows in which nothing was counted yet."},
          {"interval", "Time between two looks (default: 1).", "seconds"}},
         runTop},
    };
}

// What a line of the log costs, from building its text to the file and the console (standard output in a
// file): on one thread, and a million lines of eight threads at once, of which none may be lost. Beside it,
// in the same run, spdlog alone with two loggers of the same sinks and a text that is ready. Times are
// processor times of the whole process.
#include "benchlog.h"
#include "benchmain.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/daily_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <QDebug>
#include <QFile>

#include <thread>
#include <vector>

namespace {

constexpr int allLines = 1000000;

template <typename Line>
double secondsOfLines(int threads, const Line &line)
{
    const double start = processorSeconds(CLOCK_PROCESS_CPUTIME_ID);
    std::vector<std::thread> loggers;
    loggers.reserve(threads);
    for (int i = 0; i < threads; ++i)
        loggers.emplace_back([&line, threads] {
            for (int k = 0; k < allLines / threads; ++k)
                line(k);
        });
    for (std::thread &logger : loggers)
        logger.join();
    return processorSeconds(CLOCK_PROCESS_CPUTIME_ID) - start;
}

int linesWith(const QString &file, const QByteArray &text)
{
    QFile lines(file);
    lines.open(QIODevice::ReadOnly);
    int found = 0;
    while (!lines.atEnd())
        found += lines.readLine().contains(text);
    return found;
}

double bareSeconds(int threads)
{
    const std::string file = QDir::temp().filePath("bare.log").toStdString();
    const auto make = [](const char *name, spdlog::sink_ptr sink) {
        sink->set_formatter(std::make_unique<spdlog::pattern_formatter>(
            "[%H:%M:%S:%e] [%t] [%l] %v", spdlog::pattern_time_type::local, "\r\n"));
        return std::make_unique<spdlog::logger>(name, std::move(sink));
    };
    const auto console = make("bare console", std::make_shared<spdlog::sinks::stdout_color_sink_mt>());
    const auto daily =
        make("bare file", std::make_shared<spdlog::sinks::daily_file_sink_mt>(file, 0, 0, true));
    const spdlog::string_view_t text("finished request 123456: ThreadPool active count=2    ==>>(place:77)");
    return secondsOfLines(threads, [&](int) {
        console->info(text);
        daily->info(text);
    });
}

void line(benchmark::State &state)
{
    const int threads = static_cast<int>(state.range(0));
    static int runs = 0;
    const QByteArray mark = "run " + QByteArray::number(++runs) + " ";
    while (state.KeepRunning()) {
        double ours = 0;
        double bare = 0;
        {
            LogAsInTheService log;
            ours = secondsOfLines(threads, [&mark](int k) {
                qInfo("%sfinished request %d: ThreadPool active count=%d", mark.constData(), k, 2);
            });
            bare = bareSeconds(threads);
        }
        const QStringList files = QDir(LogAsInTheService::folder()).entryList({"AI_*.log"});
        const int written = linesWith(LogAsInTheService::folder() + "/" + files.value(0), mark);
        const int shown = linesWith(LogAsInTheService::folder() + "/console.txt", mark);
        if (written != allLines || shown != allLines)
            state.SkipWithError("lines are lost");
        state.counters["us"] = 1e6 * ours / allLines;
        state.counters["bare_us"] = 1e6 * bare / allLines;
    }
}
BENCHMARK(line)->Arg(1)->Arg(8)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    return runBenchmarks(argc, argv);
}

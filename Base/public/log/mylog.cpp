#include "mylog.h"

#include <QFile>
#include <QSet>

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/daily_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <tuple>

namespace {

struct Settings
{
    int level = 0;
    QString name = "AI";
    QDir folder = QDir(QDir::temp().filePath("Orelia/logs"));
    quint64 infoLimit = 10000;
    std::atomic<bool> console{false};
    QSet<QString> categories;
};

/// Never destroyed: threads log until the process is gone.
Settings &settings()
{
    static auto *const instance = new Settings;
    return *instance;
}

/// The time of day in the name gives each start of the process a file of its own.
struct TimedFileName
{
    static spdlog::filename_t calc_filename(const spdlog::filename_t &file, const std::tm &now)
    {
        spdlog::filename_t stem;
        spdlog::filename_t extension;
        std::tie(stem, extension) = spdlog::details::file_helper::split_by_extension(file);
        return fmt::format(SPDLOG_FILENAME_T("{}_{:04d}-{:02d}-{:02d}_{:02d}-{:02d}-{:02d}{}"), stem,
                           now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min,
                           now.tm_sec, extension);
    }
};

/// A daily file. One that can't be opened at midnight would be tried again with each line, for a twentieth of
/// a second and under the lock that all threads log under: with this sink once a second.
class TimedFileSink : public spdlog::sinks::base_sink<std::mutex>
{
public:
    explicit TimedFileSink(const spdlog::filename_t &path) : file(path, 0, 0, false) {}

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        const auto now = std::chrono::steady_clock::now();
        if (now < nextTry)
            return;
        try {
            file.log(message);
        } catch (const spdlog::spdlog_ex &error) {
            if (std::strstr(error.what(), "Failed opening file"))
                nextTry = now + std::chrono::seconds(1);
            throw;
        }
    }
    void flush_() override { file.flush(); }
    void set_pattern_(const std::string &pattern) override { file.set_pattern(pattern); }
    void set_formatter_(std::unique_ptr<spdlog::formatter> formatter) override
    {
        file.set_formatter(std::move(formatter));
    }

private:
    spdlog::sinks::daily_file_sink<spdlog::details::null_mutex, TimedFileName> file;
    std::chrono::steady_clock::time_point nextTry;
};

void createFileLogger(const QString &loggerName, const QString &baseName)
{
    const QString file = settings().folder.absoluteFilePath(baseName) + ".log";
#ifdef SPDLOG_WCHAR_FILENAMES
    const spdlog::filename_t path = file.toStdWString();
#else
    const spdlog::filename_t path = QFile::encodeName(file).toStdString();
#endif
    spdlog::synchronous_factory::create<TimedFileSink>(loggerName.toStdString(), path);
}

constexpr int unknownRank = 10000;

int rankOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return 0;
    case QtInfoMsg:
        return 1;
    case QtWarningMsg:
        return 2;
    case QtCriticalMsg:
        return 3;
    case QtFatalMsg:
        return 4;
    }
    return unknownRank;
}

spdlog::level::level_enum levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return spdlog::level::debug;
    case QtInfoMsg:
        return spdlog::level::info;
    case QtWarningMsg:
        return spdlog::level::warn;
    case QtCriticalMsg:
        return spdlog::level::critical;
    case QtFatalMsg:
        return spdlog::level::err;
    }
    return spdlog::level::off;
}

std::shared_ptr<spdlog::logger> fileLoggerOf(const QMessageLogContext &context)
{
    const QString category = QString::fromUtf8(context.category);
    if (settings().categories.contains(category))
        return spdlog::get("logger_" + category.toStdString());
    return spdlog::get("logger");
}

/// The name in a function's signature: from the blank behind the result's type up to the arguments.
QByteArray shortFunctionName(const char *signature)
{
    const QString function = QString::fromLatin1(signature);
    const int parenthesis = function.lastIndexOf('(');
    if (parenthesis <= 0)
        return function.toLatin1();
    const int blank = function.lastIndexOf(' ', parenthesis);
    const int start = blank >= 1 ? blank : 0;
    return function.mid(start, parenthesis - start).toLatin1();
}

std::string_view viewOf(const QByteArray &text)
{
    return {text.constData(), std::size_t(text.size())};
}

} // namespace

void MyLog::init(QString name, QDir folder, QStringList categories, int level, qint64 infoLimit)
{
    if (!folder.exists())
        folder.mkpath(folder.absolutePath());
    settings().level = level;
    settings().name = name;
    settings().folder = folder;
    settings().infoLimit = quint64(infoLimit);

    spdlog::stdout_color_mt("console");
    createFileLogger("logger", name);
    for (const QString &category : categories)
        addCategory(category);

    spdlog::set_level(spdlog::level::debug);
    spdlog::flush_every(std::chrono::seconds(3));
    spdlog::set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "[%H:%M:%S:%e] [%t] [%l] %v", spdlog::pattern_time_type::local, "\r\n"));
    qInstallMessageHandler(&MyLog::messageHandler);
}

void MyLog::addCategory(QString category)
{
    if (category == "default" || category == "console" || settings().categories.contains(category))
        return;
    settings().categories.insert(category);
    createFileLogger(QString("logger_%1").arg(category), category);
}

void MyLog::setConsole(bool on)
{
    settings().console.store(on, std::memory_order_relaxed);
}

void MyLog::flush()
{
    spdlog::apply_all([](const std::shared_ptr<spdlog::logger> &logger) { logger->flush(); });
}

void MyLog::messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const int rank = rankOf(type);
    if (rank < settings().level || rank == unknownRank)
        return;
    QByteArray text = message.toLocal8Bit();
    auto console = spdlog::get("console");
    if (!settings().console.load(std::memory_order_relaxed))
        console.reset();
    const auto file = fileLoggerOf(context);
    if (!file)
        return;
    const QByteArray function = shortFunctionName(context.function);

    if (type == QtDebugMsg) {
        if (console)
            console->debug("{0}    ==>>({1}:{2},{3})", viewOf(text), viewOf(function), context.line, "");
        file->debug("{0}\t\t\t==>>({1}:{2},{3})", viewOf(text), viewOf(function), context.line, "");
        return;
    }
    if (type == QtInfoMsg && quint64(text.size()) > settings().infoLimit)
        text.truncate(int(settings().infoLimit));
    const auto level = levelOf(type);
    if (console)
        console->log(level, "{0}    ==>>({1}:{2})", viewOf(text), viewOf(function), context.line);
    file->log(level, "{0}    ==>>({1}:{2})", viewOf(text), viewOf(function), context.line);
    if (type == QtFatalMsg)
        std::abort();
}

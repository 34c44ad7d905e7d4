#include "mylog.h"

#include "picturetext.h"

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/daily_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <QFile>
#include <QHash>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <tuple>

#ifndef Q_OS_WIN
#include <cstdio>
#include <sys/stat.h>
#endif

namespace {

struct Settings
{
    int level = 0;
    QString name = "AI";
    QDir folder = QDir(QDir::temp().filePath("Orelia/logs"));
    quint64 infoLimit = 10000;
    std::atomic<bool> console{false};
    // The registry has them too; each line takes them from here.
    std::shared_ptr<spdlog::logger> consoleLogger;
    std::shared_ptr<spdlog::logger> file;
    QHash<QByteArray, std::shared_ptr<spdlog::logger>> categories;
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

/// Lines of the pattern "[time] [thread] [level] text". Console and file get each line one after the other on
/// the same thread and with the same time, so what stands before the text is made once.
class LineFormatter : public spdlog::formatter
{
public:
    void format(const spdlog::details::log_msg &message, spdlog::memory_buf_t &line) override
    {
        struct Head
        {
            spdlog::log_clock::time_point time;
            spdlog::level::level_enum level = spdlog::level::off;
            spdlog::memory_buf_t text;
        };
        thread_local Head head;
        if (head.time != message.time || head.level != message.level) {
            head.time = message.time;
            head.level = message.level;
            head.text.clear();
            pattern.format(message, head.text);
        }
        line.append(head.text.begin(), head.text.end());
        line.append(message.payload.begin(), message.payload.end());
        const std::string_view end = "\r\n";
        line.append(end.begin(), end.end());
    }

    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<LineFormatter>(); }

private:
    spdlog::pattern_formatter pattern{"[%H:%M:%S:%e] [%t] [%l] ", spdlog::pattern_time_type::local, ""};
};

std::shared_ptr<spdlog::logger> createFileLogger(const QString &loggerName, const QString &baseName)
{
    const QString file = settings().folder.absoluteFilePath(baseName) + ".log";
#ifdef SPDLOG_WCHAR_FILENAMES
    const spdlog::filename_t path = file.toStdWString();
#else
    const spdlog::filename_t path = QFile::encodeName(file).toStdString();
#endif
    return spdlog::synchronous_factory::create<TimedFileSink>(loggerName.toStdString(), path);
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

spdlog::logger *fileLoggerOf(const QMessageLogContext &context)
{
    const auto &own = settings().categories;
    if (!own.isEmpty()) {
        const auto logger = own.constFind(QByteArray(context.category));
        if (logger != own.cend())
            return logger->get();
    }
    return settings().file.get();
}

/// The name in a function's signature: from the blank behind the result's type up to the arguments.
std::string_view shortFunctionName(const char *signature)
{
    const std::string_view function(signature ? signature : "");
    const auto parenthesis = function.rfind('(');
    if (parenthesis == 0 || parenthesis == std::string_view::npos)
        return function;
    const auto blank = function.rfind(' ', parenthesis);
    const auto start = blank == std::string_view::npos ? 0 : blank;
    return function.substr(start, parenthesis - start);
}

void append(spdlog::memory_buf_t &line, std::string_view text)
{
    line.append(text.data(), text.data() + text.size());
}

/// Whether nobody can ever see what goes to standard output: it is closed, or it is the null device.
bool consoleLeadsNowhere()
{
#ifdef Q_OS_WIN
    return false;
#else
    struct stat output = {};
    struct stat null = {};
    if (fstat(fileno(stdout), &output) != 0)
        return true;
    return S_ISCHR(output.st_mode) && stat("/dev/null", &null) == 0 && output.st_rdev == null.st_rdev;
#endif
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

    settings().consoleLogger = spdlog::stdout_color_mt("console");
    settings().file = createFileLogger("logger", name);
    settings().categories.clear();
    for (const QString &category : categories)
        addCategory(category);

    spdlog::set_level(spdlog::level::debug);
    spdlog::flush_every(std::chrono::seconds(3));
    spdlog::set_formatter(std::make_unique<LineFormatter>());
    qInstallMessageHandler(&MyLog::messageHandler);
}

void MyLog::addCategory(QString category)
{
    auto &own = settings().categories;
    if (category == "default" || category == "console" || own.contains(category.toUtf8()))
        return;
    own.insert(category.toUtf8(), createFileLogger(QString("logger_%1").arg(category), category));
}

void MyLog::setConsole(bool on)
{
    settings().console.store(on && !consoleLeadsNowhere(), std::memory_order_relaxed);
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
    spdlog::logger *const file = fileLoggerOf(context);
    if (!file)
        return;
    const QByteArray bytes = log_text::withoutPictures(message).toLocal8Bit();
    std::string_view text(bytes.constData(), std::size_t(bytes.size()));
    if (type == QtInfoMsg)
        text = text.substr(0, settings().infoLimit);

    // "    ==>>(function:line)"; in a debug line a comma follows the number, and the file has three tabs in
    // place of the four blanks.
    spdlog::memory_buf_t place;
    append(place, "==>>(");
    append(place, shortFunctionName(context.function));
    place.push_back(':');
    append(place, std::string_view(fmt::format_int(context.line).c_str()));
    append(place, type == QtDebugMsg ? ",)" : ")");
    spdlog::memory_buf_t line;
    const auto now = spdlog::log_clock::now();
    const auto write = [&](spdlog::logger &logger, std::string_view gap) {
        line.clear();
        append(line, text);
        append(line, gap);
        append(line, {place.data(), place.size()});
        logger.log(now, {}, levelOf(type), spdlog::string_view_t(line.data(), line.size()));
    };
    if (settings().console.load(std::memory_order_relaxed))
        write(*settings().consoleLogger, "    ");
    write(*file, type == QtDebugMsg ? "\t\t\t" : "    ");
    if (type == QtFatalMsg)
        std::abort();
}

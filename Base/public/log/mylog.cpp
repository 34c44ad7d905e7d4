#include "mylog.h"

#include "picturetext.h"

#include <spdlog/sinks/daily_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <QFile>
#include <QHash>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <thread>
#include <tuple>
#include <unordered_map>

#ifndef Q_OS_WIN
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

template <class Buffer>
void append(Buffer &line, std::string_view text)
{
    const std::size_t end = line.size();
    line.resize(end + text.size()); // fmt's own appending goes byte by byte
    std::copy(text.begin(), text.end(), line.data() + end);
}

/// Gives lines on as messageHandler() has made them, so that no sink makes one under its lock.
class ReadyLine : public spdlog::formatter
{
public:
    void format(const spdlog::details::log_msg &message, spdlog::memory_buf_t &line) override
    {
        append(line, {message.payload.data(), message.payload.size()});
    }

    std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<ReadyLine>(); }
};

/// Held for less time than going to sleep and waking up takes: who finds it taken gives way some times first.
class BriefMutex
{
public:
    void lock()
    {
        constexpr int attempts = 20;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            if (mutex.try_lock())
                return;
            std::this_thread::yield();
        }
        mutex.lock();
    }
    bool try_lock() { return mutex.try_lock(); }
    void unlock() { mutex.unlock(); }

private:
    std::mutex mutex;
};

/// Takes lines as messageHandler() has made them.
class LineSink : public spdlog::sinks::sink
{
public:
    void log(const spdlog::details::log_msg &message) final
    {
        const std::lock_guard lock(mutex);
        write(message);
    }
    void flush() final
    {
        const std::lock_guard lock(mutex);
        flushLines();
    }
    void set_pattern(const std::string &) final {}
    void set_formatter(std::unique_ptr<spdlog::formatter>) final {}

protected:
    virtual void write(const spdlog::details::log_msg &message) = 0;
    virtual void flushLines() = 0;

    BriefMutex mutex;
};

/// Standard output that is a file or a pipe, where each write costs more than making a line does. A line goes
/// there at once when the last write is 2 ms ago. What comes sooner gathers, and goes 2 ms later.
class ConsoleSink : public LineSink
{
public:
    ConsoleSink() : writer([this] { writeWhatGathers(); }) {}
    ~ConsoleSink() override
    {
        {
            const std::lock_guard lock(mutex);
            ending = true;
        }
        wake.notify_one();
        writer.join();
    }

    ConsoleSink(const ConsoleSink &) = delete;
    ConsoleSink &operator=(const ConsoleSink &) = delete;

    /// For a process that crashes, in which the lock may be held for ever: then it is done without.
    void writeAtOnce()
    {
        std::unique_lock lock(mutex, std::try_to_lock);
        for (int attempt = 0; attempt < 100 && !lock; ++attempt) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            lock.try_lock();
        }
        gathering = false;
        flushLines();
    }

protected:
    void write(const spdlog::details::log_msg &message) override
    {
        const bool first = gathered.size() == 0;
        append(gathered, {message.payload.data(), message.payload.size()});
        if (!gathering || message.time - written >= interval || gathered.size() >= longest)
            flushLines();
        else if (first)
            wake.notify_one();
    }
    void flushLines() override
    {
        std::fwrite(gathered.data(), 1, gathered.size(), stdout);
        std::fflush(stdout);
        gathered.clear();
        written = spdlog::log_clock::now();
    }

private:
    void writeWhatGathers()
    {
        std::unique_lock lock(mutex);
        while (!ending) {
            wake.wait(lock, [this] { return ending || gathered.size() > 0; });
            wake.wait_for(lock, interval, [this] { return ending; });
            flushLines();
        }
    }

    static constexpr std::chrono::milliseconds interval{2};
    static constexpr std::size_t longest = 32 * 1024; // bytes

    spdlog::memory_buf_t gathered;
    spdlog::log_clock::time_point written; ///< the last time
    bool gathering = true;
    bool ending = false;
    std::condition_variable_any wake;
    std::thread writer;
};

struct Settings
{
    int level = 0;
    QString name = "AI";
    QDir folder = QDir(QDir::temp().filePath("Orelia/logs"));
    quint64 infoLimit = 10000;
    std::atomic<bool> console{false};
    // The registry has them too; each line takes them from here.
    std::shared_ptr<spdlog::logger> consoleLogger;
    std::shared_ptr<ConsoleSink> consoleSink; ///< none when the console is a terminal
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
class TimedFileSink : public LineSink
{
public:
    explicit TimedFileSink(const spdlog::filename_t &path) : file(path, 0, 0, false)
    {
        file.set_formatter(std::make_unique<ReadyLine>());
    }

protected:
    void write(const spdlog::details::log_msg &message) override
    {
        if (nextTry && std::chrono::steady_clock::now() < *nextTry)
            return;
        try {
            file.log(message);
            nextTry.reset();
        } catch (const spdlog::spdlog_ex &error) {
            if (std::strstr(error.what(), "Failed opening file"))
                nextTry = std::chrono::steady_clock::now() + std::chrono::seconds(1);
            throw;
        }
    }
    void flushLines() override { file.flush(); }

private:
    spdlog::sinks::daily_file_sink<spdlog::details::null_mutex, TimedFileName> file;
    std::optional<std::chrono::steady_clock::time_point> nextTry;
};

/// A line in the making. Most need no memory of the heap.
using Line = fmt::basic_memory_buffer<char, 1000>;

/// In UTF-8, and without pictures. Nearly every text is plain ASCII.
void appendText(Line &line, const QString &text)
{
    const std::size_t begin = line.size();
    line.resize(begin + std::size_t(text.size()));
    char *bytes = line.data() + begin;
    ushort units = 0;
    for (const QChar unit : text) {
        units |= unit.unicode();
        *bytes++ = static_cast<char>(unit.unicode());
    }
    if (units < 0x80 && !log_text::hasPicture({line.data() + begin, line.size() - begin}))
        return;
    line.resize(begin);
    const QByteArray converted = log_text::withoutPictures(text).toUtf8();
    append(line, {converted.constData(), std::size_t(converted.size())});
}

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

/// What the pattern "[%H:%M:%S:%e] [%t] [%l] " stands for, in local time.
void appendHead(Line &line, spdlog::log_clock::time_point now, spdlog::level::level_enum level)
{
    using namespace std::chrono;
    const auto time = duration_cast<milliseconds>(now.time_since_epoch());
    const auto second = duration_cast<seconds>(time);
    thread_local const std::string thread = fmt::format("] [{}] [", spdlog::details::os::thread_id());
    thread_local seconds formattedSecond{-1};
    thread_local std::string timeOfDay;
    if (second != formattedSecond) {
        formattedSecond = second;
        const std::tm local = spdlog::details::os::localtime(spdlog::log_clock::to_time_t(now));
        timeOfDay = fmt::format("[{:02}:{:02}:{:02}:", local.tm_hour, local.tm_min, local.tm_sec);
    }
    append(line, timeOfDay);
    const fmt::format_int thousandths(1000 + (time - second).count());
    append(line, {thousandths.data() + 1, 3});
    append(line, thread);
    const auto name = spdlog::level::to_string_view(level);
    append(line, {name.data(), name.size()});
    append(line, "] ");
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
std::string_view cutFunctionName(std::string_view function)
{
    const auto parenthesis = function.rfind('(');
    if (parenthesis == 0 || parenthesis == std::string_view::npos)
        return function;
    const auto blank = function.rfind(' ', parenthesis);
    const auto start = blank == std::string_view::npos ? 0 : blank;
    return function.substr(start, parenthesis - start);
}

/// A signature is a literal of the program, and each thread has it cut once.
std::string_view shortFunctionName(const char *signature)
{
    thread_local std::unordered_map<const void *, std::string_view> cut;
    const auto [name, isNew] = cut.try_emplace(signature);
    if (isNew && signature)
        name->second = cutFunctionName(signature);
    return name->second;
}

/// Where somebody reads, in colours, and each line at once.
bool isTerminal()
{
#ifdef Q_OS_WIN
    return true;
#else
    return isatty(fileno(stdout));
#endif
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

    if (isTerminal()) {
        settings().consoleLogger = spdlog::stdout_color_mt("console");
    } else {
        settings().consoleSink = std::make_shared<ConsoleSink>();
        settings().consoleLogger = std::make_shared<spdlog::logger>("console", settings().consoleSink);
        spdlog::register_logger(settings().consoleLogger);
        static const int registered = std::atexit(&MyLog::writeAtOnce);
        static_cast<void>(registered);
    }
    settings().file = createFileLogger("logger", name);
    settings().categories.clear();
    for (const QString &category : categories)
        addCategory(category);

    spdlog::set_level(spdlog::level::debug);
    spdlog::flush_every(std::chrono::seconds(3));
    spdlog::set_formatter(std::make_unique<ReadyLine>());
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

void MyLog::writeAtOnce()
{
    if (settings().consoleSink)
        settings().consoleSink->writeAtOnce();
}

void MyLog::messageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    const int rank = rankOf(type);
    if (rank < settings().level || rank == unknownRank)
        return;
    spdlog::logger *const file = fileLoggerOf(context);
    if (!file)
        return;
    const spdlog::level::level_enum level = levelOf(type);
    const auto now = spdlog::log_clock::now();
    Line line;
    appendHead(line, now, level);
    const std::size_t beginOfText = line.size();
    appendText(line, message);
    if (type == QtInfoMsg && line.size() - beginOfText > settings().infoLimit)
        line.resize(beginOfText + settings().infoLimit);
    const std::size_t endOfText = line.size();
    append(line, "    ==>>(");
    append(line, shortFunctionName(context.function));
    line.push_back(':');
    append(line, std::string_view(fmt::format_int(context.line).c_str()));
    append(line, type == QtDebugMsg ? ",)\r\n" : ")\r\n");

    const auto write = [&](spdlog::logger &logger) {
        logger.log(now, {}, level, spdlog::string_view_t(line.data(), line.size()));
    };
    if (settings().console.load(std::memory_order_relaxed))
        write(*settings().consoleLogger);
    if (type == QtDebugMsg) {
        // The file has three tabs in place of the four blanks.
        char *const gap = line.data() + endOfText;
        std::fill(gap, gap + 3, '\t');
        std::copy(gap + 4, line.data() + line.size(), gap + 3);
        line.resize(line.size() - 1);
    }
    write(*file);
    if (type == QtFatalMsg) {
        writeAtOnce();
        std::abort();
    }
}

#include "noiselog.h"

#include <QByteArrayList>

#include <cstdio>
#include <thread>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace noiselog {

namespace {

std::FILE *console = stderr;

#ifdef Q_OS_UNIX
constexpr int longestLine = 8192;
constexpr long largestLog = 10 << 20; // bytes; one as large remains beside it

std::FILE *openLog(const QByteArray &path)
{
    const int handle = open(path.constData(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    return handle < 0 ? nullptr : fdopen(handle, "a");
}

void writeLine(std::FILE *target, QByteArray line, const QByteArrayList &secrets)
{
    for (const QByteArray &secret : secrets)
        line.replace(secret, "***");
    std::fwrite(line.constData(), 1, size_t(line.size()), target);
    std::fputc('\n', target);
    std::fflush(target);
}

/// A line that is longer than the limit is dropped: its parts might cut a secret in two.
void takeOver(int source, std::FILE *target, const QByteArray &path, const QByteArrayList &secrets)
{
    QByteArray line;
    bool tooLong = false;
    char bytes[4096];
    for (ssize_t count; (count = read(source, bytes, sizeof bytes)) > 0;) {
        if (!target)
            continue;
        for (ssize_t i = 0; i < count; ++i) {
            if (bytes[i] != '\n') {
                tooLong = tooLong || line.size() >= longestLine;
                if (!tooLong)
                    line.append(bytes[i]);
                continue;
            }
            if (!tooLong && target)
                writeLine(target, line, secrets);
            line.clear();
            tooLong = false;
            if (target && std::ftell(target) > largestLog) {
                std::fclose(target);
                std::rename(path.constData(), (path + ".1").constData());
                target = openLog(path);
            }
        }
    }
}
#endif

} // namespace

bool begin(const QString &file, const QStringList &secrets, QString &error)
{
#ifdef Q_OS_UNIX
    std::FILE *target = nullptr;
    const QByteArray path = file.toLocal8Bit();
    if (!file.isEmpty()) {
        target = openLog(path);
        if (!target) {
            error = QStringLiteral("cannot write %1").arg(file);
            return false;
        }
    }
    int ends[2];
    const int former = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    std::FILE *const kept = former < 0 ? nullptr : fdopen(former, "w");
    if (!kept || pipe2(ends, O_CLOEXEC) != 0) {
        error = QStringLiteral("no file descriptors are left");
        return false;
    }
    setvbuf(kept, nullptr, _IOLBF, BUFSIZ);
    console = kept;
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    QByteArrayList forms;
    for (const QString &secret : secrets)
        forms.append(secret.toUtf8());
    std::thread(takeOver, ends[0], target, path, forms).detach();
#else
    Q_UNUSED(file)
    Q_UNUSED(secrets)
    Q_UNUSED(error)
#endif
    return true;
}

void say(const QString &text)
{
    std::fprintf(console, "camerafeed: %s\n", qPrintable(text));
    std::fflush(console);
}

} // namespace noiselog

// Preloaded into the process under test: fails the writes of the store, holds up those of videos, and puts
// the wall clock off, as the mapped FaultControl says. Only files whose path contains "ai.data" fail.
#include "faultcontrol.h"

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <string>
#include <sys/time.h>

namespace {

FaultControl *control()
{
    static FaultControl *const mapped = FaultControl::map(std::getenv("AI_FAULTS"));
    return mapped;
}

template <class Function>
Function *original(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool isWatched(const char *path)
{
    return path && std::strstr(path, "ai.data");
}

std::string pathOf(int file)
{
    char path[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    return readlink(link.c_str(), path, sizeof path - 1) > 0 ? path : "";
}

bool isWatched(int file)
{
    return isWatched(pathOf(file).c_str());
}

void waitWhileFrozen(int file)
{
    while (control() && control()->frozen && pathOf(file).find(".mp4") != std::string::npos)
        usleep(10000);
}

/// Counts a change of a watched file and tells whether it is to fail, with errno set.
bool fails()
{
    const int number = ++control()->writes;
    if (control()->failFrom == 0 || number < control()->failFrom || number > control()->failUntil)
        return false;
    ++control()->failed;
    errno = control()->error;
    return true;
}

template <class File>
bool failsOn(File file)
{
    const int error = errno;
    const bool failing = control() && isWatched(file) && fails();
    if (!failing)
        errno = error;
    return failing;
}

} // namespace

extern "C" {

ssize_t write(int file, const void *bytes, size_t count)
{
    static auto *const next = original<decltype(write)>("write");
    waitWhileFrozen(file);
    return failsOn(file) ? -1 : next(file, bytes, count);
}

ssize_t pwrite64(int file, const void *bytes, size_t count, off64_t offset)
{
    static auto *const next = original<decltype(pwrite64)>("pwrite64");
    return failsOn(file) ? -1 : next(file, bytes, count, offset);
}

// A process that is killed loses nothing that the system has, so nothing has to reach the disk here.
int fdatasync(int file)
{
    return failsOn(file) ? -1 : 0;
}

int fsync(int file)
{
    return failsOn(file) ? -1 : 0;
}

int ftruncate64(int file, off64_t length) noexcept
{
    static auto *const next = original<decltype(ftruncate64)>("ftruncate64");
    return failsOn(file) ? -1 : next(file, length);
}

int unlink(const char *path) noexcept
{
    static auto *const next = original<decltype(unlink)>("unlink");
    return failsOn(path) ? -1 : next(path);
}

int open64(const char *path, int flags, ...)
{
    static auto *const next = original<int(const char *, int, ...)>("open64");
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    if ((flags & O_CREAT) && failsOn(path))
        return -1;
    return next(path, flags, mode);
}

int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    static auto *const next = original<decltype(clock_gettime)>("clock_gettime");
    const int result = next(clock, time);
    if (result == 0 && clock == CLOCK_REALTIME && control())
        time->tv_sec += control()->clockSeconds;
    return result;
}

int gettimeofday(timeval *time, void *zone) noexcept
{
    static auto *const next = original<decltype(gettimeofday)>("gettimeofday");
    const int result = next(time, zone);
    if (result == 0 && control())
        time->tv_sec += control()->clockSeconds;
    return result;
}
}

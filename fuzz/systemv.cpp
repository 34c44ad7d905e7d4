#include "systemv.h"

#include <cerrno>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#define FUZZ_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FUZZ_ADDRESS_SANITIZER
#endif
#endif

#ifdef FUZZ_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address), static_cast<void>(size))
#endif

namespace {

const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));

struct Segment
{
    key_t key;
    std::size_t size;
    int file;
    int attachments;
    bool removed;

    std::size_t mappedSize() const { return (size + page - 1) / page * page; }
};

struct Attachment
{
    int segment;
    char *start; ///< of the page that nobody may touch; the pages of the segment and another such page follow
    std::size_t length;
};

std::mutex lock;
std::map<int, Segment> segments;
std::map<const void *, Attachment> attachments;
int nextId = 1;
std::function<bool()> semaphoreHook;

int failed(int error)
{
    errno = error;
    return -1;
}

void removeUnused(std::map<int, Segment>::iterator segment)
{
    if (!segment->second.removed || segment->second.attachments > 0)
        return;
    close(segment->second.file);
    segments.erase(segment);
}

/// The mapping, or null.
char *map(const Segment &segment, bool readOnly)
{
    const std::size_t length = segment.mappedSize() + 2 * page;
    void *const start = mmap(nullptr, length, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED)
        return nullptr;
    char *const pages = static_cast<char *>(start) + page;
    if (mmap(pages, segment.mappedSize(), readOnly ? PROT_READ : PROT_READ | PROT_WRITE,
             MAP_SHARED | MAP_FIXED, segment.file, 0) == MAP_FAILED) {
        munmap(start, length);
        return nullptr;
    }
    ASAN_POISON_MEMORY_REGION(pages, segment.mappedSize() - segment.size);
    return static_cast<char *>(start);
}

} // namespace

void systemv::setSemaphoreHook(std::function<bool()> hook)
{
    std::lock_guard<std::mutex> locker(lock);
    semaphoreHook = std::move(hook);
}

extern "C" {

int shmget(key_t key, std::size_t size, int flags) noexcept
{
    std::lock_guard<std::mutex> locker(lock);
    for (const auto &[id, segment] : segments) {
        if (segment.key == key && !segment.removed)
            return flags & IPC_EXCL ? failed(EEXIST) : size > segment.size ? failed(EINVAL) : id;
    }
    if (!(flags & IPC_CREAT))
        return failed(ENOENT);
    Segment segment{key, size, memfd_create("segment", 0), 0, false};
    if (size == 0 || segment.file < 0 ||
        ftruncate(segment.file, static_cast<off_t>(segment.mappedSize())) != 0)
        return failed(EINVAL);
    segments.emplace(nextId, segment);
    return nextId++;
}

void *shmat(int id, const void *, int flags) noexcept
{
    std::lock_guard<std::mutex> locker(lock);
    const auto found = segments.find(id);
    char *const start = found == segments.end() ? nullptr : map(found->second, (flags & SHM_RDONLY) != 0);
    if (!start) {
        errno = EINVAL;
        return reinterpret_cast<void *>(-1);
    }
    Segment &segment = found->second;
    ++segment.attachments;
    char *const address = start + page + segment.mappedSize() - segment.size;
    attachments[address] = {id, start, segment.mappedSize() + 2 * page};
    return address;
}

int shmdt(const void *address) noexcept
{
    std::lock_guard<std::mutex> locker(lock);
    const auto found = attachments.find(address);
    if (found == attachments.end())
        return failed(EINVAL);
    const Attachment attachment = found->second;
    attachments.erase(found);
    ASAN_UNPOISON_MEMORY_REGION(attachment.start, attachment.length);
    munmap(attachment.start, attachment.length);
    const auto segment = segments.find(attachment.segment);
    --segment->second.attachments;
    removeUnused(segment);
    return 0;
}

int shmctl(int id, int command, shmid_ds *status) noexcept
{
    std::lock_guard<std::mutex> locker(lock);
    const auto found = segments.find(id);
    if (found == segments.end())
        return failed(EINVAL);
    if (command == IPC_STAT) {
        *status = {};
        status->shm_segsz = found->second.size;
        status->shm_nattch = static_cast<shmatt_t>(found->second.attachments);
    } else if (command == IPC_RMID) {
        found->second.removed = true;
        removeUnused(found);
    }
    return 0;
}

int semget(key_t, int, int) noexcept
{
    return 1;
}

int semctl(int, int, int, ...) noexcept
{
    return 0;
}

int semop(int, sembuf *, std::size_t) noexcept
{
    std::unique_lock<std::mutex> locker(lock);
    const auto hook = semaphoreHook;
    locker.unlock();
    return !hook || hook() ? 0 : failed(ERANGE);
}

} // extern "C"

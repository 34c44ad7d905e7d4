#include "heap.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace heap {

void keepFreed()
{
#ifdef __GLIBC__
    constexpr int megabyte = 1024 * 1024;
    mallopt(M_MMAP_THRESHOLD, 32 * megabyte); // the most that it takes
    mallopt(M_TRIM_THRESHOLD, 256 * megabyte);
    mallopt(M_ARENA_MAX, 4);
#endif
}

void giveBack()
{
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

} // namespace heap

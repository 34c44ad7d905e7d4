#pragma once

#include <functional>

/**
 * Shared memory and semaphores of this process alone, in the place of the system's: the program that links
 * systemv.cpp defines shmget, shmat, semop and the rest, and QSharedMemory calls those.
 *
 * A fuzzer that is killed leaves nothing in the kernel, and a segment ends where it ends: its last byte lies
 * against a page that nobody may touch, a read-only attachment can't be written, and under
 * AddressSanitizer the rest of the first page is out of bounds too. (The system's own segments are rounded
 * up to whole pages and may lie beside each other.)
 */
namespace systemv {

/// Called for each change of a semaphore, on the thread that makes it; false makes the change fail. Without
/// one, all succeed. Nothing ever waits.
void setSemaphoreHook(std::function<bool()> hook);

} // namespace systemv

#pragma once

#include <array>
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

/// What a faulty recogniser does with the next call. `works` finds the same three people in every picture.
enum class Behaviour : int
{
    works,
    throws,        ///< a standard exception
    throwsNumber,  ///< something that is no exception class
    garbage,       ///< what the fuzzers let them give: any values, NaN, lists and features that don't fit
    hangs,         ///< doesn't return until the behaviour is changed
    slow,          ///< works, but takes two seconds
    crashes,       ///< reads from nowhere
    refusesToLoad, ///< create() throws
};

/// The classes of recognisers, as indices of FaultControl's arrays.
enum RecogniserClass
{
    faceDetection,
    faceId,
    bodyDetection,
    bodyPose,
    handup,
    emotion,
    attributes,
    recogniserClasses
};

/**
 * What a test and the process that it torments have in common: a file that both map. The environment
 * variable AI_FAULTS names it for the process; without it everything works.
 *
 * All members are atomics: the test changes them while the process runs.
 */
struct FaultControl
{
    std::array<std::atomic<int>, recogniserClasses> behaviour{};
    std::array<std::atomic<int>, recogniserClasses> calls{};   ///< calls that were begun
    std::array<std::atomic<int>, recogniserClasses> hanging{}; ///< calls that don't return now

    std::atomic<int> writes{0};         ///< calls that would have changed a watched file, so far
    std::atomic<int> failFrom{0};       ///< the first of them, from 1, that fails; 0 for none
    std::atomic<int> failUntil{0};      ///< the last of them that fails
    std::atomic<int> failed{0};         ///< how many did fail
    std::atomic<int> error{0};          ///< the errno that they fail with
    std::atomic<bool> frozen{false};    ///< writes to a video don't return as long as this holds
    std::atomic<long> clockSeconds{0};  ///< by which the wall clock is off
    std::atomic<long> steadySeconds{0}; ///< by which the steady clock is off

    /// Maps the file, which is made when it isn't there. Null when that fails. Stays for the process's life.
    static FaultControl *map(const char *path)
    {
        const int file = path ? open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600) : -1;
        if (file < 0)
            return nullptr;
        void *memory = ftruncate(file, sizeof(FaultControl)) == 0
                           ? mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0)
                           : MAP_FAILED;
        close(file);
        return memory == MAP_FAILED ? nullptr : static_cast<FaultControl *>(memory);
    }
};

#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <type_traits>

/**
 * The page of counters, as it lies in the file "AICounters" in the temporary folder: the contract between the
 * service, which maps it and counts, and whoever maps it read-only and looks. Plain numbers in the byte order
 * of the machine. A change of anything here is a new version.
 *
 * Threads: each number by itself may be read and changed by any thread of any process, without a lock. Two
 * numbers that are read one after the other may belong to different moments.
 *
 * Times are nanoseconds of the machine's steady clock, which all processes share and which begins anew with
 * the machine; times of the wall clock say so.
 */
namespace counters {

constexpr char fileName[] = "AICounters";
constexpr char pageMagic[8] = {'A', 'I', 'C', 'O', 'U', 'N', 'T', '\0'};
constexpr std::uint32_t pageVersion = 1;

/// The time that is written into the page.
inline std::int64_t now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// One number of the page.
class Counter
{
public:
    void add(std::int64_t count = 1) { m_value.fetch_add(count, std::memory_order_relaxed); }
    void set(std::int64_t value) { m_value.store(value, std::memory_order_relaxed); }
    /// Sets it to a value that is larger.
    void raise(std::int64_t value)
    {
        std::int64_t present = m_value.load(std::memory_order_relaxed);
        while (present < value && !m_value.compare_exchange_weak(present, value, std::memory_order_relaxed)) {
        }
    }
    std::int64_t value() const { return m_value.load(std::memory_order_relaxed); }

private:
    std::atomic<std::int64_t> m_value{0};
};
static_assert(sizeof(Counter) == 8 && std::atomic<std::int64_t>::is_always_lock_free);

constexpr std::size_t cacheLine = 64;
constexpr std::size_t nameBytes = 32;

/// What begins each row. The name is UTF-8 and ends with a zero byte.
struct RowHead
{
    char name[nameBytes];
    /// Of a request its kind in the upper half and its code in the lower one; of an event its code; of others
    /// a number of the service's own; -1 of the row for all the rest.
    std::int64_t key;
};

/// One that takes frames of the camera: an analysis, or the recorder. Every offered frame ends in exactly one
/// of `handled` and the reasons for which it was skipped; until then it is in `queued`, or in hand.
struct alignas(cacheLine) AnalysisRow
{
    RowHead head;
    Counter offered;
    Counter handled;
    Counter skippedInterval; ///< not one that it is to look at: only each n-th
    Counter skippedQueue;    ///< too many were waiting already
    Counter skippedStopped;  ///< it was not running
    Counter skippedUnusable; ///< no picture could be made of it
    Counter queued;          ///< waiting now
    Counter time;            ///< of all handled frames together
    Counter longest;         ///< of one handled frame
};

struct alignas(cacheLine) RecogniserRow
{
    RowHead head;
    Counter calls;
    Counter failed;  ///< threw, or delivered what can't be; both stand in the log, too
    Counter time;    ///< of all calls together, without the waiting for a turn
    Counter longest; ///< of one call
    Counter waited;  ///< of all calls, for their turn
};

/// The times of a request are those from its arrival to its reply, waiting included.
struct alignas(cacheLine) RequestRow
{
    RowHead head;
    Counter requests;
    Counter failed; ///< answered with an error
    Counter time;
    Counter longest;
};

struct alignas(cacheLine) EventRow
{
    RowHead head;
    Counter events;
    Counter newest; ///< when the last one was sent; 0 before the first
};

/// Frames that came out of the camera's segment. Each was taken, or skipped for one reason.
struct alignas(cacheLine) Frames
{
    Counter read;
    Counter taken; ///< went on to the analyses
    Counter skippedSize;
    Counter skippedFormat; ///< or fewer bytes than the size needs
    Counter newest;        ///< when the last one was taken; 0 before the first
};

struct alignas(cacheLine) Traffic
{
    Counter connections; ///< now
    Counter connectionsEver;
    Counter requestsUnderWay; ///< now
    Counter waitingMessages;  ///< now, for all clients together
    Counter waitingBytes;     ///< now
    Counter sentMessages;
    Counter sentBytes;
    Counter droppedMessages; ///< for clients that did not read
};

struct alignas(cacheLine) Store
{
    Counter statements;
    Counter failed; ///< statements, and openings of the file
    Counter time;
    Counter longest;
};

/// Rows that are there from the start on. The first one is for all that has no row of its own.
template <class Row, std::size_t n>
struct alignas(cacheLine) Rows
{
    static constexpr std::size_t most = n;

    std::atomic<std::uint64_t> used{0}; ///< a row's head is written before it is counted here
    Row rows[n];
};

struct Page
{
    char magic[sizeof pageMagic];
    std::uint32_t version;
    std::uint32_t size; ///< bytes of all this

    std::int64_t process;
    std::int64_t processStart; ///< "starttime" of /proc/PID/stat; 0 where there is none
    std::int64_t startTime;    ///< milliseconds since 1970
    std::int64_t restarts;     ///< services that had this page before
    std::int64_t crashes;      ///< those of them that did not end in order
    Counter endTime;           ///< milliseconds since 1970; 0 until the service has ended in order

    Frames frames;
    Traffic traffic;
    Store store;
    Rows<AnalysisRow, 16> analyses;
    Rows<RecogniserRow, 16> recognisers;
    Rows<RequestRow, 40> requests;
    Rows<EventRow, 24> events;
};

// clang-format off
static_assert(std::is_standard_layout_v<Page>);
static_assert(offsetof(Page, version) == 8 && offsetof(Page, size) == 12 && offsetof(Page, process) == 16);
static_assert(offsetof(Page, processStart) == 24 && offsetof(Page, startTime) == 32);
static_assert(offsetof(Page, restarts) == 40 && offsetof(Page, crashes) == 48 && offsetof(Page, endTime) == 56);
static_assert(offsetof(Page, frames) == 64 && sizeof(Frames) == 64);
static_assert(offsetof(Page, traffic) == 128 && sizeof(Traffic) == 64);
static_assert(offsetof(Page, store) == 192 && sizeof(Store) == 64);
static_assert(offsetof(Page, analyses) == 256 && sizeof(AnalysisRow) == 128);
static_assert(offsetof(Page, recognisers) == 2368 && sizeof(RecogniserRow) == 128);
static_assert(offsetof(Page, requests) == 4480 && sizeof(RequestRow) == 128);
static_assert(offsetof(Page, events) == 9664 && sizeof(EventRow) == 64);
static_assert(offsetof(decltype(Page::analyses), used) == 0 && offsetof(decltype(Page::analyses), rows) == 64);
static_assert(sizeof(Page) == 11264);

static_assert(offsetof(Frames, read) == 0 && offsetof(Frames, taken) == 8 && offsetof(Frames, skippedSize) == 16);
static_assert(offsetof(Frames, skippedFormat) == 24 && offsetof(Frames, newest) == 32);
static_assert(offsetof(Traffic, connections) == 0 && offsetof(Traffic, connectionsEver) == 8);
static_assert(offsetof(Traffic, requestsUnderWay) == 16 && offsetof(Traffic, waitingMessages) == 24);
static_assert(offsetof(Traffic, waitingBytes) == 32 && offsetof(Traffic, sentMessages) == 40);
static_assert(offsetof(Traffic, sentBytes) == 48 && offsetof(Traffic, droppedMessages) == 56);
static_assert(offsetof(Store, statements) == 0 && offsetof(Store, failed) == 8);
static_assert(offsetof(Store, time) == 16 && offsetof(Store, longest) == 24);

static_assert(offsetof(RowHead, name) == 0 && offsetof(RowHead, key) == 32 && sizeof(RowHead) == 40);
static_assert(offsetof(AnalysisRow, offered) == 40 && offsetof(AnalysisRow, handled) == 48);
static_assert(offsetof(AnalysisRow, skippedInterval) == 56 && offsetof(AnalysisRow, skippedQueue) == 64);
static_assert(offsetof(AnalysisRow, skippedStopped) == 72 && offsetof(AnalysisRow, skippedUnusable) == 80);
static_assert(offsetof(AnalysisRow, queued) == 88 && offsetof(AnalysisRow, time) == 96);
static_assert(offsetof(AnalysisRow, longest) == 104);
static_assert(offsetof(RecogniserRow, calls) == 40 && offsetof(RecogniserRow, failed) == 48);
static_assert(offsetof(RecogniserRow, time) == 56 && offsetof(RecogniserRow, longest) == 64);
static_assert(offsetof(RecogniserRow, waited) == 72);
static_assert(offsetof(RequestRow, requests) == 40 && offsetof(RequestRow, failed) == 48);
static_assert(offsetof(RequestRow, time) == 56 && offsetof(RequestRow, longest) == 64);
static_assert(offsetof(EventRow, events) == 40 && offsetof(EventRow, newest) == 48);
// clang-format on

} // namespace counters

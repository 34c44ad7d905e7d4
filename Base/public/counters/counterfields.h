#pragma once

#include "counterspage.h"

#include <algorithm>
#include <limits>

/**
 * The numbers of the page with their names, for all who show them: `aictl top`, the bridge's metrics, and
 * docs/counters.md, which is checked against it.
 */
namespace counters {

enum class Unit
{
    Total,   ///< counts up
    Gauge,   ///< as it is now
    Time,    ///< nanoseconds, counts up
    Longest, ///< nanoseconds
    Newest   ///< a moment; shown is how long ago it was, and nothing before the first
};

template <class Row>
struct Field
{
    const char *name;   ///< in the JSON of `aictl top`
    const char *metric; ///< for Prometheus
    const char *reason; ///< its label of this name; null without one
    Unit unit;
    const char *meaning;
    Counter Row::*counter;
};

// clang-format off
inline constexpr Field<Frames> frameFields[] = {
    {"read", "aiservice_frames_read_total", nullptr, Unit::Total,
     "Frames read from the camera's segment", &Frames::read},
    {"taken", "aiservice_frames_taken_total", nullptr, Unit::Total,
     "Frames that went on to the analyses", &Frames::taken},
    {"skipped_size", "aiservice_frames_skipped_total", "size", Unit::Total,
     "Frames that went nowhere, by reason", &Frames::skippedSize},
    {"skipped_format", "aiservice_frames_skipped_total", "format", Unit::Total,
     "Frames that went nowhere, by reason", &Frames::skippedFormat},
    {"age", "aiservice_frame_age_seconds", nullptr, Unit::Newest,
     "Time since the newest frame was taken", &Frames::newest},
};

inline constexpr Field<AnalysisRow> analysisFields[] = {
    {"offered", "aiservice_analysis_frames_total", nullptr, Unit::Total,
     "Frames offered to an analysis", &AnalysisRow::offered},
    {"handled", "aiservice_analysis_handled_total", nullptr, Unit::Total,
     "Frames that an analysis has looked at", &AnalysisRow::handled},
    {"skipped_interval", "aiservice_analysis_skipped_total", "interval", Unit::Total,
     "Frames that an analysis has not looked at, by reason", &AnalysisRow::skippedInterval},
    {"skipped_queue", "aiservice_analysis_skipped_total", "queue", Unit::Total,
     "Frames that an analysis has not looked at, by reason", &AnalysisRow::skippedQueue},
    {"skipped_stopped", "aiservice_analysis_skipped_total", "stopped", Unit::Total,
     "Frames that an analysis has not looked at, by reason", &AnalysisRow::skippedStopped},
    {"skipped_unusable", "aiservice_analysis_skipped_total", "unusable", Unit::Total,
     "Frames that an analysis has not looked at, by reason", &AnalysisRow::skippedUnusable},
    {"queued", "aiservice_analysis_queued_frames", nullptr, Unit::Gauge,
     "Frames that wait for an analysis", &AnalysisRow::queued},
    {"seconds", "aiservice_analysis_seconds_total", nullptr, Unit::Time,
     "Time that an analysis has spent on the frames that it looked at", &AnalysisRow::time},
    {"longest", "aiservice_analysis_longest_seconds", nullptr, Unit::Longest,
     "Longest time that an analysis has spent on a frame", &AnalysisRow::longest},
};

inline constexpr Field<RecogniserRow> recogniserFields[] = {
    {"calls", "aiservice_recogniser_calls_total", nullptr, Unit::Total,
     "Calls of a recogniser", &RecogniserRow::calls},
    {"failed", "aiservice_recogniser_failures_total", nullptr, Unit::Total,
     "Calls of a recogniser that failed", &RecogniserRow::failed},
    {"seconds", "aiservice_recogniser_seconds_total", nullptr, Unit::Time,
     "Time spent in a recogniser", &RecogniserRow::time},
    {"longest", "aiservice_recogniser_longest_seconds", nullptr, Unit::Longest,
     "Longest call of a recogniser", &RecogniserRow::longest},
    {"waited", "aiservice_recogniser_wait_seconds_total", nullptr, Unit::Time,
     "Time that analyses and commands have waited for their turn with a recogniser", &RecogniserRow::waited},
};

inline constexpr Field<RequestRow> requestFields[] = {
    {"requests", "aiservice_requests_total", nullptr, Unit::Total,
     "Requests answered", &RequestRow::requests},
    {"failed", "aiservice_request_failures_total", nullptr, Unit::Total,
     "Requests answered with an error", &RequestRow::failed},
    {"seconds", "aiservice_request_seconds_total", nullptr, Unit::Time,
     "Time from the arrival of requests to their replies", &RequestRow::time},
    {"longest", "aiservice_request_longest_seconds", nullptr, Unit::Longest,
     "Longest time from the arrival of a request to its reply", &RequestRow::longest},
};

inline constexpr Field<EventRow> eventFields[] = {
    {"events", "aiservice_events_total", nullptr, Unit::Total,
     "Events sent, whatever the number of clients", &EventRow::events},
    {"age", "aiservice_event_age_seconds", nullptr, Unit::Newest,
     "Time since the newest event", &EventRow::newest},
};

inline constexpr Field<Traffic> trafficFields[] = {
    {"connections", "aiservice_connections", nullptr, Unit::Gauge,
     "Clients that are connected", &Traffic::connections},
    {"connections_ever", "aiservice_connections_total", nullptr, Unit::Total,
     "Clients that have connected", &Traffic::connectionsEver},
    {"requests_under_way", "aiservice_requests_under_way", nullptr, Unit::Gauge,
     "Requests that run or wait", &Traffic::requestsUnderWay},
    {"waiting_messages", "aiservice_waiting_messages", nullptr, Unit::Gauge,
     "Replies and events that wait to be written", &Traffic::waitingMessages},
    {"waiting_bytes", "aiservice_waiting_bytes", nullptr, Unit::Gauge,
     "Bytes of the replies and events that wait to be written", &Traffic::waitingBytes},
    {"sent_messages", "aiservice_sent_messages_total", nullptr, Unit::Total,
     "Replies and events written to clients", &Traffic::sentMessages},
    {"sent_bytes", "aiservice_sent_bytes_total", nullptr, Unit::Total,
     "Bytes written to clients", &Traffic::sentBytes},
    {"dropped_messages", "aiservice_dropped_messages_total", nullptr, Unit::Total,
     "Replies and events dropped because a client did not read or had gone", &Traffic::droppedMessages},
};

inline constexpr Field<Store> storeFields[] = {
    {"statements", "aiservice_store_statements_total", nullptr, Unit::Total,
     "Statements of the store", &Store::statements},
    {"failed", "aiservice_store_failures_total", nullptr, Unit::Total,
     "Statements of the store and openings of its file that failed", &Store::failed},
    {"seconds", "aiservice_store_seconds_total", nullptr, Unit::Time,
     "Time spent in statements of the store", &Store::time},
    {"longest", "aiservice_store_longest_seconds", nullptr, Unit::Longest,
     "Longest statement of the store", &Store::longest},
};
// clang-format on

constexpr double nanosecondsPerSecond = 1e9;

/// The number to be shown: counts as they are, times in seconds; not a number where there is nothing to show.
/// @param now of the steady clock
inline double shown(Unit unit, const Counter &counter, std::int64_t now)
{
    const std::int64_t value = counter.value();
    switch (unit) {
    case Unit::Time:
    case Unit::Longest:
        return double(value) / nanosecondsPerSecond;
    case Unit::Newest:
        return value == 0 ? std::numeric_limits<double>::quiet_NaN()
                          : double(std::max<std::int64_t>(0, now - value)) / nanosecondsPerSecond;
    case Unit::Total:
    case Unit::Gauge:
        break;
    }
    return double(value);
}

/// Where a number stands.
struct Place
{
    const char *section;          ///< in the JSON of `aictl top`
    const char *label = nullptr;  ///< for Prometheus, of the row's name
    bool hasCode = false;         ///< rows are of requests or events
    const RowHead *row = nullptr; ///< null for what is counted of the service as a whole

    /// Of the request or event; 0 without one.
    unsigned code() const { return hasCode && row && row->key > 0 ? static_cast<unsigned>(row->key) : 0; }
};

/// Calls visit(place, field, counter) for every number of a page, row after row.
template <class Visit>
void forEach(const Page &page, Visit visit)
{
    const auto eachField = [&visit](const Place &place, const auto &fields, const auto &row) {
        for (const auto &field : fields)
            visit(place, field, row.*field.counter);
    };
    const auto eachRow = [&eachField](Place place, const auto &fields, const auto &table) {
        const std::uint64_t used =
            std::min<std::uint64_t>(table.used.load(std::memory_order_acquire), table.most);
        for (std::uint64_t i = 0; i < used; ++i) {
            place.row = &table.rows[i].head;
            eachField(place, fields, table.rows[i]);
        }
    };
    constexpr bool withCodes = true;
    eachField({"frames"}, frameFields, page.frames);
    eachField({"traffic"}, trafficFields, page.traffic);
    eachField({"store"}, storeFields, page.store);
    eachRow({"analyses", "analysis"}, analysisFields, page.analyses);
    eachRow({"recognisers", "recogniser"}, recogniserFields, page.recognisers);
    eachRow({"requests", "request", withCodes}, requestFields, page.requests);
    eachRow({"events", "event", withCodes}, eventFields, page.events);
}

} // namespace counters

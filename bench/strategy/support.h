#pragma once

#include <benchmark/benchmark.h>

#include <QtGlobal>

#include <ctime>

/// Processor seconds of a thread, by default of the calling one. Other programs on the machine don't count.
inline double processorSeconds(clockid_t clock = CLOCK_THREAD_CPUTIME_ID)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

template <class Work>
double processorSecondsOf(Work work)
{
    const double start = processorSeconds();
    work();
    return processorSeconds() - start;
}

/// The log of the whole program: every message is formatted, counted and dropped.
namespace dropped_log {

void install();

/// What formatting has cost the calling thread since the last call, in seconds: the number of its messages
/// times the price of a usual one, which is measured here.
double takeSeconds();

} // namespace dropped_log

/// Ours and the bare operation, measured in turn; the first one finds colder caches, so they change places.
class Comparison
{
public:
    template <class Ours, class Bare>
    void measure(Ours ours, Bare bare)
    {
        m_oursFirst = !m_oursFirst;
        if (!m_oursFirst)
            m_bare += processorSecondsOf(bare);
        dropped_log::takeSeconds();
        m_ours += processorSecondsOf(ours);
        m_log += dropped_log::takeSeconds();
        if (m_oursFirst)
            m_bare += processorSecondsOf(bare);
    }

    /// The counters in microseconds of one iteration, and two ratios: of what is left of ours without the
    /// log, and of all of it.
    void report(benchmark::State &state) const
    {
        const double scale = 1e6 / static_cast<double>(state.iterations());
        state.counters["ours_us"] = m_ours * scale;
        state.counters["bare_us"] = m_bare * scale;
        state.counters["log_us"] = m_log * scale;
        state.counters["ratio"] = (m_ours - m_log) / m_bare;
        state.counters["ratio_with_log"] = m_ours / m_bare;
    }

private:
    double m_ours = 0;
    double m_bare = 0;
    double m_log = 0;
    bool m_oursFirst = false;
};

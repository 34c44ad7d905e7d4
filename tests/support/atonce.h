#pragma once

#include <functional>
#include <thread>
#include <vector>

/// Runs each work so often, with the number of the round, on a thread of its own beside the others. What
/// needs a lock and has none comes to grief.
inline void atOnce(int rounds, const std::vector<std::function<void(int)>> &works)
{
    std::vector<std::thread> threads;
    threads.reserve(works.size());
    for (const auto &work : works) {
        threads.emplace_back([&work, rounds] {
            for (int round = 0; round < rounds; ++round)
                work(round);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

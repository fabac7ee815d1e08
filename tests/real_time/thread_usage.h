// SPDX-License-Identifier: MIT
// What the kernel has counted for the calling thread.
#pragma once

#include <algorithm>
#include <sys/resource.h>

namespace quorel {

struct ThreadUsage {
    long faults = 0; // pages that were not there when they were touched, whether or not a disk had them
    long waits = 0;  // times the thread gave the processor up by itself
};

inline ThreadUsage threadUsage() noexcept
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return {usage.ru_minflt + usage.ru_majflt, usage.ru_nvcsw};
}

// What a piece of work costs, each time with what `prepare` gives anew: the least of three attempts, since the system may take
// a page away at any moment for reasons of its own. What the work itself needs shows in every attempt.
template <typename Prepare, typename Work>
ThreadUsage leastUsage(Prepare prepare, Work work)
{
    ThreadUsage least;
    for (int attempt = 0; attempt < 3; ++attempt) {
        auto prepared = prepare();
        const auto before = threadUsage();
        work(*prepared);
        const auto after = threadUsage();
        const ThreadUsage usage{after.faults - before.faults, after.waits - before.waits};
        least = attempt == 0 ? usage : ThreadUsage{std::min(least.faults, usage.faults), std::min(least.waits, usage.waits)};
        if (least.faults == 0 && least.waits == 0)
            break;
    }
    return least;
}

} // namespace quorel

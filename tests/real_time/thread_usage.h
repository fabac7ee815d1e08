// What the kernel has counted for the calling thread.
#pragma once

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

} // namespace quorel

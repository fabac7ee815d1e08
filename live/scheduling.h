// SPDX-License-Identifier: MIT
// How the system schedules a thread, in words.
#pragma once

#include <sched.h>
#include <string>
#include <sys/types.h>

namespace quorel {

// Such as "FIFO 88", "round robin 20" or "normal"; "unknown" where there is no such thread. `thread`: its number at the system.
inline std::string schedulingOf(pid_t thread)
{
    sched_param priority{};
    if (sched_getparam(thread, &priority) != 0)
        return "unknown";
    switch (sched_getscheduler(thread) & ~SCHED_RESET_ON_FORK) {
    case SCHED_FIFO:
        return "FIFO " + std::to_string(priority.sched_priority);
    case SCHED_RR:
        return "round robin " + std::to_string(priority.sched_priority);
    default:
        return "normal";
    }
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// ChangeQueue holds what waits to be written and lets at most a hundred updates a second go: a slider that is moved from end to
// end gives a change a pixel, and of those of one field only the newest counts.
#pragma once

#include "panel/values.h"

#include <chrono>

namespace quorel {

class ChangeQueue {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr auto pause = std::chrono::milliseconds(10); // between two updates

    void add(const Changes& changes);

    // When the next update may go; nothing when none waits.
    std::optional<Time> due() const;

    // All that waits, as one update under the newest number; nothing before it is due.
    std::optional<Changes> take(Time now);

private:
    Changes waiting;
    Time next{}; // not before
};

// ---------------------------------------------------------------------------------------------------------------------

inline void ChangeQueue::add(const Changes& changes)
{
    for (const auto& [field, value] : changes.values)
        waiting.values[field] = value;
    waiting.number = changes.number;
}

inline std::optional<ChangeQueue::Time> ChangeQueue::due() const
{
    return waiting.values.empty() ? std::nullopt : std::optional(next);
}

inline std::optional<Changes> ChangeQueue::take(Time now)
{
    if (waiting.values.empty() || now < next)
        return std::nullopt;
    next = now + pause;
    Changes taken;
    std::swap(taken, waiting);
    return taken;
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// Memory that runs out: a program that has failing_memory.cpp counts its allocations, and one of them fails, or all from one on.
#pragma once

namespace quorel {

enum class Counted {
    all, // also what libraries in C take
    own, // what C++ takes by `new`
};

// The `first` of the program's allocations from now on fails, and with `onward` all behind it; 0: none.
void failAllocation(long first, bool onward, Counted counted = Counted::all) noexcept;

// Allocations since then.
long allocationsSince() noexcept;

} // namespace quorel

// SPDX-License-Identifier: MIT
// Memory that runs out: a program that has failing_memory.cpp counts its allocations by `new`, and one of them fails, or all from
// one on. With failing_malloc.cpp as well, which stands no sanitizer beside it, those of libraries in C can be meant too.
#pragma once

namespace quorel {

enum class Counted {
    all, // also what libraries in C take
    own, // what C++ takes by `new`
};

// The `first` of the program's allocations from now on fails, and with `onward` all behind it; 0: none.
void failAllocation(long first, bool onward, Counted counted) noexcept;

// Allocations since then, and whether one has failed.
long allocationsSince() noexcept;
bool allocationFailed() noexcept;

// Counts one, and tells whether it is to fail.
bool allocationFails(Counted kind) noexcept;

} // namespace quorel

// SPDX-License-Identifier: MIT
// A system that refuses: of what a thread asks of files, memory, locks and threads, one call fails without having done anything.
// What the compiler's library asks for itself is not counted. For programs that have failing_calls.cpp.
#pragma once

namespace quorel {

// The `first` of this thread's calls from now on fails with that error number; 0: none.
void failCall(long first, int error) noexcept;

bool callFailed() noexcept; // since then

} // namespace quorel

// SPDX-License-Identifier: MIT
// Counts the system calls that a piece of work makes, at the border of the kernel.
#pragma once

#include <functional>

namespace quorel {

// Prepares the work in a child process, then runs it there behind a filter that turns every system call into a signal.
// Returns how many there were, at most 100, or -1 when the child failed otherwise.
int systemCallsOf(const std::function<void()>& prepare, const std::function<void()>& work);

} // namespace quorel

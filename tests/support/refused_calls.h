// SPDX-License-Identifier: MIT
// What is tried with each of its calls of the system refused once. For programs that have failing_calls.cpp.
#pragma once

#include "tests/support/failing_calls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iterator>

namespace quorel {

// The work tells whether it was done. Whichever call is refused, no file stays open and the next time it is done. A call that is
// interrupted may be made once more.
inline void expectSafeWhenRefused(const std::function<bool()>& work)
{
    const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    EXPECT_TRUE(work());
    const auto before = openFiles();
    for (const int error : {EMFILE, ENOMEM, EINTR}) {
        long call = 1;
        for (bool failed = true; failed; ++call) {
            failCall(call, error);
            work();
            failed = callFailed();
            failCall(0, 0);
            ASSERT_EQ(openFiles(), before) << "call " << call << ": " << std::strerror(error);
            ASSERT_TRUE(work()) << "after call " << call << ": " << std::strerror(error);
        }
        EXPECT_GT(call, 2);
    }
}

} // namespace quorel

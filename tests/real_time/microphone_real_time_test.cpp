// SPDX-License-Identifier: MIT
// The audio thread's part of the capture effect neither allocates nor enters the kernel.
#include "tests/real_time/sessions.h"

#include "tests/real_time/watched_sessions.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

TEST(CaptureRealTime, ASessionOfAnyChannelCountAllocatesNothing)
{
    expectNoAllocation<MicrophoneSession>({16000, 48000});
}

#ifdef __linux__
TEST(CaptureRealTime, ASessionOfAnyChannelCountMakesNoSystemCall)
{
    expectNoSystemCall<MicrophoneSession>({16000, 48000});
}

TEST(CaptureRealTime, ASessionOfAnyChannelCountTouchesNoMissingPageAndNeverWaits)
{
    expectNoFaultNorWait<MicrophoneSession>({16000, 48000});
}
#endif

} // namespace
} // namespace quorel

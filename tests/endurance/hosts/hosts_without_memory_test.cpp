// SPDX-License-Identifier: MIT
// Each host of the effects where any of its allocations fails while it starts: it says so in the way that its caller knows, holds
// nothing, and the next one runs.
#include "live/effect_stream.h"
#include "live/path_change.h"
#include "tests/endurance/hosts/module_host.h"
#include "tests/live/plugin/plugin_host.h"
#include "tests/support/failing_memory.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <new>

namespace quorel {
namespace {

// Starts with the first allocation failing, the second and so on, until a start needs no more; `start` tells whether it did.
template <typename Start>
void failEach(Start start)
{
    for (const bool onward : {false, true})
        for (long first = 1;; ++first) {
            ASSERT_LT(first, 20000);
            failAllocation(first, onward, Counted::all);
            const bool started = start();
            const long needed = allocationsSince();
            EXPECT_EQ(allocationFailed(), first <= needed);
            failAllocation(0, false, Counted::all);
            if (first > needed) {
                EXPECT_TRUE(started);
                EXPECT_GT(first, 20); // else nothing was counted
                break;
            }
        }
}

TEST(WithoutMemory, TheModuleRefusesWithAResultAndStartsAgain)
{
    for (const bool render : {true, false}) {
        const ModuleHost::Endpoint endpoint(render);
        failEach([&] { return ModuleHost::starts(endpoint); });
    }
}

TEST(WithoutMemory, ALiveStreamIsNotBuiltAndTheNextOneIs)
{
    const auto settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    const std::atomic<bool> bypass = false;
    StreamStatus status;
    for (const bool microphone : {false, true}) {
        const StreamKind kind = microphone ? StreamKind{true, 1, 0x4} : StreamKind{};
        failEach([&] {
            try {
                EffectStream(kind, {240, 0}, settings, bypass, status);
                return true;
            } catch (const std::bad_alloc&) {
                return false;
            }
        });
    }
}

TEST(WithoutMemory, APluginIsNotInstantiatedAndTheNextOneIs)
{
    for (const bool microphone : {false, true}) {
        const LV2_Descriptor* descriptor = lv2_descriptor(microphone ? 1 : 0);
        const LV2_Feature* none[] = {nullptr};
        failEach([&] {
            const LV2_Handle made = descriptor->instantiate(descriptor, 48000, "", none);
            if (made == nullptr)
                return false;
            descriptor->activate(made); // another path, or the one that there is
            descriptor->cleanup(made);
            return true;
        });
    }
}

} // namespace
} // namespace quorel

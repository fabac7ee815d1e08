// SPDX-License-Identifier: MIT
#include "panel/change_queue.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

using namespace std::chrono_literals;
const SettingsField* const reverb = settingsField("Reverb");
const SettingsField* const gate = settingsField("noiseGate");

// 1000 changes in a second, looked for after each: at 0, 10, ... 990 ms an update goes, and one waits at the end.
TEST(ChangeQueue, LetsAHundredUpdatesASecondGo)
{
    ChangeQueue queue;
    ChangeQueue::Time now{};
    int updates = 0;
    std::int64_t newest = -1;
    for (std::uint64_t i = 0; i < 1000; ++i, now += 1ms) {
        queue.add({i + 1, {{reverb, static_cast<std::int64_t>(i % 256)}}});
        if (const auto taken = queue.take(now)) {
            ++updates;
            newest = taken->values.at(reverb);
            EXPECT_EQ(taken->number, i + 1);
        }
    }
    EXPECT_EQ(updates, 100);
    EXPECT_EQ(newest, 990 % 256);
    ASSERT_TRUE(queue.due().has_value());
    EXPECT_EQ(queue.take(*queue.due())->values.at(reverb), 999 % 256);
}

TEST(ChangeQueue, MergesFieldsAndKeepsTheNewestOfEach)
{
    ChangeQueue queue;
    queue.add({1, {{reverb, 1}, {gate, 2}}});
    queue.add({2, {{reverb, 3}}});
    const auto taken = queue.take(ChangeQueue::Time{});
    ASSERT_TRUE(taken.has_value());
    EXPECT_EQ(taken->values, (Values{{reverb, 3}, {gate, 2}}));
    EXPECT_EQ(taken->number, 2U);
}

TEST(ChangeQueue, GivesNothingTwiceAndNothingWithoutChanges)
{
    ChangeQueue queue;
    EXPECT_FALSE(queue.due().has_value());
    EXPECT_FALSE(queue.take(ChangeQueue::Time{}).has_value());
    queue.add({1, {{reverb, 1}}});
    EXPECT_TRUE(queue.take(ChangeQueue::Time{}).has_value());
    EXPECT_FALSE(queue.take(ChangeQueue::Time{} + 1h).has_value());
}

} // namespace
} // namespace quorel

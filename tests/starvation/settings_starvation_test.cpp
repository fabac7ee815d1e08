// SPDX-License-Identifier: MIT
// One allocation fails: at each place of a handler's life in turn, over the system's own platform layer, each time in a process
// of its own. Nothing hangs or crashes, and every kept value is one that somebody had chosen.
#include "settings/settings_handler.h"

#include "tests/process/child.h"
#include "tests/real_time/allocation_count.h"
#include "tests/support/control_application.h"
#include "tests/support/stamp.h"
#include "tests/support/temporary_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

namespace quorel {
namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;

// What a child ends with.
enum Outcome { noSuchAllocation = 10, goesOn = 11, startFailed = 12, wrong = 13 };

constexpr std::uint32_t kept = 60;  // the stamp that was kept before
constexpr std::uint32_t newer = 61; // the one that a child's control application sets

// ---- The child ----------------------------------------------------------------------------------------------------------

std::shared_ptr<SettingsHandler> start()
{
    return SettingsHandler::instance(SettingsHandler::layoutVersion);
}

SettingsRecord polled(SettingsHandler& handler)
{
    SettingsRecord record;
    handler.poll(record);
    return record;
}

bool update(SettingsHandler& handler, std::uint32_t stamp)
{
    ControlApplication control;
    const auto sequence = control.update(stamped(stamp));
    return eventually([&] { return polled(handler).blockSequence == sequence; });
}

// Keeps the newer stamp, without want of memory.
int end(std::shared_ptr<SettingsHandler> handler, Outcome outcome)
{
    return update(*handler, newer) ? outcome : wrong;
}

int runAsChild(const std::string& step, std::uint64_t number)
{
    if (step == "start" || step == "restart") {
        std::shared_ptr<SettingsHandler> handler;
        failAllocation(number);
        try {
            handler = start();
        } catch (const std::exception&) {
        }
        if (!failAllocation(0))
            return noSuchAllocation;
        if (step == "start")
            return handler ? goesOn : startFailed;
        return end(handler ? std::move(handler) : start(), goesOn); // the thread that failed may try again
    }

    auto handler = start();
    if (step == "poll") {
        SettingsRecord record;
        failAllocation(number);
        handler->poll(record);
        return failAllocation(0) ? end(handler, goesOn) : noSuchAllocation;
    }
    if (step == "update") {
        ControlApplication control;
        copySettings(stamped(newer), *control.block);
        control.changeSequence(1);
        failAllocation(number);
        SettingsRecord record;
        while (record.blockSequence != 1) {
            control.signal(); // once more where it failed
            platform::pause(1);
            handler->poll(record);
        }
        return failAllocation(0) ? goesOn : noSuchAllocation;
    }
    if (!update(*handler, newer))
        return wrong;
    failAllocation(number);
    handler.reset();
    return failAllocation(0) ? goesOn : noSuchAllocation;
}

// ---- The parent -----------------------------------------------------------------------------------------------------------

class Starved : public testing::Test {
protected:
    static int outcomeOf(const std::string& step, std::uint64_t number)
    {
        Child child(ownProgram(), {"--starve", step, std::to_string(number)});
        const auto outcome = child.exitCode(std::chrono::seconds(30));
        EXPECT_TRUE(outcome) << step << ' ' << number << " hangs";
        return outcome.value_or(wrong);
    }

    // Keeps the older stamp.
    static void keep()
    {
        platform::RegistryKey key = nullptr;
        ASSERT_EQ(platform::createKey(user, path, 0x20006, key), 0);
        for (const char* name : names)
            ASSERT_EQ(platform::setNumber(key, name, kept), 0);
        platform::closeKey(key);
    }

    // The kept values, each once.
    static std::set<std::uint32_t> keptValues()
    {
        std::set<std::uint32_t> values;
        platform::RegistryKey key = nullptr;
        const auto result = platform::openKey(user, path, 0x20019, key);
        EXPECT_EQ(result, 0);
        if (result != 0)
            return {};
        for (const char* name : names) {
            std::uint32_t value = 0;
            std::uint32_t bytes = sizeof value;
            EXPECT_EQ(platform::queryValue(key, name, &value, bytes), 0) << name;
            values.insert(value);
        }
        platform::closeKey(key);
        return values;
    }

    // Lets each allocation of a step fail. `fits` judges what is kept then. Returns how many there were.
    static std::uint64_t starve(const std::string& step, const testing::Matcher<std::set<std::uint32_t>>& fits)
    {
        for (std::uint64_t number = 1;; ++number) {
            const TemporaryHome home; // without what the child before left, which would cost allocations
            keep();
            const auto outcome = outcomeOf(step, number);
            if (outcome == noSuchAllocation)
                return number - 1;
            EXPECT_THAT(outcome, AnyOf(goesOn, startFailed)) << step << ' ' << number;
            EXPECT_THAT(keptValues(), fits) << step << ' ' << number;
            if (HasFailure())
                return number;
        }
    }

private:
    static constexpr const char* path = "Software\\VEDRA\\QUOREL";
    static constexpr std::array<const char*, 15> names{"Enabled", "Settings", "noiseGate", "micEq",   "Reverb",
                                                       "MicNR",   "EQBand1",  "EQBand2",   "EQBand3", "EQBand4",
                                                       "EQBand5", "EQBand6",  "EQBand7",   "EQBand8", "EQBand9"};
    inline static const platform::RegistryKey user = platform::rootKey(platform::RootKey::currentUser);
};

TEST_F(Starved, AStartThatFailsOrSucceedsLosesNoKeptValue)
{
    std::printf("%d allocations\n", static_cast<int>(starve("start", ElementsAre(kept))));
}

// What could not be read is not written over, so the older values may be the ones that stay.
TEST_F(Starved, TheThreadWhoseStartFailedMayTryAgain)
{
    EXPECT_GT(starve("restart", AnyOf(ElementsAre(kept), ElementsAre(newer))), 0U);
}

TEST_F(Starved, APollAllocatesNothing)
{
    EXPECT_EQ(starve("poll", ElementsAre(newer)), 0U);
}

// What allocates is the signal, on the control application's side.
TEST_F(Starved, AnUpdateArrivesAllTheSame)
{
    std::printf("%d allocations\n", static_cast<int>(starve("update", ElementsAre(newer))));
}

// A value that can't be written stays the one before.
TEST_F(Starved, AStopKeepsEachValueThatWasOrTheNewOne)
{
    std::printf("%d allocations\n", static_cast<int>(starve("stop", Each(AnyOf(kept, newer)))));
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    if (count == 4 && std::strcmp(words[1], "--starve") == 0)
        return quorel::runAsChild(words[2], std::strtoull(words[3], nullptr, 10));
    testing::InitGoogleMock(&count, words);
    return RUN_ALL_TESTS();
}

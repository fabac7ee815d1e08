// SPDX-License-Identifier: MIT
// The road of a setting: one process writes it, another one's audio thread hears it.
#include "settings/settings_handler.h"

#include "tests/process/child.h"
#include "tests/support/control_application.h"
#include "tests/support/stamp.h"
#include "tests/support/temporary_home.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <thread>

namespace quorel {
namespace {

using std::chrono::steady_clock;

std::int64_t now()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(steady_clock::now().time_since_epoch()).count();
}

// Every update is in force at the next block after the memory thread has seen it. How long that thread takes to wake up is
// the system's affair, so what is asked of every update is that it arrives, whole and in order; the delays are printed.
TEST(TheRoadOfASetting, EveryUpdateThatStandsForABlockComesIntoForceInOrder)
{
    const std::uint32_t updates = wished("QUOREL_UPDATES", 500);
    const TemporaryHome home;
    Child effect(SETTINGS_PEER, {"stream", std::to_string(updates * 2 + 400)});

    ASSERT_TRUE(eventually(effectIsThere));
    ControlApplication control;
    std::uint32_t stamp = 1;
    std::atomic<bool> ready = false;
    std::thread listener([&] { ready = effect.line() == "ready"; });
    while (!ready) {
        control.update(stamped(stamp++));
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    listener.join();

    std::map<std::uint32_t, std::int64_t> written;
    const auto first = stamp;
    auto due = steady_clock::now();
    for (; stamp < first + updates; ++stamp) {
        due += std::chrono::microseconds(15300); // meets every phase of a block
        std::this_thread::sleep_until(due);
        written[stamp] = now();
        control.update(stamped(stamp));
    }

    std::map<std::uint32_t, std::pair<std::int64_t, std::int64_t>> arrived;
    std::uint32_t last = 0;
    while (const auto line = effect.line()) {
        std::istringstream text(*line);
        std::uint32_t value = 0;
        std::pair<std::int64_t, std::int64_t> blocks;
        text >> value >> blocks.first >> blocks.second;
        EXPECT_GT(value, last);
        last = value;
        arrived[value] = blocks;
    }
    EXPECT_EQ(effect.exitCode(std::chrono::minutes(1)), 0);

    std::size_t atNextBlock = 0;
    std::size_t overtaken = 0;
    std::int64_t worst = 0;
    for (const auto& [value, time] : written) {
        const auto arrival = arrived.find(value);
        if (arrival == arrived.end()) {
            ++overtaken; // by a later one that came before the block
            continue;
        }
        EXPECT_GE(arrival->second.second, time);
        worst = std::max(worst, arrival->second.second - time);
        if (arrival->second.first <= time)
            ++atNextBlock;
    }
    EXPECT_EQ(last, first + updates - 1) << "the newest always arrives";
    std::printf("%zu of %u updates in force at the next block, %zu overtaken; worst delay %.2f ms, with blocks of 10 ms\n",
                atNextBlock, updates, overtaken, static_cast<double>(worst) * 1e-6);
    EXPECT_GT(atNextBlock, 0U);
}

} // namespace
} // namespace quorel

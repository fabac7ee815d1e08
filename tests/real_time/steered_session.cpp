// SPDX-License-Identifier: MIT
#include "tests/real_time/steered_session.h"

#include "client/control_client.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace quorel {

namespace {

constexpr const char* steer = "--steer";

using namespace std::chrono_literals;

// As soon as there is an effect.
std::unique_ptr<ControlClient> awaitEffect()
{
    for (;;) {
        try {
            return std::make_unique<ControlClient>();
        } catch (const NoEffect&) {
            std::this_thread::sleep_for(1ms);
        }
    }
}

void steerForEver(std::uint32_t channels)
{
    const auto client = awaitEffect();
    std::minstd_rand random{2};
    const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    const auto end = std::chrono::steady_clock::now() + 2min;
    for (std::uint32_t update = 1; std::chrono::steady_clock::now() < end; ++update) {
        try {
            client->deliver([&](SettingsRecord& record) {
                record.Settings = static_cast<std::uint8_t>(below(2));
                record.MicNR = static_cast<std::uint8_t>(below(2));
                record.micEq = below(3);
                record.EQBand[below(9)] = static_cast<std::int32_t>(below(255)) - 127;
                record.noiseGate = below(256);
                record.Reverb = below(256);
                record.levelsEnabled = static_cast<std::uint8_t>(below(2));
                std::vector<float> set;
                if (update % 8 == 0) {
                    for (std::uint32_t i = 0; i < 2 * channels * 1024; ++i)
                        set.push_back(static_cast<float>(below(1000)) * 1e-5F);
                    record.hrtfId = update;
                    record.hrtfLength = 1024;
                    record.hrtfChannels = channels;
                }
                return set;
            });
        } catch (const NoEffect&) {
            // Its event is not there yet, or not any more.
        }
        std::this_thread::sleep_for(100us);
    }
}

} // namespace

Child startSteering(std::int32_t channels)
{
    return {ownProgram(), {steer, std::to_string(channels)}};
}

int runSteeredTests(int count, char** words)
{
    if (count == 3 && std::strcmp(words[1], steer) == 0) {
        steerForEver(static_cast<std::uint32_t>(std::stoul(words[2])));
        return 0;
    }
    const TemporaryHome home;
    testing::InitGoogleTest(&count, words);
    return RUN_ALL_TESTS();
}

} // namespace quorel

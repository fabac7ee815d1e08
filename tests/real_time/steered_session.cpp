#include "tests/real_time/steered_session.h"

#include "platform/sharing.h"
#include "settings/control_block.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace quorel {

namespace {

constexpr const char* steer = "--steer";

using namespace std::chrono_literals;

// What the effect makes, as soon as it is there.
template <typename Open>
platform::Handle await(Open open)
{
    for (;;) {
        if (const auto handle = open(); handle != nullptr)
            return handle;
        std::this_thread::sleep_for(1ms);
    }
}

void steerForEver(std::uint32_t channels)
{
    const auto memory = await([] { return platform::openMapping(controlBlockName); });
    const auto hrtf = await([] { return platform::openMapping(hrtfShareName); });
    const auto event = await([] { return platform::openEvent(controlEventName); });
    auto& block = *static_cast<ControlBlock*>(platform::mapView(memory, sizeof(ControlBlock)));
    auto* share = static_cast<float*>(platform::mapView(hrtf, hrtfShareBytes));

    std::minstd_rand random{2};
    const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    SettingsRecord record;
    const auto end = std::chrono::steady_clock::now() + 2min;
    for (std::uint32_t update = 1; std::chrono::steady_clock::now() < end; ++update) {
        record.Settings = static_cast<std::uint8_t>(below(2));
        record.MicNR = static_cast<std::uint8_t>(below(2));
        record.micEq = below(3);
        record.EQBand[below(9)] = static_cast<std::int32_t>(below(255)) - 127;
        record.noiseGate = below(256);
        record.Reverb = below(256);
        record.levelsEnabled = static_cast<std::uint8_t>(below(2));
        if (update % 8 == 0) {
            for (std::uint32_t i = 0; i < 2 * channels * 1024; ++i)
                share[i] = static_cast<float>(below(1000)) * 1e-5F;
            record.hrtfId = update;
            record.hrtfLength = 1024;
            record.hrtfChannels = channels;
        }
        copySettings(record, block);
        std::atomic_ref(block.sequence).store(update, std::memory_order_release);
        platform::setEvent(event);
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

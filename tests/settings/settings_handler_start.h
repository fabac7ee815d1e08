// SPDX-License-Identifier: MIT
// A settings handler over the faulty platform, as its tests start it.
#pragma once

#include "settings/settings_handler.h"

#include "tests/settings/faulty_platform.h"
#include "tests/support/control_application.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel {

inline constexpr const char* key = "Software\\VEDRA\\QUOREL"; // of the kept values

inline SettingsRecord withReverb(std::uint32_t value)
{
    SettingsRecord record;
    record.Reverb = value;
    return record;
}

// A path's record after a poll.
inline SettingsRecord polled(SettingsHandler& handler)
{
    SettingsRecord record;
    handler.poll(record);
    return record;
}

class SettingsHandlerTest : public testing::Test {
protected:
    SettingsHandlerTest() { platform::faultyPlatform().reset(); }

    // A handler whose thread waits.
    static std::shared_ptr<SettingsHandler> start()
    {
        auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
        EXPECT_TRUE(eventually([] { return platform::faultyPlatform().waits() > 0; }));
        return handler;
    }

    // The words in which a start fails when the named call does; empty when it succeeds.
    static std::string failureWithout(const std::string& call)
    {
        platform::faultyPlatform().fail(call);
        try {
            start();
        } catch (const std::runtime_error& failure) {
            return failure.what();
        }
        return {};
    }

    // Waits until the memory thread has taken the block with this sequence over.
    static bool takenOver(SettingsHandler& handler, std::uint32_t sequence)
    {
        return eventually([&] { return polled(handler).blockSequence == sequence; });
    }
};

} // namespace quorel

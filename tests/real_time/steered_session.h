// SPDX-License-Identifier: MIT
// A session that another process steers: around each block a poll of the process's settings and the writing of the levels, as
// an audio engine's object does it, while new settings and HRTF sets arrive all the time.
#pragma once

#include "settings/settings_handler.h"
#include "tests/process/child.h"
#include "tests/real_time/sessions.h"

#include <cstdint>
#include <memory>

namespace quorel {

// Session: SpeakerSession or MicrophoneSession.
template <typename Session>
class SteeredSession : private Session {
public:
    SteeredSession(std::int32_t channels, std::uint32_t rate)
        : Session(channels, rate), handler(SettingsHandler::instance(SettingsHandler::layoutVersion))
    {
    }

    // Until enough updates have come, or far too many blocks have gone by.
    float run()
    {
        float sum = 0.0F;
        for (std::uint32_t block = 0; block < 1000 || (seen < enough && block < 200000); ++block) {
            SettingsRecord& record = *this->path->settings();
            handler->poll(record);
            seen += static_cast<std::uint32_t>(record.applied == 0);
            sum += this->process(Session::lengths[block % Session::lengths.size()], block / 8 % EveryKindOfSample::kinds);
            if (const float* levels = this->path->levels(); levels != nullptr)
                handler->writeLevels(levels);
        }
        return sum;
    }

    // Records that were taken over.
    bool sawEnough() const { return seen >= enough; }

private:
    static constexpr std::uint32_t enough = 100;

    std::shared_ptr<SettingsHandler> handler;
    std::uint32_t seen = 0;
};

// The other process: changes the settings of a path with this many channels again and again until it is killed, or for two
// minutes.
Child startSteering(std::int32_t channels);

// The main function of a test program that calls startSteering: it is the other process's program too.
int runSteeredTests(int count, char** words);

} // namespace quorel

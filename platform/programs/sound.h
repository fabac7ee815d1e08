// SPDX-License-Identifier: MIT
// Sound beside what else a program does: nothing here waits for a device, and what fails is told afterwards.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::platform {

struct Sound {
    std::uint32_t framesPerSecond = 0;
    std::uint32_t speakers = 0;        // a bit each, and a channel each in the order of the bits
    std::vector<std::int16_t> samples; // interleaved
};

class PlayedSound {
public:
    // Once, on the device of that name if the system tells devices by names; on the default one without a name.
    static PlayedSound once(Sound sound, const std::string& device);

    // What the microphone of that name hears (without a name the default one), so many seconds late on the default device, until
    // the object goes.
    static PlayedSound late(const std::string& microphone, double seconds);

    ~PlayedSound();
    PlayedSound(PlayedSound&&) noexcept;
    PlayedSound& operator=(PlayedSound&&) noexcept;

    // Nothing while it goes on; then why it ended before its time, empty if it did not.
    std::optional<std::string> ended();

private:
    class Work;
    explicit PlayedSound(std::unique_ptr<Work> work);

    std::unique_ptr<Work> work;
};

} // namespace quorel::platform

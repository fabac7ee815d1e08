// SPDX-License-Identifier: MIT
#include "panel/speaker_test.h"

#include "panel/spoken_names.h"
#include "speaker/speaker_tables.h"

#include <bit>

namespace quorel {

namespace {

constexpr std::size_t pause = spokenFramesPerSecond * 3 / 10; // behind each name

} // namespace

platform::Sound speakerTest(std::uint32_t mask)
{
    platform::Sound sound;
    sound.framesPerSecond = spokenFramesPerSecond;
    sound.speakers = mask != 0 ? mask : everySpeaker;
    const auto channels = static_cast<std::size_t>(std::popcount(sound.speakers));
    for (std::size_t row = 0; row < speakerTable.size(); ++row) {
        const std::uint32_t bit = speakerTable.at(row).bit;
        if ((sound.speakers & bit) == 0)
            continue;
        const auto channel = static_cast<std::size_t>(std::popcount(sound.speakers & (bit - 1)));
        const std::size_t start = sound.samples.size();
        sound.samples.resize(start + (spokenNames.at(row).size() + pause) * channels);
        for (std::size_t i = 0; i < spokenNames.at(row).size(); ++i)
            sound.samples[start + i * channels + channel] = spokenNames.at(row)[i];
    }
    return sound;
}

} // namespace quorel

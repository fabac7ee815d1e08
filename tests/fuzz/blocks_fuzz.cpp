// SPDX-License-Identifier: MIT
// Streams of any layout, and in them blocks of any size under settings that change, as a row of operations.
#include "tests/fuzz/paths.h"

#include "client/settings_fields.h"

#include <optional>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    FuzzInput input(data, size);
    std::optional<FuzzedPath> path;
    for (int operation = 0; operation < 64 && !input.ended(); ++operation) {
        const auto which = input.below(8);
        if (which == 0 || !path) {
            path.reset();
            constexpr std::array<std::uint32_t, 6> rates = {48000, 16000, 96000, 44100, 0, 48001};
            const auto channels = input.below(10); // 0 and 9 are none
            const auto mask = input.below(2) == 0 ? usualMasks.at((channels + 7) % 8) : input.number<std::uint32_t>();
            const auto frames = input.below(1100);
            const bool render = input.below(2) == 0;
            try {
                path.emplace(render, channels, mask, frames, rates.at(input.below(rates.size())));
                require(channels >= 1 && channels <= 8, "a path has one to eight channels");
            } catch (const std::exception&) {
            }
        } else if (which == 1) {
            const auto fields = settingsFields();
            const SettingsField& field = fields[input.below(static_cast<std::uint32_t>(fields.size()))];
            const auto range = static_cast<std::uint32_t>(field.high - field.low + 1);
            setSetting(*path->path->settings(), field, field.low + input.below(range));
            ++path->path->settings()->blockSequence;
            path->path->settings()->applied = 0;
        } else {
            const auto n = input.below(1100);
            path->run(n, input.below(8) == 0 ? input.below(1100) : n, input);
        }
    }
    return 0;
}

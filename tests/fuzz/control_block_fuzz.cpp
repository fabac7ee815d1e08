// SPDX-License-Identifier: MIT
// Settings that another process may have written into the control block, through a path of either kind, and to the other end.
#include "client/hrtf_set.h"
#include "client/settings_fields.h"
#include "tests/fuzz/paths.h"

#include <memory>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    FuzzInput input(data, size);
    FuzzedPath path = FuzzedPath::usual(input);
    const std::vector<float> share(hrtfShareBytes / sizeof(float), 0.01F);
    path.path->settings()->hrtfData = share.data();
    for (int block = 0; block < 8 && !input.ended(); ++block) {
        ControlBlock shared{};
        shared.activeChannelMask = input.number<std::uint32_t>();
        shared.settings = input.number<decltype(shared.settings)>();
        SettingsRecord& record = *path.path->settings();
        copySettings(shared, record);
        ++record.blockSequence;
        record.applied = 0;
        path.run(input.below(500), input.below(8) == 7 ? input.below(500) : 500, input);

        for (const SettingsField& field : settingsFields()) {
            SettingsRecord checked;
            const auto value = settingOf(record, field);
            try {
                setSetting(checked, field, value);
                require(value >= field.low && value <= field.high, "a value that is taken is in its range");
            } catch (const std::runtime_error&) {
                require(value < field.low || value > field.high, "a value that is refused is not");
            }
        }
        const auto rows = rowsOf(shared.activeChannelMask);
        require(packBuiltInSet(shared.activeChannelMask).size() == 2 * rows.size() * spectrumFloats,
                "a set has two responses for each speaker");
    }
    return 0;
}

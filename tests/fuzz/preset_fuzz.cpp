// SPDX-License-Identifier: MIT
// A file in the place of a preset is loaded as a whole or not at all, and what was loaded can be saved.
#include "client/preset.h"
#include "client/settings_fields.h"
#include "platform/programs/process.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/private_home.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quorel;
    const std::filesystem::path folder = std::filesystem::path(platform::userFolder()) / "presets";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "fuzz.json", std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    try {
        const SettingsRecord loaded = loadPreset("fuzz", {});
        for (const SettingsField& field : settingsFields()) {
            const auto value = settingOf(loaded, field);
            require(value >= field.low && value <= field.high, "a setting of a preset is in its range");
        }
        savePreset("again", loaded);
        const SettingsRecord again = loadPreset("again", {});
        require(std::memcmp(&again, &loaded, sizeof again) == 0, "a preset that is saved is loaded as it was");
    } catch (const std::runtime_error&) {
    }
    return 0;
}

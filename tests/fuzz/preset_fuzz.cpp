// SPDX-License-Identifier: MIT
// A file in the place of a preset is loaded as a whole or not at all, and what was loaded can be saved, by any name that can be one.
#include "client/preset.h"
#include "client/settings_fields.h"
#include "platform/programs/process.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/private_home.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

namespace {

using namespace quorel;

bool refused(const std::function<void()>& act)
{
    try {
        act();
        return false;
    } catch (const std::runtime_error& error) {
        require(error.what()[0] != '\0', "a refusal has a text");
        return true;
    }
}

bool listed(const std::string& name)
{
    const auto names = presets();
    return std::ranges::find(names, name) != names.end();
}

} // namespace

// A name, on a line of its own, and the file.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::string name(input.line());
    const auto content = input.all();
    const std::filesystem::path folder = std::filesystem::path(platform::userFolder()) / "presets";
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "fuzz.json", std::ios::binary).write(content.data(), static_cast<std::streamsize>(content.size()));
    require(listed("fuzz"), "a preset is listed");

    SettingsRecord loaded;
    const bool whole = !refused([&] { loaded = loadPreset("fuzz", {}); });
    for (const SettingsField& field : settingsFields()) {
        const auto value = settingOf(loaded, field);
        require(value >= field.low && value <= field.high, "a setting of a preset is in its range");
    }
    if (refused([&] { savePreset(name, loaded); })) {
        require(refused([&] { static_cast<void>(loadPreset(name, {})); }),
                "a name that nothing is saved by is none to load from");
        require(refused([&] { deletePreset(name); }) && !listed(name), "nor to delete");
    } else {
        const SettingsRecord again = loadPreset(name, {});
        require(!whole || std::memcmp(&again, &loaded, sizeof again) == 0, "a preset that is saved is loaded as it was");
        require(listed(name), "and listed");
        deletePreset(name);
        require(!listed(name) && refused([&] { deletePreset(name); }), "and gone when it is deleted");
    }

    // Nothing can be made where there is no folder.
    std::filesystem::remove_all(folder);
    std::ofstream(folder) << "no folder";
    require(refused([&] { savePreset("fuzz", loaded); }) && presets().empty(), "without a folder nothing is saved");
    std::filesystem::remove(folder);
    return 0;
}

// SPDX-License-Identifier: MIT
#include "client/preset.h"

#include "client/settings_fields.h"
#include "platform/programs/atomic_file.h"
#include "platform/programs/file_names.h"
#include "platform/programs/process.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

namespace quorel {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr std::size_t longestName = 64;
constexpr std::uintmax_t longestFile = 65536; // bytes

fs::path folder()
{
    const std::string own = platform::userFolder();
    if (own.empty())
        throw std::runtime_error("there is no folder for this user's presets");
    return platform::pathOf(own) / "presets";
}

bool goodName(const std::string& name)
{
    const auto good = [](char letter) {
        return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9') ||
               letter == '-' || letter == '_';
    };
    // A file of these names is a device on Windows, whatever its ending.
    static const std::set<std::string> devices = {"con", "prn", "aux", "nul"};
    std::string small = name;
    for (char& letter : small)
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    const bool port =
        small.size() == 4 && (small.starts_with("com") || small.starts_with("lpt")) && small[3] >= '0' && small[3] <= '9';
    return !name.empty() && name.size() <= longestName && std::all_of(name.begin(), name.end(), good) && name.front() != '-' &&
           !devices.contains(small) && !port;
}

fs::path fileOf(const std::string& name)
{
    if (!goodName(name))
        throw std::runtime_error("\"" + name + "\" is no name for a preset: it takes 1 to " + std::to_string(longestName) +
                                 " letters, digits, - and _, no - in front, and no name of a Windows device");
    return folder() / (name + ".json");
}

// Strict: no comments, nothing twice.
Json parse(const std::string& text)
{
    std::vector<std::set<std::string>> keys;
    const Json::parser_callback_t look = [&keys](int, Json::parse_event_t event, Json& parsed) {
        if (event == Json::parse_event_t::object_start)
            keys.emplace_back();
        if (event == Json::parse_event_t::object_end)
            keys.pop_back();
        if (event == Json::parse_event_t::key && !keys.back().insert(parsed.get<std::string>()).second)
            throw std::runtime_error("\"" + parsed.get<std::string>() + "\" stands in it twice");
        return true;
    };
    return Json::parse(text, look);
}

} // namespace

void savePreset(const std::string& name, const SettingsRecord& record)
{
    const fs::path path = fileOf(name);
    Json settings = Json::object(); // not null, of which the library makes an object badly where memory is lacking
    for (const SettingsField& field : settingsFields()) {
        if (!field.kept)
            continue;
        SettingsRecord checked;
        setSetting(checked, field, settingOf(record, field)); // what could not be loaded again replaces nothing
        settings[field.name] = settingOf(record, field);
    }
    const Json preset = {{"settings", settings}};

    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    if (error)
        throw std::runtime_error("cannot make the folder " + platform::textOf(path.parent_path()) + ": " + error.message());
    platform::AtomicFile file(platform::textOf(path));
    file.write(preset.dump(2) + "\n");
    file.commit();
}

SettingsRecord loadPreset(const std::string& name, const SettingsRecord& record)
{
    const fs::path path = fileOf(name);
    const auto fail = [&](const std::string& why) {
        throw std::runtime_error("cannot read the preset " + platform::textOf(path) + ": " + why);
    };
    std::error_code error;
    const auto bytes = fs::file_size(path, error);
    if (error)
        fail(error.message());
    if (bytes > longestFile)
        fail("it is too long");
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();

    SettingsRecord changed = record;
    try {
        const Json preset = parse(text.str());
        if (!preset.is_object() || preset.size() != 1 || !preset.contains("settings") || !preset["settings"].is_object() ||
            preset["settings"].empty())
            throw std::runtime_error("it has to hold \"settings\" and nothing else");
        for (const auto& [key, value] : preset["settings"].items()) {
            const SettingsField* field = settingsField(key);
            if (field == nullptr || !field->kept)
                throw std::runtime_error("a preset has no setting \"" + key + "\"");
            if (!value.is_number_integer())
                throw std::runtime_error(key + " takes a whole number");
            if (value.is_number_unsigned() && value.get<std::uint64_t>() > std::numeric_limits<std::int64_t>::max())
                throw std::runtime_error(refusal(*field, value.dump()));
            setSetting(changed, *field, value.get<std::int64_t>());
        }
    } catch (const Json::exception&) {
        fail("it is no JSON");
    } catch (const std::runtime_error& reason) {
        fail(reason.what());
    }
    return changed;
}

void deletePreset(const std::string& name)
{
    const fs::path path = fileOf(name);
    std::error_code error;
    if (!fs::remove(path, error))
        throw std::runtime_error("cannot delete the preset " + platform::textOf(path) + ": " +
                                 (error ? error : std::make_error_code(std::errc::no_such_file_or_directory)).message());
}

std::vector<std::string> presets()
{
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder(), error)) {
        const std::string name = platform::textOf(entry.path().stem());
        if (entry.path().extension() == ".json" && goodName(name))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace quorel

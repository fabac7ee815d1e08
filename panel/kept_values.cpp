// SPDX-License-Identifier: MIT
#include "panel/kept_values.h"

#include "platform/programs/atomic_file.h"
#include "platform/programs/file_names.h"
#include "platform/programs/process.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace quorel {

namespace {

std::filesystem::path keptFile()
{
    const std::string own = platform::userFolder();
    if (own.empty())
        throw std::runtime_error("there is no folder for what this user's bypass keeps");
    return platform::pathOf(own) / "bypassed";
}

} // namespace

void saveKeptValues(const Values& values)
{
    const std::filesystem::path path = keptFile();
    std::error_code error;
    if (values.empty()) {
        std::filesystem::remove(path, error);
        return;
    }
    std::filesystem::create_directories(path.parent_path(), error);
    if (error)
        throw std::runtime_error("cannot make the folder " + platform::textOf(path.parent_path()) + ": " + error.message());
    platform::AtomicFile file(platform::textOf(path));
    for (const auto& [field, value] : values)
        file.write(std::string(field->name) + '=' + std::to_string(value) + '\n');
    file.commit();
}

Values loadKeptValues()
{
    Values values;
    if (platform::userFolder().empty())
        return values;
    std::ifstream file(keptFile());
    for (std::string line; std::getline(file, line);) {
        const auto equals = line.find('=');
        const SettingsField* field = equals == std::string::npos ? nullptr : settingsField(line.substr(0, equals));
        if (field == nullptr || !field->kept)
            continue;
        try {
            values[field] = settingFrom(*field, line.substr(equals + 1));
        } catch (const std::runtime_error&) {
            continue;
        }
    }
    return values;
}

} // namespace quorel

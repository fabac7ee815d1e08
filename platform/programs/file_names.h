// SPDX-License-Identifier: MIT
// Names of files: UTF-8 in the tools, whatever the system has in its own calls.
#pragma once

#include <filesystem>
#include <string>

namespace quorel::platform {

inline std::filesystem::path pathOf(const std::string& utf8)
{
    return {std::u8string(utf8.begin(), utf8.end())};
}

inline std::string textOf(const std::filesystem::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

} // namespace quorel::platform

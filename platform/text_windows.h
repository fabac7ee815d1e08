// SPDX-License-Identifier: MIT
// Texts are UTF-8 above platform/; Windows' operations take UTF-16.
#pragma once

#include <string>
#include <string_view>
#include <windows.h>

namespace quorel::platform {

inline std::wstring wide(std::string_view text)
{
    const auto bytes = static_cast<int>(text.size());
    std::wstring result(static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0)), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, result.data(), static_cast<int>(result.size()));
    return result;
}

inline std::string utf8(std::wstring_view text)
{
    const auto units = static_cast<int>(text.size());
    std::string result(
        static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr)), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), static_cast<int>(result.size()), nullptr, nullptr);
    return result;
}

} // namespace quorel::platform

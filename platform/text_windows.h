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

} // namespace quorel::platform

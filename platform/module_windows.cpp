// SPDX-License-Identifier: MIT
#include "platform/module.h"

#include "platform/text_windows.h"

#include <exception>

// The first byte of the module that the linker makes of this code.
extern "C" IMAGE_DOS_HEADER __ImageBase; // NOLINT(bugprone-reserved-identifier): the linker's name

namespace quorel::platform {

static HMODULE thisModule()
{
    return reinterpret_cast<HMODULE>(&__ImageBase);
}

std::string modulePath() noexcept
try {
    std::wstring path(32768, L'\0'); // the longest path there is
    path.resize(GetModuleFileNameW(thisModule(), path.data(), static_cast<DWORD>(path.size())));
    return utf8(path);
} catch (const std::exception&) {
    return {};
}

std::string_view moduleText(const char* type, std::uint16_t number) noexcept
{
    const HRSRC resource = FindResourceA(thisModule(), MAKEINTRESOURCEA(number), type);
    if (resource == nullptr)
        return {};
    const HGLOBAL loaded = LoadResource(thisModule(), resource);
    if (loaded == nullptr)
        return {};
    return {static_cast<const char*>(LockResource(loaded)), SizeofResource(thisModule(), resource)};
}

std::uint32_t setThreadLocale(std::uint32_t locale) noexcept
{
    const LCID before = GetThreadLocale();
    SetThreadLocale(locale);
    return before;
}

int showMessage(void* owner, const char* title, const char* text) noexcept
{
    return MessageBoxA(static_cast<HWND>(owner), text, title, MB_OK);
}

} // namespace quorel::platform

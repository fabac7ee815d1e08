// SPDX-License-Identifier: MIT
// What a module, a loaded library or program, knows of itself, and the little that it asks of a thread and a screen.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorel::platform {

// The full path of the module that this code stands in, in UTF-8; empty when the system doesn't tell.
std::string modulePath() noexcept;

// A text that the build put into the module under a type and a number, empty when there is none: on Windows a resource,
// elsewhere an entry of `moduleTexts`.
std::string_view moduleText(const char* type, std::uint16_t number) noexcept;

// What a module defines where the system has no resources; it ends at an empty type.
struct ModuleText {
    std::string_view type;
    std::uint16_t number;
    std::string_view text;
};
extern const ModuleText moduleTexts[];

// The language and region by which the calling thread names and sorts, Windows' identifier; the one before is returned.
// Elsewhere a thread has none.
std::uint32_t setThreadLocale(std::uint32_t locale) noexcept;

// Shows a message with one button above the window `owner` and waits for its end. Windows' result; 0 where there is no
// screen.
int showMessage(void* owner, const char* title, const char* text) noexcept;

} // namespace quorel::platform

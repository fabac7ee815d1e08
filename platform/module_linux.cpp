// SPDX-License-Identifier: MIT
#include "platform/module.h"

#include <cstdlib>
#include <dlfcn.h>
#include <exception>
#include <memory>

namespace quorel::platform {

std::string modulePath() noexcept
try {
    Dl_info module{};
    if (dladdr(reinterpret_cast<const void*>(&modulePath), &module) == 0 || module.dli_fname == nullptr)
        return {};
    const std::unique_ptr<char, void (*)(void*)> path(realpath(module.dli_fname, nullptr), std::free);
    return path ? path.get() : std::string();
} catch (const std::exception&) {
    return {};
}

std::string_view moduleText(const char* type, std::uint16_t number) noexcept
{
    for (const auto* entry = moduleTexts; !entry->type.empty(); ++entry) {
        if (entry->type == type && entry->number == number)
            return entry->text;
    }
    return {};
}

std::uint32_t setThreadLocale(std::uint32_t locale) noexcept
{
    return locale;
}

int showMessage(void*, const char*, const char*) noexcept
{
    return 0;
}

} // namespace quorel::platform

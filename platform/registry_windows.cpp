// SPDX-License-Identifier: MIT
#include "platform/registry.h"

#include "platform/text_windows.h"

#include <array>
#include <exception>
#include <string>
#include <string_view>

namespace quorel::platform {

namespace {

HKEY handleOf(RegistryKey key)
{
    return reinterpret_cast<HKEY>(key);
}

// The path or the name of all but the longest keys and values in UTF-16, without memory that could be missing: kept values
// that were not read for want of memory would be written over with zeros.
class Wide {
public:
    explicit Wide(std::string_view text)
    {
        const auto bytes = static_cast<int>(text.size());
        if (text.size() < units.size())
            MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, units.data(), bytes); // never more units than bytes
        else
            longer = wide(text);
    }
    const wchar_t* text() const noexcept { return longer.empty() ? units.data() : longer.c_str(); }

private:
    std::array<wchar_t, 256> units{};
    std::wstring longer;
};

} // namespace

RegistryKey rootKey(RootKey root) noexcept
{
    static const std::array<HKEY, 5> roots{HKEY_CLASSES_ROOT, HKEY_CURRENT_CONFIG, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE,
                                           HKEY_USERS};
    return reinterpret_cast<RegistryKey>(roots[static_cast<std::size_t>(root)]);
}

RegistryResult openKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
try {
    HKEY opened = nullptr;
    const auto result = RegOpenKeyExW(handleOf(parent), Wide(path).text(), 0, access, &opened);
    key = reinterpret_cast<RegistryKey>(opened);
    return result;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult createKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
try {
    HKEY opened = nullptr;
    const auto result = RegCreateKeyExW(handleOf(parent), Wide(path).text(), 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                                        &opened, nullptr);
    key = reinterpret_cast<RegistryKey>(opened);
    return result;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult deleteKey(RegistryKey parent, std::string_view path, std::uint32_t access) noexcept
try {
    return RegDeleteKeyExW(handleOf(parent), Wide(path).text(), access, 0);
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult listKeys(RegistryKey key, std::vector<std::string>& names) noexcept
try {
    names.clear();
    std::array<wchar_t, 256> name{}; // the longest name of a key and its end mark
    for (DWORD index = 0;; ++index) {
        auto length = static_cast<DWORD>(name.size());
        const auto result = RegEnumKeyExW(handleOf(key), index, name.data(), &length, nullptr, nullptr, nullptr, nullptr);
        if (result != ERROR_SUCCESS)
            return result == ERROR_NO_MORE_ITEMS ? ERROR_SUCCESS : result;
        names.push_back(utf8({name.data(), length}));
    }
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

void closeKey(RegistryKey key) noexcept
{
    RegCloseKey(handleOf(key));
}

RegistryResult queryValue(RegistryKey key, std::string_view name, void* data, std::uint32_t& bytes) noexcept
try {
    DWORD count = bytes;
    const auto result = RegQueryValueExW(handleOf(key), Wide(name).text(), nullptr, nullptr, static_cast<BYTE*>(data), &count);
    bytes = count;
    return result;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult setNumber(RegistryKey key, std::string_view name, std::uint32_t value) noexcept
try {
    return RegSetValueExW(handleOf(key), Wide(name).text(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult setText(RegistryKey key, std::string_view name, std::string_view text) noexcept
try {
    const auto value = wide(text);
    return RegSetValueExW(handleOf(key), Wide(name).text(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

} // namespace quorel::platform

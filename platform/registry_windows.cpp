#include "platform/registry.h"

#include "platform/text_windows.h"

#include <array>
#include <exception>

namespace quorel::platform {

namespace {

HKEY handleOf(RegistryKey key)
{
    return reinterpret_cast<HKEY>(key);
}

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
    const auto result = RegOpenKeyExW(handleOf(parent), wide(path).c_str(), 0, access, &opened);
    key = reinterpret_cast<RegistryKey>(opened);
    return result;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult createKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
try {
    HKEY opened = nullptr;
    const auto result = RegCreateKeyExW(handleOf(parent), wide(path).c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE, access,
                                        nullptr, &opened, nullptr);
    key = reinterpret_cast<RegistryKey>(opened);
    return result;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult deleteKey(RegistryKey parent, std::string_view path, std::uint32_t access) noexcept
try {
    return RegDeleteKeyExW(handleOf(parent), wide(path).c_str(), access, 0);
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
    const auto result = RegQueryValueExW(handleOf(key), wide(name).c_str(), nullptr, nullptr, static_cast<BYTE*>(data), &count);
    bytes = count;
    return result;
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult setNumber(RegistryKey key, std::string_view name, std::uint32_t value) noexcept
try {
    return RegSetValueExW(handleOf(key), wide(name).c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&value), sizeof value);
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

RegistryResult setText(RegistryKey key, std::string_view name, std::string_view text) noexcept
try {
    const auto value = wide(text);
    return RegSetValueExW(handleOf(key), wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
} catch (const std::exception&) {
    return ERROR_NOT_ENOUGH_MEMORY;
}

} // namespace quorel::platform

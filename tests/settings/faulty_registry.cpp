// SPDX-License-Identifier: MIT
// The operations of registry.h on kept values in memory.
#include "tests/settings/faulty_platform.h"

#include <cstring>

namespace quorel::platform {

struct OpenKey {
    std::string path;
};

namespace {

constexpr RegistryResult notFound = 2;
constexpr RegistryResult accessDenied = 5;

std::string callOn(const char* operation, std::string_view path, std::uint32_t access)
{
    return std::string(operation) + ' ' + std::string(path) + ' ' + std::to_string(access);
}

} // namespace

RegistryKey rootKey(RootKey root) noexcept
{
    static OpenKey currentUser{""};
    static OpenKey other{"?"};
    return root == RootKey::currentUser ? &currentUser : &other;
}

RegistryResult openKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
{
    if (!begin(callOn("openKey", path, access)))
        return accessDenied;
    const auto whole = parent->path + std::string(path);
    if (!faultyPlatform().keys.contains(whole))
        return notFound;
    key = new OpenKey{whole};
    return 0;
}

RegistryResult createKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
{
    if (!begin(callOn("createKey", path, access)))
        return accessDenied;
    key = new OpenKey{parent->path + std::string(path)};
    faultyPlatform().keys[key->path];
    return 0;
}

RegistryResult deleteKey(RegistryKey parent, std::string_view path, std::uint32_t access) noexcept
{
    if (!begin(callOn("deleteKey", path, access)))
        return accessDenied;
    return faultyPlatform().keys.erase(parent->path + std::string(path)) == 1 ? 0 : notFound;
}

void closeKey(RegistryKey key) noexcept
{
    begin("closeKey");
    delete key;
}

RegistryResult queryValue(RegistryKey key, std::string_view name, void* data, std::uint32_t& bytes) noexcept
{
    if (!begin("queryValue " + std::string(name)))
        return accessDenied;
    if (faultyPlatform().emptyValues.contains(std::string(name))) {
        bytes = 0;
        return 0;
    }
    const auto& values = faultyPlatform().keys[key->path];
    const auto found = values.find(std::string(name));
    if (found == values.end())
        return notFound;
    if (bytes != sizeof found->second)
        return accessDenied;
    std::memcpy(data, &found->second, bytes);
    return 0;
}

RegistryResult setNumber(RegistryKey key, std::string_view name, std::uint32_t value) noexcept
{
    if (!begin("setNumber " + std::string(name)))
        return accessDenied;
    faultyPlatform().keys[key->path][std::string(name)] = value;
    return 0;
}

RegistryResult setText(RegistryKey, std::string_view name, std::string_view) noexcept
{
    begin("setText " + std::string(name));
    return accessDenied;
}

} // namespace quorel::platform

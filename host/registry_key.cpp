// SPDX-License-Identifier: MIT
#include "host/registry_key.h"

#include "platform/registry.h"

#include <cstdint>
#include <stdexcept>

namespace quorel {

namespace {

constexpr std::uint32_t queryAccess = 0x101; // KEY_QUERY_VALUE in the registry of 64-bit programs

platform::RootKey rootOf(const std::string& name)
{
    using platform::RootKey;
    if (name == "HKEY_CLASSES_ROOT")
        return RootKey::classesRoot;
    if (name == "HKEY_CURRENT_CONFIG")
        return RootKey::currentConfig;
    if (name == "HKEY_CURRENT_USER")
        return RootKey::currentUser;
    if (name == "HKEY_LOCAL_MACHINE")
        return RootKey::localMachine;
    if (name == "HKEY_USERS")
        return RootKey::users;
    throw std::runtime_error("Unknown root key ");
}

} // namespace

bool registryKeyExists(const std::string& path)
{
    const auto rootLength = path.find('\\');
    if (rootLength == std::string::npos)
        throw std::runtime_error("Invalid key format");
    platform::RegistryKey key = nullptr;
    const auto root = platform::rootKey(rootOf(path.substr(0, rootLength)));
    if (platform::openKey(root, path.substr(rootLength + 1), queryAccess, key) != 0)
        return false;
    platform::closeKey(key);
    return true;
}

} // namespace quorel

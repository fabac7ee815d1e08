// SPDX-License-Identifier: MIT
#include "tests/host/registry_fake.h"

#include "platform/module.h"

#include <cstring>
#include <utility>

namespace quorel::platform {

struct OpenKey {
    std::string path; // of the root: empty
};

namespace {

constexpr RegistryResult notFound = 2;
constexpr RegistryResult accessDenied = 5;

// Writes the call down; true when it is the one that fails.
bool fails(const std::string& call)
{
    auto& fake = registryFake();
    fake.calls.push_back(call);
    return static_cast<int>(fake.calls.size()) - 1 == fake.failingCall;
}

std::string join(RegistryKey parent, std::string_view path)
{
    return parent->path.empty() ? std::string(path) : parent->path + '\\' + std::string(path);
}

RegistryResult open(const std::string& path, std::uint32_t access, RegistryKey& key)
{
    registryFake().access[path] = access;
    key = new OpenKey{path};
    registryFake().open.insert(path);
    return 0;
}

} // namespace

RegistryFake& registryFake()
{
    static RegistryFake fake;
    return fake;
}

RegistryKey rootKey(RootKey root) noexcept
{
    static std::map<RootKey, OpenKey> roots{{RootKey::classesRoot, {""}},
                                            {RootKey::currentConfig, {"HKEY_CURRENT_CONFIG"}},
                                            {RootKey::currentUser, {"HKEY_CURRENT_USER"}},
                                            {RootKey::localMachine, {"HKEY_LOCAL_MACHINE"}},
                                            {RootKey::users, {"HKEY_USERS"}}};
    return &roots.at(root);
}

RegistryResult openKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
{
    const auto whole = join(parent, path);
    if (fails("openKey " + whole))
        return registryFake().failure;
    return registryFake().has(whole) ? open(whole, access, key) : notFound;
}

RegistryResult createKey(RegistryKey parent, std::string_view path, std::uint32_t access, RegistryKey& key) noexcept
{
    const auto whole = join(parent, path);
    if (fails("createKey " + whole))
        return registryFake().failure;
    if ((access & 0x20006U) != 0x20006U) // KEY_WRITE
        return accessDenied;
    for (auto end = whole.find('\\'); end != std::string::npos; end = whole.find('\\', end + 1))
        registryFake().keys[whole.substr(0, end)];
    registryFake().keys[whole];
    return open(whole, access, key);
}

RegistryResult deleteKey(RegistryKey parent, std::string_view path, std::uint32_t) noexcept
{
    const auto whole = join(parent, path);
    if (fails("deleteKey " + whole))
        return registryFake().failure;
    const auto found = registryFake().keys.find(whole);
    if (found == registryFake().keys.end())
        return notFound;
    if (const auto next = std::next(found); next != registryFake().keys.end() && next->first.starts_with(whole + '\\'))
        return accessDenied;
    registryFake().keys.erase(found);
    return 0;
}

RegistryResult listKeys(RegistryKey key, std::vector<std::string>& names) noexcept
{
    if (fails("listKeys " + key->path))
        return registryFake().failure;
    names.clear();
    for (const auto& [path, values] : registryFake().keys) {
        const auto below = key->path + '\\';
        if (path.starts_with(below) && path.find('\\', below.size()) == std::string::npos)
            names.push_back(path.substr(below.size()));
    }
    return 0;
}

void closeKey(RegistryKey key) noexcept
{
    registryFake().calls.push_back("closeKey " + key->path);
    registryFake().open.extract(key->path);
    delete key;
}

RegistryResult queryValue(RegistryKey, std::string_view, void*, std::uint32_t&) noexcept
{
    return accessDenied;
}

RegistryResult setNumber(RegistryKey key, std::string_view name, std::uint32_t value) noexcept
{
    if (fails("setNumber " + std::string(name)))
        return registryFake().failure;
    registryFake().keys[key->path][std::string(name)] = value;
    return 0;
}

RegistryResult setText(RegistryKey key, std::string_view name, std::string_view text) noexcept
{
    if (fails("setText " + std::string(name)))
        return registryFake().failure;
    registryFake().keys[key->path][std::string(name)] = std::string(text);
    return 0;
}

std::uint32_t setThreadLocale(std::uint32_t locale) noexcept
{
    registryFake().calls.push_back("setThreadLocale " + std::to_string(locale));
    return std::exchange(registryFake().locale, locale);
}

} // namespace quorel::platform

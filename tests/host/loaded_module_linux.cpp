// SPDX-License-Identifier: MIT
#include "tests/host/loaded_module.h"

#include "host/text.h"
#include "platform/registry.h"

#include <array>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>
#include <utility>

namespace quorel {

LoadedModule::LoadedModule(const std::string& path) : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL))
{
    EXPECT_NE(handle, nullptr) << path;
}

LoadedModule::~LoadedModule()
{
    if (handle != nullptr)
        dlclose(handle);
}

std::string LoadedModule::path() const
{
    const link_map* map = nullptr;
    EXPECT_EQ(dlinfo(handle, RTLD_DI_LINKMAP, &map), 0);
    return std::filesystem::canonical(map->l_name);
}

void* LoadedModule::address(const char* name) const
{
    return dlsym(handle, name);
}

bool LoadedModule::unload()
{
    dlclose(std::exchange(handle, nullptr));
    void* const still = dlopen(QUOREL_MODULE, RTLD_NOW | RTLD_NOLOAD);
    if (still != nullptr)
        dlclose(still);
    return still == nullptr;
}

IUnknown* createRegisteredClass()
{
    platform::RegistryKey key = nullptr;
    const auto* const path = R"(CLSID\{5B0E3C92-7D14-4F6A-A2C8-19D3E60B7F44}\InprocServer32)";
    EXPECT_EQ(platform::openKey(platform::rootKey(platform::RootKey::classesRoot), path, 0x20019, key), 0);
    std::array<char16_t, 4096> server{};
    auto bytes = static_cast<std::uint32_t>(sizeof server);
    EXPECT_EQ(platform::queryValue(key, "", server.data(), bytes), 0);
    platform::closeKey(key);
    static const LoadedModule module(utf8(server.data())); // stays, as it does with the system's operation
    return module.create();
}

} // namespace quorel

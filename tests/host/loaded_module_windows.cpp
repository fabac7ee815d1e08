// SPDX-License-Identifier: MIT
#include "tests/host/loaded_module.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace quorel {

LoadedModule::LoadedModule(const std::string& path) : handle(LoadLibraryA(path.c_str()))
{
    EXPECT_NE(handle, nullptr) << path << ": " << GetLastError();
}

LoadedModule::~LoadedModule()
{
    if (handle != nullptr)
        FreeLibrary(static_cast<HMODULE>(handle));
}

std::string LoadedModule::path() const
{
    std::string path(4096, '\0');
    path.resize(GetModuleFileNameA(static_cast<HMODULE>(handle), path.data(), static_cast<DWORD>(path.size())));
    return path;
}

void LoadedModule::replaceImport(const char* library, const char* name, void* replacement) const
{
    const auto* base = static_cast<const char*>(handle);
    const auto& header =
        *reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const auto& table = header.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IAT];
    const auto original = reinterpret_cast<std::uintptr_t>(GetProcAddress(GetModuleHandleA(library), name));
    auto* entry = reinterpret_cast<std::uintptr_t*>(const_cast<char*>(base + table.VirtualAddress));
    auto* const end = entry + table.Size / sizeof *entry;
    entry = std::find(entry, end, original);
    ASSERT_NE(entry, end);
    DWORD before = 0;
    ASSERT_NE(VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &before), 0);
    *entry = reinterpret_cast<std::uintptr_t>(replacement);
    VirtualProtect(entry, sizeof *entry, before, &before);
}

void* LoadedModule::address(const char* name) const
{
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}

bool LoadedModule::unload()
{
    FreeLibrary(static_cast<HMODULE>(std::exchange(handle, nullptr)));
    return GetModuleHandleA("ZELTA.dll") == nullptr;
}

IUnknown* createRegisteredClass()
{
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    void* made = nullptr;
    EXPECT_EQ(CoCreateInstance(CLSID_QUOREL, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &made), S_OK);
    return static_cast<IUnknown*>(made);
}

} // namespace quorel

#include "tests/host/loaded_module.h"

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

#include "tests/host/loaded_module.h"

#include <dlfcn.h>
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

void* LoadedModule::address(const char* name) const
{
    return dlsym(handle, name);
}

bool LoadedModule::unload()
{
    dlclose(std::exchange(handle, nullptr));
    return dlopen(QUOREL_MODULE, RTLD_NOW | RTLD_NOLOAD) == nullptr;
}

} // namespace quorel

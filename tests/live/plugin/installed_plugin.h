// SPDX-License-Identifier: MIT
// A host of the plug-ins as they are installed, and files for it.
#pragma once

#include "tests/live/plugin/plugin_host.h"

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace quorel {

// The library stays: another host of the same program has it as well.
inline LV2_Descriptor_Function pluginsOf(const char* library)
{
    void* loaded = dlopen(library, RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<LV2_Descriptor_Function>(loaded != nullptr ? dlsym(loaded, "lv2_descriptor") : nullptr);
}

class Host : public PluginHost {
public:
    explicit Host(bool microphone, const Offer& offer = {}) : PluginHost(described(microphone), microphone, offer) {}

private:
    static const LV2_Descriptor& described(bool microphone)
    {
        const auto plugins = pluginsOf(microphone ? QUOREL_LV2_FOLDER "/quorel-microphone.lv2/quorel-microphone.so"
                                                  : QUOREL_LV2_FOLDER "/quorel-speaker.lv2/quorel-speaker.so");
        const LV2_Descriptor* descriptor = plugins != nullptr ? plugins(microphone ? 1 : 0) : nullptr;
        if (descriptor == nullptr)
            throw std::runtime_error("no plug-in");
        return *descriptor;
    }
};

class Folder {
public:
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "quorel_plugin_XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~Folder() { std::filesystem::remove_all(path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string operator/(const char* name) const { return (path / name).string(); }

private:
    std::filesystem::path path;
};

} // namespace quorel

// SPDX-License-Identifier: MIT
// Including this header gives a test program a home of its own, and a folder of its own for presets and the like, on every system.
#pragma once

#include "tests/support/temporary_home.h"

#include <cstdlib>
#include <random>
#include <string>

namespace quorel {

class OwnFolders {
public:
    OwnFolders() : folder(std::filesystem::temp_directory_path() / ("quorel_panel_" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directories(folder);
#ifdef _WIN32
        _wputenv_s(L"APPDATA", folder.c_str());
#else
        setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
#endif
    }
    ~OwnFolders()
    {
        std::filesystem::remove_all(folder);
    }
    OwnFolders(const OwnFolders&) = delete;
    OwnFolders& operator=(const OwnFolders&) = delete;

private:
    TemporaryHome home;
    std::filesystem::path folder;
};

inline const OwnFolders ownFolders;

} // namespace quorel

// SPDX-License-Identifier: MIT
// A home directory of a test's own, so that it meets neither the user's settings nor another test's shared objects and kept
// values. On Windows the test runs in Wine's prefix, where no user has any: there the kept values are forgotten.
#pragma once

#include "platform/registry.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#ifdef __linux__
#include <fstream>
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace quorel {

class TemporaryHome {
public:
    TemporaryHome()
    {
#ifdef __linux__
        std::string pattern = (std::filesystem::temp_directory_path() / "quorel_home_XXXXXX").string();
        path_ = mkdtemp(pattern.data());
        setenv("HOME", path_.c_str(), 1);
        std::filesystem::create_directory(path_ / "run");
        setenv("XDG_RUNTIME_DIR", (path_ / "run").c_str(), 1);
#else
        forgetKeptValues();
#endif
    }
    ~TemporaryHome()
    {
#ifdef __linux__
        // The memory itself stands elsewhere; each record in the directory is the name of one.
        const auto shared = path_ / "run/quorel";
        if (std::filesystem::is_directory(shared)) {
            for (const auto& entry : std::filesystem::directory_iterator(shared)) {
                std::string name;
                if (entry.is_regular_file() && std::ifstream(entry.path()) >> name)
                    shm_unlink(name.c_str());
            }
        }
        std::filesystem::remove_all(path_);
#else
        forgetKeptValues();
#endif
    }
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    // Empty on Windows.
    const std::filesystem::path& path() const
    {
        return path_;
    }

private:
#ifndef __linux__
    static void forgetKeptValues()
    {
        static_cast<void>(platform::deleteKey(platform::rootKey(platform::RootKey::currentUser), "Software\\VEDRA\\QUOREL", 0));
    }
#endif

    std::filesystem::path path_;
};

} // namespace quorel

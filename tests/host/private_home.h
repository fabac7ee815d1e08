// Gives a test program a home directory of its own, where all named objects and kept values of a Linux system stand. On
// Windows the objects are the system's.
#pragma once

#ifndef _WIN32

#include <cstdlib>
#include <filesystem>
#include <string>

namespace quorel {

class PrivateHome {
public:
    PrivateHome() : directory(std::filesystem::temp_directory_path() / "quorel_test.XXXXXX")
    {
        if (mkdtemp(directory.data()) == nullptr)
            std::abort();
        setenv("HOME", directory.c_str(), 1);
    }

    ~PrivateHome()
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    PrivateHome(const PrivateHome&) = delete;
    PrivateHome& operator=(const PrivateHome&) = delete;

private:
    std::string directory;
};

inline const PrivateHome privateHome;

} // namespace quorel

#endif

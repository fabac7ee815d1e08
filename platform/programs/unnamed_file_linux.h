// SPDX-License-Identifier: MIT
// A file that has no name by the time it is used.
#pragma once

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace quorel::platform {

// Open for reading and writing; -1 on failure.
inline int unnamedFile()
{
    std::string name = (std::filesystem::temp_directory_path() / ".quorel-XXXXXX").string();
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0)
        unlink(name.c_str());
    return file;
}

} // namespace quorel::platform

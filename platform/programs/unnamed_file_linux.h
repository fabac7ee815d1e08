// SPDX-License-Identifier: MIT
// A file that has no name by the time it is used.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>

namespace quorel::platform {

// Open for reading and writing; -1 on failure, with the reason in errno.
inline int unnamedFile()
{
    std::error_code error;
    const auto folder = std::filesystem::temp_directory_path(error);
    if (error) {
        errno = error.value();
        return -1;
    }
    std::string name = (folder / ".quorel-XXXXXX").string();
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0)
        unlink(name.c_str());
    return file;
}

} // namespace quorel::platform

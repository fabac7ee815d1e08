// SPDX-License-Identifier: MIT
// InputFile opens what a user names as an input: a regular file, or a pipe, whose contents are kept in an unnamed file of the
// system's until it has ended, so that either can be read at any place.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quorel::platform {

class InputFile {
public:
    // path: "-" is standard input. Fails with std::runtime_error. `wait` is called several times a second while a pipe is waited for, and may throw.
    InputFile(const std::string& path, const std::function<void()>& wait);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    std::uint64_t bytes() const noexcept { return size; } // at its opening

    // At most `bytes` from `place`; fewer only at the end. Fails with std::runtime_error, which tells the system's reason alone.
    std::string read(std::size_t place, std::size_t bytes) const;

    // Its descriptor stays its own.
    int descriptor() const noexcept { return fd; }

    // Its descriptor, at its first byte, which belongs to the caller from now on.
    int release() noexcept;

private:
    int fd = -1;
    std::uint64_t size = 0;
};

} // namespace quorel::platform

// SPDX-License-Identifier: MIT
// StandardOutput takes a file that needs to be written at more than one place to standard output, as a whole: until then it is
// kept in an unnamed file of the system's.
#pragma once

namespace quorel::platform {

class StandardOutput {
public:
    // Fails with std::runtime_error, also when standard output is a terminal.
    StandardOutput();
    ~StandardOutput();
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    // Open for reading and writing; it belongs to this object.
    int descriptor() const noexcept { return fd; }

    // Copies what was written to standard output.
    void commit();

private:
    int fd = -1;
};

} // namespace quorel::platform

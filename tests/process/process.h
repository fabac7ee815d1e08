// SPDX-License-Identifier: MIT
// What differs between systems in starting, reading, killing and awaiting a process.
#pragma once

#include "tests/process/child.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorel {

struct Child::Process {
    // Throws std::system_error.
    Process(const std::string& program, const std::vector<std::string>& arguments);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Bytes of its standard output, at least one; 0 at the end.
    std::size_t read(char* to, std::size_t most);
    void kill();
    std::optional<int> wait(std::chrono::milliseconds patience);

    std::optional<int> ended; // the exit code, once it is known
    std::intptr_t id = 0;     // Linux: the process's number; Windows: its handle
    std::intptr_t watch = 0;  // Linux: its file; unused on Windows
    std::intptr_t output = 0; // the end of the pipe that its standard output goes into
};

} // namespace quorel

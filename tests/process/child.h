// SPDX-License-Identifier: MIT
// A process that a test starts, listens to and kills.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel {

// The file of the program that runs: a test may start itself a second time, with other arguments.
std::string ownProgram();

class Child {
public:
    // What a killed process ends with.
    static constexpr int killed = -9;

    // Starts the program with these arguments, which hold no quotation marks, and with this process's environment. Its
    // standard errors go where this process's go. A busy system may refuse for a while: it is tried again for as long as
    // `patience`. Throws std::runtime_error with the system's last error when the program can't be started.
    Child(const std::string& program, const std::vector<std::string>& arguments,
          std::chrono::milliseconds patience = std::chrono::seconds(10));

    // Kills it if it still runs.
    ~Child();
    Child(Child&&) noexcept;
    Child& operator=(Child&&) = delete;

    // The next line that it writes to its standard output, waited for without limit; none when there will be no more.
    std::optional<std::string> line();

    // At once and without warning, at any point of its work; returns when it is gone. Nothing happens when it has ended.
    void kill();

    // The exit code, negative when it did not exit by itself; none when it still runs after this time.
    std::optional<int> exitCode(std::chrono::milliseconds patience);

private:
    struct Process;
    std::unique_ptr<Process> process;
    std::string unread; // beyond the last line
};

} // namespace quorel

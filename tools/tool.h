// SPDX-License-Identifier: MIT
// What the tools have in common: how they begin and end, their options' ranges, and the bar that shows how far they are.
#pragma once

#include "platform/programs/process.h"

#include <CLI/CLI.hpp>

#include <boost/timer/progress_display.hpp>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace quorel {

// A failure that has an exit code of its own.
struct OtherExit : std::runtime_error {
    OtherExit(int code, const std::string& text) : std::runtime_error(text), code(code) {}
    int code;
};

// Runs a tool: parses the options, among them --version, which every tool has, then calls `body` for the exit code. Whatever fails becomes one line on standard error and
// exit code 2.
// An interrupt (SIGINT, SIGTERM, SIGHUP) unwinds the body and then ends the process as it would have at once.
int runTool(CLI::App& tool, int argc, char** argv, const std::function<int()>& body);

// Throws when the user has interrupted. To be called once per block.
void stopIfInterrupted();

// One line on standard error, in the tool's name.
void notice(const CLI::App& tool, const std::string& text);

// Tells how fast so many seconds of sound went through.
void tellSpeed(const CLI::App& tool, double sound, std::chrono::duration<double> taken);

// Checks an option's text: a number from `low` to `high`.
std::function<std::string(const std::string&)> numberFrom(std::int64_t low, std::int64_t high);

// Adds an option that takes a number from `low` to `high`; the help shows them, and the value that `value` has now.
template <typename Value>
CLI::Option* addNumber(CLI::App& tool, const std::string& name, Value& value, std::int64_t low, std::int64_t high,
                       const std::string& description);

// A bar on standard error, if that is a terminal and the length is known; otherwise nothing.
class Progress {
public:
    explicit Progress(std::optional<std::uint64_t> frames);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    // Ends the line of a bar that was given up.
    ~Progress();

    void advance(std::uint64_t frames);

private:
    std::optional<boost::timer::progress_display> bar;
};

// ---------------------------------------------------------------------------------------------------------------------

template <typename Value>
CLI::Option* addNumber(CLI::App& tool, const std::string& name, Value& value, std::int64_t low, std::int64_t high,
                       const std::string& description)
{
    const std::string range = std::to_string(low) + " to " + std::to_string(high);
    return tool.add_option(name, value, "[" + range + "] " + description)
        ->type_name("NUMBER")
        ->default_str(std::to_string(value))
        ->check(numberFrom(low, high), "");
}

} // namespace quorel

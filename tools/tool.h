// SPDX-License-Identifier: MIT
// What the tools have in common: how they begin and end, their options' ranges, and how their help looks.
#pragma once

#include "client/settings_fields.h"
#include "platform/programs/process.h"
#include "tools/command_line.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace quorel {

// A failure that has an exit code of its own.
struct OtherExit : std::runtime_error {
    OtherExit(int code, const std::string& text) : std::runtime_error(text), code(code) {}
    int code;
};

// Begins a tool: the first that its `main` does. From here on a lack of memory becomes one line on standard error and exit code 2
// also where it ends the program, as in libraries that let no exception pass.
CommandLine beginTool(const char* description, const char* name);

// Runs a tool: parses the options, among them --version, which every tool has, then calls `body` for the exit code. Whatever
// fails becomes one line on standard error and exit code 2. An interrupt (SIGINT, SIGTERM, SIGHUP) unwinds the body and then ends
// the process as it would have at once.
int runTool(const CommandLine& tool, int argc, char** argv, const std::function<int()>& body);

// What a user is told of it.
inline constexpr const char* noMemory = "there is too little memory";

// Throws when the user has interrupted. To be called once per block.
void stopIfInterrupted();

// One line on standard error, in the tool's name. Any thread.
void notice(const CommandLine& tool, const std::string& text);

// Checks an option's text: a number from `low` to `high`, in any usual notation.
template <typename Value>
std::function<std::string(const std::string&)> numberBetween(std::int64_t low, std::int64_t high);

// Adds an option that takes a number from `low` to `high`; the help shows them, and the value that `value` has now.
template <typename Value>
Option addNumber(const CommandLine& tool, const std::string& name, Value& value, std::int64_t low, std::int64_t high,
                 const std::string& description);

// " (did you mean NAME?)" for the candidate that is nearest to what was written, and empty where none is near.
std::string didYouMean(const std::string& written, const std::vector<std::string>& candidates);

// Text of the user's behind line breaks, so that no line is longer than `width` characters.
std::string wrapped(const std::string& text, std::size_t width);

// ---------------------------------------------------------------------------------------------------------------------

template <typename Value>
std::function<std::string(const std::string&)> numberBetween(std::int64_t low, std::int64_t high)
{
    return [low, high](const std::string& given) {
        const auto number = numberFrom(given);
        const bool whole = number && (std::is_floating_point_v<Value> || *number == std::floor(*number));
        const bool inside = whole && *number >= static_cast<double>(low) && *number <= static_cast<double>(high);
        return inside ? std::string() : given + " is not a number from " + std::to_string(low) + " to " + std::to_string(high);
    };
}

template <typename Value>
Option addNumber(const CommandLine& tool, const std::string& name, Value& value, std::int64_t low, std::int64_t high,
                 const std::string& description)
{
    const std::string range = std::to_string(low) + " to " + std::to_string(high);
    return tool
        .addText(
            name, [&value](const std::string& given) { value = static_cast<Value>(*numberFrom(given)); },
            "[" + range + "] " + description)
        .typeName("NUMBER")
        .defaultText(std::to_string(value))
        .check(numberBetween<Value>(low, high));
}

} // namespace quorel

// SPDX-License-Identifier: MIT
#include "tools/tool.h"

#include "tools/option_table.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>

namespace quorel {

namespace {

struct Interrupted {};

const char* const version = " " QUOREL_VERSION R"(
Copyright 2026 the QUOREL authors. Under the MIT licence; NOTICE names what it contains of others.
Built-in responses from the HRTF measurement of a KEMAR dummy head by Bill Gardner and
Keith Martin, MIT Media Lab, 1994.)";

constexpr std::size_t helpColumn = 26; // where the meaning of an option begins
constexpr std::size_t helpWidth = 80;

std::string smallLetters(std::string text)
{
    for (char& letter : text)
        letter = letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    return text;
}

// How many letters have to be put in, left out, changed or swapped with their neighbour.
std::size_t editsBetween(const std::string& a, const std::string& b)
{
    std::vector<std::vector<std::size_t>> edits(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i)
        for (std::size_t k = 0; k <= b.size(); ++k) {
            if (i == 0 || k == 0) {
                edits[i][k] = i + k;
                continue;
            }
            edits[i][k] = std::min({edits[i - 1][k] + 1, edits[i][k - 1] + 1, edits[i - 1][k - 1] + (a[i - 1] != b[k - 1])});
            if (i > 1 && k > 1 && a[i - 1] == b[k - 2] && a[i - 2] == b[k - 1])
                edits[i][k] = std::min(edits[i][k], edits[i - 2][k - 2] + 1);
        }
    return edits[a.size()][b.size()];
}

class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter() { column_width(helpColumn); }

    std::string make_option_desc(const CLI::Option* option) const override
    {
        return wrapped(option->get_description(), helpWidth - helpColumn);
    }

    std::string make_subcommand(const CLI::App* command) const override
    {
        std::ostringstream text;
        CLI::detail::format_help(text, command->get_name(), wrapped(command->get_description(), helpWidth - helpColumn),
                                 helpColumn);
        return text.str();
    }
};

// A misspelt option or command is told before what is missing because of it. Values that look like options are not looked at more
// closely: those are negative numbers, which have one dash.
void refuseUnknown(const CLI::App& tool, const std::vector<std::string>& arguments)
{
    const CLI::App* command = &tool;
    for (const std::string& argument : arguments) {
        if (argument == "--")
            return;
        if (!argument.starts_with("--")) {
            const CLI::App* parent = command;
            std::vector<std::string> names;
            for (const CLI::App* sub : parent->get_subcommands([](const CLI::App*) { return true; })) {
                names.push_back(sub->get_name());
                if (sub->check_name(argument))
                    command = sub;
            }
            if (command == parent && !names.empty())
                throw std::runtime_error("there is no command " + argument + didYouMean(argument, names));
            continue;
        }
        const std::string name = argument.substr(0, argument.find('='));
        std::vector<std::string> known;
        bool found = false;
        for (const CLI::Option* option : command->get_options()) {
            found = found || option->check_name(name);
            for (const std::string& each : option->get_lnames())
                known.push_back("--" + each);
        }
        if (!found)
            throw std::runtime_error("there is no option " + name + didYouMean(name, known));
    }
}

void finish(CLI::App& tool)
{
    tool.formatter(std::make_shared<HelpFormatter>());
    for (CLI::Option* option : tool.get_options())
        option->ignore_case();
    for (CLI::App* command : tool.get_subcommands([](CLI::App*) { return true; }))
        finish(*command);
}

const char* toolName = "";
std::atomic<bool> memoryLacked = false;
std::terminate_handler others = nullptr; // what ends a program for other reasons

// For which no memory is needed.
int tellNoMemory() noexcept
{
    std::fprintf(stderr, "%s: %s\n", toolName, noMemory);
    return 2;
}

[[noreturn]] void lackMemory()
{
    memoryLacked = true;
    throw std::bad_alloc();
}

[[noreturn]] void terminated() noexcept
{
    if (memoryLacked)
        std::_Exit(tellNoMemory());
    others();
    std::abort();
}

} // namespace

CommandLine beginTool(const char* description, const char* name)
{
    toolName = name;
    std::set_new_handler(lackMemory);
    others = std::set_terminate(terminated);
    return {description, name};
}

int runTool(const CommandLine& tool, int argc, char** argv, const std::function<int()>& body)
{
    platform::watchInterrupts();
    tool.app().set_version_flag("--version", tool.name() + version, "Print the version and exit");
    finish(tool.app());
    try {
        std::vector<std::string> arguments = platform::argumentsOf(argc, argv);
        if (arguments == std::vector<std::string>{"--option-table"}) { // not in the help: for those who make pages of it
            writeOptionTable(tool, std::cout);
            return 0;
        }
        refuseUnknown(tool.app(), arguments);
        std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
        tool.app().parse(arguments);
        return body();
    } catch (const CLI::Success& request) { // help or version
        return tool.app().exit(request);
    } catch (const Interrupted&) {
        return platform::endInterrupted();
    } catch (const std::bad_alloc&) {
        return tellNoMemory();
    } catch (const std::exception& error) {
        notice(tool, error.what());
        const auto* other = dynamic_cast<const OtherExit*>(&error);
        return other != nullptr ? other->code : 2;
    }
}

void stopIfInterrupted()
{
    if (platform::interrupted())
        throw Interrupted();
}

void notice(const CommandLine& tool, const std::string& text)
{
    std::cerr << tool.name() + ": " + text + '\n'; // as a whole, whatever other threads tell
}

std::string didYouMean(const std::string& written, const std::vector<std::string>& candidates)
{
    const std::string small = smallLetters(written);
    std::size_t least = small.size() / 3 + 1; // more than that is another word
    const std::string* nearest = nullptr;
    for (const std::string& candidate : candidates) {
        const std::size_t distance = editsBetween(small, smallLetters(candidate));
        if (distance < least || (distance == least && nearest == nullptr)) {
            least = distance;
            nearest = &candidate;
        }
    }
    return nearest == nullptr ? "" : " (did you mean " + *nearest + "?)";
}

std::string wrapped(const std::string& text, std::size_t width)
{
    std::string lines;
    std::size_t column = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find_first_of(" \n", begin), text.size());
        const std::size_t letters = end - begin;
        if (column > 0 && column + 1 + letters > width) {
            lines += '\n';
            column = 0;
        } else if (column > 0) {
            lines += ' ';
            ++column;
        }
        lines += text.substr(begin, letters);
        column += letters;
        begin = end + 1;
    }
    return lines;
}

} // namespace quorel

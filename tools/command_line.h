// SPDX-License-Identifier: MIT
// CommandLine and Option: what a tool says of its commands and options.
//
// Behind them stands CLI11, which is headers alone: a source that includes them takes four times as long to compile as one that
// includes this. Both are handles, whose copies stand for the same command or option, and live as long as one of the tool's does.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace quorel {

class Option {
public:
    explicit Option(CLI::Option* option) : option(option) {}

    Option description(const std::string& text) const;
    Option typeName(const std::string& name) const; // in the help; empty: none
    Option defaultText(const std::string& text) const;
    Option showDefault() const; // what its variable holds now
    Option group(const std::string& name) const;
    Option required() const;
    Option needs(Option other) const;
    Option excludes(Option other) const;

    // problem: why a text is none of the option's values, or empty.
    Option check(const std::function<std::string(const std::string& given)>& problem) const;
    Option oneOf(const std::vector<std::string>& values, bool anyCase = false) const;
    Option oneOf(const std::vector<int>& values) const;
    Option between(double low, double high) const;

    // Each time it is given it takes one text, which commas divide.
    Option dividedByCommas() const;

private:
    CLI::Option* option;
};

class CommandLine {
public:
    CommandLine(const std::string& description, const std::string& name);

    std::string name() const;
    CommandLine addCommand(const std::string& name, const std::string& meaning) const;
    void onChosen(const std::function<void()>& action) const;
    void requireCommand() const;
    void footer(const std::string& text) const;

    // The variable gets what is given and lives as long as the tool.
    Option add(const std::string& name, std::string& value, const std::string& meaning) const;
    Option add(const std::string& name, std::vector<std::string>& values, const std::string& meaning) const;
    Option add(const std::string& name, std::uint32_t& value, const std::string& meaning) const;
    Option add(const std::string& name, double& value, const std::string& meaning) const;
    Option addFlag(const std::string& name, bool& value, const std::string& meaning) const;
    Option addFlag(const std::string& name, std::string& value, const std::string& meaning) const; // may be given one
    Option addText(const std::string& name, const std::function<void(const std::string&)>& take,
                   const std::string& meaning) const;
    Option addTexts(const std::string& name, const std::function<void(const std::vector<std::string>&)>& take,
                    const std::string& meaning) const;

    // One of the words, of which it takes the number.
    Option addWord(const std::string& name, const std::map<std::string, int>& words, const std::function<void(int)>& take,
                   const std::string& meaning) const;

    // One that has been added.
    Option option(const std::string& name) const;

    CLI::App& app() const { return *command; } // for what parses and shows it

private:
    explicit CommandLine(std::shared_ptr<CLI::App> command);

    std::shared_ptr<CLI::App> command;
};

} // namespace quorel

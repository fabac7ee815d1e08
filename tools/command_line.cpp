// SPDX-License-Identifier: MIT
#include "tools/command_line.h"

#include <CLI/CLI.hpp>

#include <utility>

namespace quorel {

Option Option::description(const std::string& text) const
{
    return Option(option->description(text));
}

Option Option::typeName(const std::string& name) const
{
    return Option(option->type_name(name));
}

Option Option::defaultText(const std::string& text) const
{
    return Option(option->default_str(text));
}

Option Option::showDefault() const
{
    return Option(option->capture_default_str());
}

Option Option::group(const std::string& name) const
{
    return Option(option->group(name));
}

Option Option::required() const
{
    return Option(option->required());
}

Option Option::needs(Option other) const
{
    return Option(option->needs(other.option));
}

Option Option::excludes(Option other) const
{
    return Option(option->excludes(other.option));
}

Option Option::check(const std::function<std::string(const std::string& given)>& problem) const
{
    return Option(option->check(problem, ""));
}

Option Option::oneOf(const std::vector<std::string>& values, bool anyCase) const
{
    return Option(option->check((anyCase ? CLI::IsMember(values, CLI::ignore_case) : CLI::IsMember(values)).description("")));
}

Option Option::oneOf(const std::vector<int>& values) const
{
    return Option(option->check(CLI::IsMember(values).description("")));
}

Option Option::between(double low, double high) const
{
    return Option(option->check(CLI::Range(low, high).description("")));
}

Option Option::dividedByCommas() const
{
    return Option(
        option->delimiter(',')->expected(1)->allow_extra_args(false)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
}

// ---------------------------------------------------------------------------------------------------------------------

CommandLine::CommandLine(const std::string& description, const std::string& name)
    : command(std::make_shared<CLI::App>(description, name))
{
}

CommandLine::CommandLine(std::shared_ptr<CLI::App> command) : command(std::move(command)) {}

std::string CommandLine::name() const
{
    return command->get_name();
}

CommandLine CommandLine::addCommand(const std::string& name, const std::string& meaning) const
{
    return CommandLine(command->get_subcommand_ptr(command->add_subcommand(name, meaning)));
}

void CommandLine::onChosen(const std::function<void()>& action) const
{
    command->callback(action);
}

void CommandLine::requireCommand() const
{
    command->require_subcommand(1);
}

void CommandLine::footer(const std::string& text) const
{
    command->footer(text);
}

Option CommandLine::add(const std::string& name, std::string& value, const std::string& meaning) const
{
    return Option(command->add_option(name, value, meaning));
}

Option CommandLine::add(const std::string& name, std::vector<std::string>& values, const std::string& meaning) const
{
    return Option(command->add_option(name, values, meaning));
}

Option CommandLine::add(const std::string& name, std::uint32_t& value, const std::string& meaning) const
{
    return Option(command->add_option(name, value, meaning));
}

Option CommandLine::add(const std::string& name, double& value, const std::string& meaning) const
{
    return Option(command->add_option(name, value, meaning));
}

Option CommandLine::addFlag(const std::string& name, bool& value, const std::string& meaning) const
{
    return Option(command->add_flag(name, value, meaning));
}

Option CommandLine::addFlag(const std::string& name, std::string& value, const std::string& meaning) const
{
    return Option(command->add_flag(name, value, meaning));
}

Option CommandLine::addText(const std::string& name, const std::function<void(const std::string&)>& take,
                            const std::string& meaning) const
{
    return Option(command->add_option_function<std::string>(name, take, meaning));
}

Option CommandLine::addTexts(const std::string& name, const std::function<void(const std::vector<std::string>&)>& take,
                             const std::string& meaning) const
{
    return Option(command->add_option_function<std::vector<std::string>>(name, take, meaning));
}

Option CommandLine::addWord(const std::string& name, const std::map<std::string, int>& words,
                            const std::function<void(int)>& take, const std::string& meaning) const
{
    return Option(
        command->add_option_function<int>(name, take, meaning)->transform(CLI::CheckedTransformer(words).description("")));
}

Option CommandLine::option(const std::string& name) const
{
    return Option(command->get_option(name));
}

} // namespace quorel

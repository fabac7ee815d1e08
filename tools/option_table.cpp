// SPDX-License-Identifier: MIT
#include "tools/option_table.h"

#include <CLI/CLI.hpp>

#include <ostream>
#include <string>

namespace quorel {

namespace {

std::string field(const std::string& text)
{
    std::string written;
    for (const char c : text)
        written += c == '\n' ? "\\n" : c == '\t' ? " " : std::string(1, c);
    return '\t' + written;
}

std::string namesOf(const CLI::Option& option)
{
    std::string names;
    for (const std::string& name : option.get_snames())
        names += (names.empty() ? "-" : ",-") + name;
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "--" : ",--") + name;
    return names;
}

void write(const CLI::App& tool, const std::string& path, std::ostream& out)
{
    for (const CLI::Option* option : tool.get_options()) {
        if (option->get_positional()) {
            const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
            out << "positional" << field(path) << field(name) << field(option->get_required() ? "1" : "0")
                << field(option->get_description()) << '\n';
        } else {
            const std::string type = option->get_items_expected_max() == 0 ? "" : option->get_type_name();
            out << "option" << field(path) << field(namesOf(*option)) << field(type) << field(option->get_default_str())
                << field(option->get_description()) << '\n';
        }
    }
    if (!tool.get_footer().empty())
        out << "footer" << field(path) << field(tool.get_footer()) << '\n';
    for (const CLI::App* command : tool.get_subcommands({})) {
        const std::string deeper = path + (path.empty() ? "" : " ") + command->get_name();
        out << "command" << field(deeper) << field(command->get_description()) << '\n';
        write(*command, deeper, out);
    }
}

} // namespace

void writeOptionTable(const CommandLine& tool, std::ostream& out)
{
    out << "program" << field(tool.name()) << field(tool.app().get_description()) << '\n';
    write(tool.app(), "", out);
}

} // namespace quorel

// SPDX-License-Identifier: MIT
#include "tools/tool.h"

#include "tools/option_table.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace quorel {

namespace {

struct Interrupted {};

const char* const version = " " QUOREL_VERSION R"(
Copyright 2026 the QUOREL authors. Under the MIT licence; NOTICE names what it contains of others.
Built-in responses from the HRTF measurement of a KEMAR dummy head by Bill Gardner and
Keith Martin, MIT Media Lab, 1994.)";

} // namespace

int runTool(CLI::App& tool, int argc, char** argv, const std::function<int()>& body)
{
    platform::watchInterrupts();
    tool.set_version_flag("--version", tool.get_name() + version, "Print the version and exit");
    try {
        std::vector<std::string> arguments = platform::argumentsOf(argc, argv);
        if (arguments == std::vector<std::string>{"--option-table"}) { // not in the help: for those who make pages of it
            writeOptionTable(tool, std::cout);
            return 0;
        }
        std::reverse(arguments.begin(), arguments.end()); // as the parser takes them
        tool.parse(arguments);
        return body();
    } catch (const CLI::Success& request) { // help or version
        return tool.exit(request);
    } catch (const Interrupted&) {
        return platform::endInterrupted();
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

void notice(const CLI::App& tool, const std::string& text)
{
    std::cerr << tool.get_name() << ": " << text << '\n';
}

void tellSpeed(const CLI::App& tool, double sound, std::chrono::duration<double> taken)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << sound << " s of sound in " << std::setprecision(3) << taken.count()
         << " s: " << std::setprecision(0) << sound / taken.count() << " times real time";
    notice(tool, text.str());
}

std::function<std::string(const std::string&)> numberFrom(std::int64_t low, std::int64_t high)
{
    return [low, high](const std::string& given) {
        char* end = nullptr;
        const double number = std::strtod(given.c_str(), &end);
        const bool whole = end != given.c_str() && *end == '\0';
        const bool inside = whole && number >= static_cast<double>(low) && number <= static_cast<double>(high);
        return inside ? std::string() : given + " is not a number from " + std::to_string(low) + " to " + std::to_string(high);
    };
}

Progress::Progress(std::optional<std::uint64_t> frames)
{
    if (frames && platform::onTerminal())
        bar.emplace(static_cast<unsigned long>(*frames), std::cerr, "");
}

Progress::~Progress()
{
    if (bar && bar->count() < bar->expected_count())
        std::cerr << '\n';
}

void Progress::advance(std::uint64_t frames)
{
    if (bar)
        *bar += static_cast<unsigned long>(frames);
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// quorel-live makes a 7.1 headphone device and a clean microphone of the effects, on any desktop with PipeWire.
#include "client/live_status.h"
#include "live/live_host.h"
#include "tools/tool.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace quorel {
namespace {

const char* const description =
    R"(Makes two devices that every application can choose: "QUOREL headphones", which takes 7.1
sound and plays it binaurally on the default output, and "QUOREL microphone", the default
input with its noise taken out. It runs until it is told to stop (Ctrl+C, SIGTERM), through
restarts of the audio server and changes of devices. quorel-control steers both effects.
Exit code: 0 done; 2 failed, with one line on standard error that says why; 3 none is running
that --status or --bypass could be for.)";

constexpr int noneRuns = 3; // exit code

struct Options {
    LiveOptions live;
    bool speakerOnly = false;
    bool microphoneOnly = false;
    bool list = false;
    bool status = false;
    bool json = false;
    std::string bypass; // empty: not given
};

void declare(const CommandLine& tool, Options& options)
{
    LiveOptions& live = options.live;
    const Option speaker = tool.addFlag("--speaker", options.speakerOnly, "The headphone device alone");
    tool.addFlag("--microphone", options.microphoneOnly, "The microphone alone").excludes(speaker);
    tool.add("--channels", live.channels, "Channels of the headphone device: 8 (7.1), 6 (5.1) or 2")
        .oneOf(std::vector<int>{8, 6, 2})
        .typeName("NUMBER")
        .showDefault();
    tool.add("--output", live.output, "Play on this device instead of the default one; --list tells the names").typeName("NODE");
    tool.add("--input", live.input, "Take the sound of this microphone instead of the default one").typeName("NODE");
    tool.addFlag("--default", live.makeDefault, "Make the devices the default ones as long as it runs, and restore what was");
    tool.addFlag("--verbose", live.verbose, "Tell the figures of each side once a second");
    const Option list = tool.addFlag("--list", options.list, "List the devices for --output and --input, and exit");
    const Option status = tool.addFlag("--status", options.status, "Show what the running quorel-live does, and exit");
    tool.addFlag("--json", options.json, "The status as one JSON object").needs(status);
    tool.add("--bypass", options.bypass, "Let the running one pass the sound by its effects, or not, and exit")
        .oneOf(std::vector<std::string>{"on", "off"})
        .typeName("on|off")
        .excludes(status)
        .excludes(list);
}

nlohmann::json ask(const std::string& command)
{
    const auto told = askLive(command);
    if (!told)
        throw OtherExit(noneRuns, "no quorel-live is running");
    return *told;
}

std::string readable(const nlohmann::json& status)
{
    std::ostringstream text;
    text << readableSides(status) << "settings:";
    for (const auto& [name, value] : status["settings"].items())
        text << ' ' << name << '=' << value;
    text << '\n';
    return text.str();
}

void run(const CommandLine& tool, Options& options)
{
    if (options.list) {
        std::cout << listDevices();
    } else if (options.status) {
        const nlohmann::json told = ask("status");
        std::cout << (options.json ? told.dump() + '\n' : readable(told));
    } else if (!options.bypass.empty()) {
        ask("bypass " + options.bypass);
    } else {
        for (const std::string& name : {options.live.output, options.live.input})
            if (name.starts_with("quorel."))
                throw std::runtime_error(name + " is a device of quorel-live itself: its sound would go round in a loop");
        options.live.speaker = !options.microphoneOnly;
        options.live.microphone = !options.speakerOnly;
        LiveHost(options.live, [&](const std::string& text) { notice(tool, text); }).run();
    }
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-live");
    quorel::Options options;
    quorel::declare(tool, options);
    return quorel::runTool(tool, argc, argv, [&] {
        quorel::run(tool, options);
        return 0;
    });
}

// SPDX-License-Identifier: MIT
// Lines of arguments: to quorel-control, where no effect runs, and to the settings of a tool that renders or cleans.
#include "tests/fuzz/fuzz.h"
#include "tests/support/private_home.h"
#include "tools/settings_options.h"

#include <iostream>
#include <sstream>
#include <vector>

int quorelControl(int argc, char** argv); // its main

namespace {

using namespace quorel;

int settingsTool(int argc, char** argv, Effect effect)
{
    CommandLine tool("fuzz", "fuzz");
    SettingsChoice choice;
    addSettings(tool, choice, {}, effect);
    return runTool(tool, argc, argv, [&] {
        const SettingsRecord record = chosenSettings(choice, {});
        for (const SettingsField& field : settingsFields()) {
            const auto value = settingOf(record, field);
            require(value >= field.low && value <= field.high, "a setting that is taken is in its range");
        }
        return 0;
    });
}

} // namespace

// A byte for the tool, then an argument a line.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const auto which = input.below(3);
    std::vector<std::string> words = {"fuzz"};
    while (!input.ended() && words.size() < 32) {
        std::string word(input.line());
        word = word.substr(0, word.find('\0')); // as an argument ends
        if (word.find('/') != std::string::npos)
            return -1; // no file of the machine's
        words.push_back(word);
    }
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const auto argc = static_cast<int>(words.size());

    std::ostringstream said;
    auto* out = std::cout.rdbuf(said.rdbuf());
    auto* errors = std::cerr.rdbuf(said.rdbuf());
    const int code = which == 0 ? quorelControl(argc, argv.data())
                                : settingsTool(argc, argv.data(), which == 1 ? Effect::speaker : Effect::microphone);
    std::cout.rdbuf(out);
    std::cerr.rdbuf(errors);
    require(code == 0 || code == 2 || code == 3, "a tool ends by one of its codes");
    require(code == 0 || said.str().starts_with("fuzz: ") || said.str().starts_with("quorel-control: "), "a failure is told");
    return 0;
}

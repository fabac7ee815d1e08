// SPDX-License-Identifier: MIT
// quorel-plot draws what a setting does, measured on the effects themselves, without any of them running.
#include "tools/effect_charts.h"
#include "tools/hrtf_option.h"
#include "tools/input.h"
#include "tools/settings_options.h"

namespace quorel {
namespace {

const char* const description =
    R"(Draws what a setting does: the equaliser's curve, the limiter, the room's decay,
the microphone's curves, the gate, the noise reduction over a file, the
responses. The effects are measured as they are compiled; none has to run.
A file .svg or .png is a picture, a file .csv holds the numbers.
Exit code: 0 done; 2 failed, with one line on standard error that says why.)";

struct Options {
    std::string input;
    std::string output;
    SettingsRecord defaults;
    SettingsChoice choice;
    std::string hrtfFile; // empty: the built-in responses
    Equalize equalize = Equalize::byDiffuseField;
};

// The first channel, at a rate that the effect takes.
std::vector<Chart> noise(const Options& options)
{
    Input input(options.input, false, [](std::uint32_t own) { return own == 16000 || own < 16000 ? 16000U : 48000U; });
    const auto channels = static_cast<std::size_t>(input.channels());
    constexpr std::size_t part = 4096;   // frames
    constexpr std::size_t longest = 600; // s
    std::vector<float> read(part * channels);
    std::vector<float> sound;
    for (std::uint64_t got = part; got == part;) {
        stopIfInterrupted();
        got = input.read(read.data(), part);
        for (std::size_t i = 0; i < got; ++i)
            sound.push_back(read[i * channels]);
        if (sound.size() > longest * input.rate())
            throw std::runtime_error(options.input + " is longer than ten minutes");
    }
    return noiseCharts(sound, input.rate());
}

std::vector<Chart> responses(const CommandLine& tool, const Options& options)
{
    if (options.hrtfFile.empty())
        return responsesCharts(builtInSet());
    const ImportedSet imported = importHrtf(options.hrtfFile, options.equalize, 0, stopIfInterrupted);
    for (const std::string& note : imported.notes)
        notice(tool, note);
    return responsesCharts(imported.set);
}

void declare(const CommandLine& tool, Options& options, std::function<void()>& action)
{
    const auto subject = [&](const std::string& name, const std::string& meaning, std::size_t columns,
                             const std::function<std::vector<Chart>()>& charts) {
        CommandLine command = tool.addCommand(name, meaning);
        command.onChosen([&options, &action, columns, charts] {
            action = [&options, columns, charts] {
                checkChartName(options.output);
                writeCharts(charts(), columns, options.output);
            };
        });
        return command;
    };
    const auto output = [&options](const CommandLine& command) {
        command.add("FILE", options.output, "The picture, .svg or .png, or the numbers, .csv").required().typeName("");
        return command;
    };
    const auto settings = [&options] { return chosenSettings(options.choice, options.defaults); };

    const CommandLine equalizer = output(subject("equalizer", "The equaliser's response: --eq 3:+2.5dB", 1,
                                                 [settings] { return std::vector{equalizerChart(settings())}; }));
    addSettings(equalizer, options.choice, options.defaults, Effect::speaker);
    output(subject("limiter", "The level behind the limiters, over that of a sine", 2, limiterCharts));
    const CommandLine room = output(subject("room", "The room's decay in octaves: --reverb -5dB", 1,
                                            [settings] { return std::vector{roomChart(settings())}; }));
    addSettings(room, options.choice, options.defaults, Effect::speaker);
    output(subject("curves", "The microphone's two curves", 1, [] { return std::vector{curvesChart()}; }));
    const CommandLine gate = output(subject("gate", "The gate's levels, and how it shuts: --noiseGate -40dB", 2,
                                            [settings] { return gateCharts(settings()); }));
    addSettings(gate, options.choice, options.defaults, Effect::microphone);
    const CommandLine reduction =
        subject("noise", "What noise reduction takes from a file: levels before and after, and its gain", 1,
                [&options] { return noise(options); });
    reduction.add("SOUND", options.input, "The file; its first channel counts").required().typeName("");
    output(reduction);
    const CommandLine heads = output(subject("responses", "Head-related responses, the built-in ones or those of a file", 2,
                                             [&tool, &options] { return responses(tool, options); }));
    heads.add("--hrtf", options.hrtfFile, "The file: " + std::string(readableHrtfFiles)).typeName("FILE");
    addEqualize(heads, options.equalize);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-plot");
    quorel::Options options;
    std::function<void()> action;
    quorel::declare(tool, options, action);
    return quorel::runTool(tool, argc, argv, [&] {
        if (!action)
            throw std::runtime_error("a subject is required; --help tells them");
        action();
        return 0;
    });
}

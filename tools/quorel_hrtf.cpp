// SPDX-License-Identifier: MIT
// quorel-hrtf shows a file of head-related responses as the effect would take it, without any effect running.
#include "tools/effect_charts.h"
#include "tools/hrtf_option.h"

#include <cmath>
#include <iomanip>
#include <iostream>

namespace quorel {
namespace {

const char* const description =
    R"(Shows what the effect would take from a file of head-related responses: where
each speaker's responses come from, their levels, when they arrive, their
spectra, and how much of each would be cut.
Exit code: 0 done; 2 failed, with one line on standard error that says why.)";

struct Options {
    std::string file;
    Equalize equalize = Equalize::byDiffuseField;
    double gain = 0;  // dB
    std::string plot; // file, or empty
};

void print(const ImportedSet& imported)
{
    for (const std::string& note : imported.notes)
        std::cout << note << '\n';
    const FittedSet& set = imported.set;
    std::cout << std::fixed << std::setprecision(1) << "gain " << std::showpos << set.gainDb << std::noshowpos
              << " dB; taken from frame " << set.skipped << " on\n\n"
              << "                      level arrives   third octaves in dB, at Hz                        cut\n"
              << "speaker        ear       dB      ms    63   125   250   500    1k    2k    4k    8k   16k     %\n";
    for (std::size_t row = 0; row < set.taps.size(); ++row)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const auto& taps = set.taps.at(row).at(ear);
            double energy = 0;
            for (const float tap : taps)
                energy += static_cast<double>(tap) * static_cast<double>(tap);
            std::cout << std::left << std::setw(15) << speakerNames.at(row) << std::setw(6) << (ear == 0 ? "left" : "right")
                      << std::right << std::setw(6) << 10 * std::log10(energy) << std::setw(8) << std::setprecision(2)
                      << arrivalMs(taps) << std::setprecision(1);
            for (const double power : octavePowers(taps))
                std::cout << std::setw(6) << 10 * std::log10(power);
            std::cout << std::setw(6) << std::setprecision(2) << 100 * set.cut.at(row).at(ear) << std::setprecision(1) << '\n';
        }
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-hrtf");
    quorel::Options options;
    const quorel::CommandLine show = tool.addCommand("show", "Print a file's set");
    show.add("FILE", options.file, quorel::readableHrtfFiles).required().typeName("");
    quorel::addEqualize(show, options.equalize);
    quorel::addNumber(show, "--gain", options.gain, -20, 20, "dB, on top of the built-in set's level").defaultText("0");
    show.add("--plot", options.plot,
             "Draw spectra and taps as well, into a file .svg or .png,\nor their numbers into a file .csv")
        .typeName("FILE");
    tool.requireCommand();
    return quorel::runTool(tool, argc, argv, [&] {
        const quorel::ImportedSet imported =
            quorel::importHrtf(options.file, options.equalize, options.gain, quorel::stopIfInterrupted);
        if (!options.plot.empty())
            quorel::writeCharts(quorel::responsesCharts(imported.set), 2, options.plot);
        quorel::print(imported);
        return 0;
    });
}

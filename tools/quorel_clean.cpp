// SPDX-License-Identifier: MIT
// quorel-clean takes the noise out of a microphone recording: the capture effect, run block by block through the same front
// that a host uses.
#include "core/signal_path.h"
#include "microphone/microphone_tables.h"
#include "tools/input.h"
#include "tools/level_display.h"
#include "tools/settings_options.h"
#include "tools/tool.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace quorel {
namespace {

const char* const description =
    R"(Cleans a microphone recording, a WAV or FLAC file of 1 to 8 channels at 16000 or 48000 Hz:
noise reduction, then one of two equaliser curves, then a noise gate, each if it is on. The
output is a WAV file of the same channels, rate and length. A terminal shows the levels of
nine bands of the input while it is cleaned.
Noise reduction delays the sound, by 431 frames at 16000 Hz and by 782 at 48000 Hz, so that
the end of the input is missing from the output; --align gives both their places back.
The output gets its name when it is complete; until then a file of that name stays as it
was. Exit code: 0 done; 1 done, but samples of the input that are not finite or beyond 2^20
became 0, with one line on standard error that tells how many and where the first is;
2 failed, with one line on standard error that says why.)";

struct Options {
    std::string input;
    std::string output;
    std::uint32_t blockSize = 0; // frames; 0: two hops
    std::uint32_t resample = 0;  // frames per second; 0: the input's
    std::string sampleFormat = "float";
    bool align = false;
    bool pace = false;
    bool verbose = false;
    SettingsRecord settings;
};

void declare(CLI::App& tool, Options& options)
{
    SettingsRecord& settings = options.settings;
    settings.MicNR = 1;
    settings.levelsEnabled = 1;

    tool.add_option("INPUT", options.input, "WAV or FLAC file")->required()->type_name("");
    tool.add_option("OUTPUT", options.output, "WAV file; one of that name is replaced")->required()->type_name("");

    addNumber(tool, "--block-size", options.blockSize, 1, 48000,
              "Frames in a block, the portion that the effect gets at a time. Noise reduction\n"
              "and levels need multiples of 80 at 16000 Hz, of 240 at 48000 Hz; the levels\n"
              "are those of a block's end")
        ->default_str("10 ms");
    tool.add_flag("--align", options.align, "Take the delay of the noise reduction out");
    tool.add_option("--resample", options.resample, "Bring an input at another rate to 16000 or 48000 Hz")
        ->check(CLI::IsMember({16000, 48000}).description(""))
        ->type_name("NUMBER");
    tool.add_flag("--pace", options.pace, "Take as long as the sound lasts, so that the levels can be watched");
    tool.add_option("--sample-format", options.sampleFormat,
                    "Samples of the output: float (32 bits) keeps what is beyond full scale,\n"
                    "the integers pcm24 and pcm16 clip it")
        ->check(CLI::IsMember({"float", "pcm24", "pcm16"}).description(""))
        ->type_name("NAME")
        ->capture_default_str();
    tool.add_flag("--verbose", options.verbose, "Tell the speed even if standard error is no terminal");

    addSettings(tool, settings, Effect::microphone);
    tool.get_option("--levelsEnabled")->description("[0 to 255] Levels on the terminal: 0 off, a bar of progress; above 0 on");
}

int clean(const CLI::App& tool, const Options& options)
{
    Input input(options.input, options.resample);
    const std::uint32_t rate = input.rate();
    const MicrophoneRateRow* row = microphoneRate(rate);
    if (row == nullptr)
        throw std::runtime_error(options.input + " is at " + std::to_string(rate) +
                                 " Hz; the effect takes 16000 and 48000 Hz; --resample brings it there");
    if (input.channels() > 8)
        throw std::runtime_error(options.input + " has " + std::to_string(input.channels()) +
                                 " channels; the effect takes 1 to 8");

    const auto channels = static_cast<std::size_t>(input.channels());
    const std::size_t block = options.blockSize != 0 ? options.blockSize : 2 * row->hop;
    SignalPath path(SignalPath::Microphone{}, input.channels(), 0, static_cast<std::uint32_t>(block), rate);
    *path->settings() = options.settings;

    const bool wholeHops = block % row->hop == 0;
    if (!wholeHops && options.settings.MicNR != 0)
        notice(tool, "blocks of " + std::to_string(block) + " frames are no multiple of " + std::to_string(row->hop) +
                         ": there is no noise reduction, and no level");
    const bool late = wholeHops && options.settings.MicNR != 0;
    const std::uint64_t lead = options.align && late ? row->latency : 0; // frames to drop

    const std::optional<std::uint64_t> expected = input.frames(); // frames of the output
    AudioWriter writer(options.output, {input.channels(), rate, input.mask(), formatNamed(options.sampleFormat)}, expected);

    std::optional<LevelDisplay> display;
    if (options.settings.levelsEnabled != 0 && wholeHops) {
        display.emplace(rate);
        if (!display->usable())
            display.reset();
    }
    std::optional<Progress> progress;
    if (!display)
        progress.emplace(expected);

    std::vector<float> in(block * channels);
    std::vector<float> out(block * channels);
    const auto start = std::chrono::steady_clock::now();
    std::uint64_t done = 0;           // frames that have been through the effect
    std::optional<std::uint64_t> end; // as many as that will be, once the input has ended
    const auto written = [&](std::uint64_t frames) { return frames - std::min(frames, lead); };
    for (;;) {
        stopIfInterrupted();
        std::uint64_t got = 0;
        if (!end) {
            got = input.read(in.data(), block);
            if (got < block)
                end = done + got + (done + got > 0 ? lead : 0);
        }
        const std::uint64_t n = end ? std::min<std::uint64_t>(block, *end - done) : block;
        if (n == 0)
            break;

        // The effect always gets whole blocks: what the input does not fill is silence.
        std::fill(in.begin() + static_cast<std::ptrdiff_t>(got * channels), in.end(), 0.0F);
        path->process(in.data(), block, out.data(), block);
        const std::uint64_t fresh = written(done + n) - written(done);
        writer.write(out.data() + (n - fresh) * channels, fresh);
        done += n;
        if (options.pace)
            std::this_thread::sleep_until(start + std::chrono::duration<double>(static_cast<double>(done) / rate));
        if (display)
            display->show(path->levels(), static_cast<double>(done) / rate);
        if (progress)
            progress->advance(fresh);
    }
    if (display)
        display->show(path->levels(), static_cast<double>(written(done)) / rate, true);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    writer.commit();

    if (options.verbose || platform::onTerminal())
        tellSpeed(tool, static_cast<double>(written(done)) / rate, taken);
    return tellReplacements(tool, input);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    CLI::App tool(quorel::description, "quorel-clean");
    quorel::Options options;
    quorel::declare(tool, options);
    return quorel::runTool(tool, argc, argv, [&] { return quorel::clean(tool, options); });
}

// SPDX-License-Identifier: MIT
// quorel-clean takes the noise out of a microphone recording: the capture effect, run block by block through the same front
// that a host uses.
#include "core/signal_path.h"
#include "microphone/microphone_rates.h"
#include "tools/file_work.h"
#include "tools/level_display.h"
#include "tools/settings_options.h"
#include "tools/tool.h"

#include <chrono>
#include <cmath>
#include <thread>

namespace quorel {
namespace {

constexpr double settlingSeconds = 15; // in which the floor of any noise has risen to where it belongs

const char* const description =
    R"(Cleans a microphone recording of 1 to 8 channels: noise reduction, then one of
two equaliser curves, then a noise gate, each if it is on. The output has the
input's channels and length. Its rate is 16000 or 48000 Hz: an input at one of
them keeps it, others are resampled, lower ones than 16000 Hz to that, all
others to 48000 Hz. A terminal shows the levels of nine bands of the input while
it is cleaned.
Noise reduction needs some seconds until it knows the noise. So it hears the
beginning of the file ahead, backwards, before the output begins; --no-settle
and --pace leave that out, as the live effect has to.
Noise reduction delays the sound, by 431 frames at 16000 Hz and by 782 at
48000 Hz, so that the end of the input is missing from the output; --align gives
both their places back.
An output gets its name when it is complete; until then a file of that name
stays as it was. Exit code: 0 done; 1 done, but samples of an input that are not
finite or beyond 2^20 became 0, with one line on standard error that tells how
many and where the first is; 2 failed, with one line on standard error that says
why.)";

struct Options {
    FileOptions files;
    std::uint32_t blockSize = 0; // frames; 0: two hops
    std::uint32_t rate = 0;      // frames per second; 0: by the input's
    bool align = false;
    bool noSettle = false;
    bool pace = false;
    SettingsChoice choice;
    SettingsRecord settings; // once chosen
};

void declare(const CommandLine& tool, Options& options)
{
    options.settings.MicNR = 1;
    options.settings.levelsEnabled = 1;

    declareFiles(tool, options.files);
    tool.option("--no-resample").description("Refuse an input at another rate than 16000 and 48000 Hz");
    addNumber(tool, "--block-size", options.blockSize, 1, 48000,
              "Frames in a block, the portion that the effect gets at a time. Noise reduction and levels need multiples of 80 at "
              "16000 Hz, of 240 at 48000 Hz; the levels are those of a block's end")
        .defaultText("10 ms");
    tool.addFlag("--align", options.align, "Take the delay of the noise reduction out");
    tool.add("--rate", options.rate, "Of the output: 16000 or 48000 Hz")
        .oneOf(std::vector<int>{16000, 48000})
        .typeName("NUMBER")
        .excludes(tool.option("--no-resample"));
    tool.addFlag("--no-settle", options.noSettle, "Begin as the live effect does, without knowing the noise");
    tool.addFlag("--pace", options.pace, "Take as long as the sound lasts, so that the levels can be watched");
    addSettings(tool, options.choice, options.settings, Effect::microphone);
    tool.option("--levelsEnabled").description("[0 to 255] Levels on the terminal: 0 off, a bar of progress; above 0 on");
}

std::uint32_t rateFor(const Options& options, const std::string& input, std::uint32_t own)
{
    if (options.rate != 0)
        return options.rate;
    if (microphoneRate(own) != nullptr)
        return own;
    if (options.files.noResample)
        throw std::runtime_error(input + " is at " + std::to_string(own) + " Hz; the effect takes 16000 and 48000 Hz");
    return own < 16000 ? 16000 : 48000;
}

// Lets the effect hear `heard`, the beginning of the sound, ahead of it: backwards, so that its first frame comes last and goes
// over into the sound, and to and fro where the sound is shorter than the time that is needed. Whole blocks; what comes out is
// dropped.
void settle(SignalPath& path, const std::vector<float>& heard, std::size_t channels, std::size_t block, std::uint32_t rate)
{
    const std::size_t length = heard.size() / channels; // frames
    const auto blocks = static_cast<std::size_t>(settlingSeconds * rate) / block;
    std::vector<float> in(block * channels);
    std::vector<float> out(block * channels);
    for (std::size_t left = blocks * block; left > 0; left -= block) {
        stopIfInterrupted();
        for (std::size_t i = 0; i < block; ++i) {
            const std::size_t turn = (left - 1 - i) % (2 * length);
            const std::size_t from = turn < length ? turn : 2 * length - 1 - turn;
            std::copy_n(heard.data() + from * channels, channels, in.data() + i * channels);
        }
        path->process(in.data(), block, out.data(), block);
    }
}

void clean(const Options& options, const FileTask& task, FileReport& report, FileProgress& progress)
{
    Input input(task.input, options.files.allowTruncated, [&](std::uint32_t own) { return rateFor(options, task.input, own); });
    const std::uint32_t rate = input.rate();
    const MicrophoneRateRow* row = microphoneRate(rate);
    if (input.channels() > 8)
        throw std::runtime_error(task.input + " has " + std::to_string(input.channels()) + " channels; the effect takes 1 to 8");
    if (input.ownRate() != rate)
        report.notices.push_back(task.input + " is at " + std::to_string(input.ownRate()) + " Hz: resampled to " +
                                 std::to_string(rate) + " Hz");

    const auto channels = static_cast<std::size_t>(input.channels());
    const std::size_t block = options.blockSize != 0 ? options.blockSize : 2 * row->hop;
    SignalPath path(SignalPath::Microphone{}, input.channels(), 0, static_cast<std::uint32_t>(block), rate);
    *path->settings() = options.settings;

    const bool wholeHops = block % row->hop == 0;
    if (!wholeHops && options.settings.MicNR != 0)
        report.notices.push_back("blocks of " + std::to_string(block) + " frames are no multiple of " + std::to_string(row->hop) +
                                 ": there is no noise reduction, and no level");
    const bool late = wholeHops && options.settings.MicNR != 0;
    const std::uint64_t lead = options.align && late ? row->latency : 0; // frames to drop

    const std::optional<std::uint64_t> expected = input.frames(); // frames of the output
    Output output(task.output, layoutFor(options.files, task, input.channels(), rate, input.mask()), expected,
                  levelFor(options.files));

    // What is heard ahead is read ahead.
    std::vector<float> ahead;
    std::uint64_t taken = 0;  // frames of it that the loop below has had
    std::uint64_t silent = 0; // frames of the output that would hold the end of what was heard ahead
    if (late && !options.noSettle && !options.pace) {
        ahead.resize(static_cast<std::size_t>(settlingSeconds * rate) * channels);
        ahead.resize(input.read(ahead.data(), ahead.size() / channels) * channels);
        if (!ahead.empty()) {
            settle(path, ahead, channels, block, rate);
            silent = row->latency;
        }
    }
    const auto read = [&](float* x, std::uint64_t n) {
        const std::uint64_t kept = std::min<std::uint64_t>(n, ahead.size() / channels - taken);
        std::copy_n(ahead.data() + taken * channels, kept * channels, x);
        taken += kept;
        return kept < n ? kept + input.read(x + kept * channels, n - kept) : kept;
    };

    std::optional<LevelDisplay> display;
    if (options.settings.levelsEnabled != 0 && wholeHops && task.alone) {
        display.emplace(rate);
        if (!display->usable())
            display.reset();
    }

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
            got = read(in.data(), block);
            if (got < block)
                end = done + got + (done + got > 0 ? lead : 0);
        }
        const std::uint64_t n = end ? std::min<std::uint64_t>(block, *end - done) : block;
        if (n == 0)
            break;

        // The effect always gets whole blocks: what the input does not fill is silence.
        std::fill(in.begin() + static_cast<std::ptrdiff_t>(got * channels), in.end(), 0.0F);
        path->process(in.data(), block, out.data(), block);
        if (done < silent)
            std::fill_n(out.begin(), std::min<std::uint64_t>(silent - done, block) * channels, 0.0F);
        const std::uint64_t fresh = written(done + n) - written(done);
        output.write(out.data() + (n - fresh) * channels, fresh);
        done += n;
        if (options.pace)
            std::this_thread::sleep_until(start + std::chrono::duration<double>(static_cast<double>(done) / rate));
        if (display)
            display->show(path->levels(), static_cast<double>(done) / rate);
        else if (expected)
            progress.at(static_cast<double>(written(done)) / static_cast<double>(std::max(written(done), *expected)));
    }
    if (display)
        display->show(path->levels(), static_cast<double>(written(done)) / rate, true);
    output.commit();
    report.channels = input.channels();
    report.frames = written(done);
    reportSound(report, task, input, output);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-clean");
    quorel::Options options;
    quorel::declare(tool, options);
    return quorel::runTool(tool, argc, argv, [&] {
        options.settings = quorel::chosenSettings(options.choice, options.settings);
        return quorel::treatFiles(tool, options.files, [&](const auto& task, auto& report, auto& progress) {
            quorel::clean(options, task, report, progress);
        });
    });
}

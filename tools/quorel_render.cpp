// SPDX-License-Identifier: MIT
// quorel-render turns an audio file into what a listener should hear on headphones: the render effect, run block by block
// through the same front that a host uses.
#include "client/hrtf_delivery.h"
#include "core/signal_path.h"
#include "core/status.h"
#include "speaker/speaker_tables.h"
#include "tools/file_work.h"
#include "tools/hrtf_option.h"
#include "tools/settings_options.h"
#include "tools/tool.h"

#include <cmath>
#include <sstream>

namespace quorel {
namespace {

constexpr std::uint32_t effectRate = 48000; // frames per second that the effect is made for
constexpr std::size_t outputSlots = 8;      // samples in an output frame of the effect; the first two are the ears
constexpr double reverbTail = 1.0;          // seconds, unless another tail is asked for

const char* const description =
    R"(Renders an audio file of 1 to 8 channels for headphones, to a stereo file at
48000 Hz; an input at another rate is resampled. Speakers that a file does not
name follow from its number of channels: mono (front centre), stereo, 3.0, 4.0,
5.0 and 5.1 with back speakers, 7.1 (mask 0x63F).
With --no-resample the effect only copies what is not at 48000 Hz: the output
then has all channels of the input, at its rate and unchanged.
An output gets its name when it is complete; until then a file of that name
stays as it was. Exit code: 0 done; 1 done, but samples of an input that are not
finite or beyond 2^20 became 0, with one line on standard error that tells how
many and where the first is; 2 failed, with one line on standard error that says
why.)";

struct Options {
    FileOptions files;
    std::uint32_t blockSize = 480; // frames
    double tail = -1;              // seconds; below 0: as the settings ask for
    std::uint32_t channelMask = 0; // 0: the file's own
    HrtfOption hrtf;
    SettingsChoice choice;
    SettingsRecord settings; // once chosen
};

void declare(const CommandLine& tool, Options& options)
{
    options.settings.Settings = 1;

    declareFiles(tool, options.files);
    addNumber(tool, "--block-size", options.blockSize, 1, 848, "Frames in a block, the portion that the effect gets at a time");
    addNumber(tool, "--tail", options.tail, 0, 600, "Seconds of silence rendered behind the input, for what still sounds")
        .defaultText("1 with reverb, else 0");
    addNumber(
        tool, "--channel-mask", options.channelMask, 1, 0x3FFFF,
        "Speakers of the channels, in place of the file's own. Sum of 0x1 front left, 0x2 front right, 0x4 front centre, 0x8 "
        "low frequency, 0x10 back left, 0x20 back right, 0x200 side left, 0x400 side right; 7.1 is 0x63F. Channels of "
        "speakers that the effect does not know can be named as others that it knows, in this order")
        .defaultText("");
    options.hrtf.add(tool);
    addSettings(tool, options.choice, options.settings, Effect::speaker);
}

std::string hexadecimal(std::uint32_t number)
{
    std::ostringstream text;
    text << "0x" << std::uppercase << std::hex << number;
    return text.str();
}

// The effect for the layout of the input.
SignalPath pathFor(const Options& options, const FileTask& task, int channels, std::uint32_t mask, std::uint32_t rate)
{
    if (channels > 8)
        throw std::runtime_error(task.input + " has " + std::to_string(channels) + " channels; the effect takes 1 to 8");
    try {
        SignalPath path(SignalPath::Speaker{}, channels, mask, options.blockSize, rate);
        *path->settings() = options.settings;
        return path;
    } catch (const std::invalid_argument&) {
        int known = 0;
        for (const SpeakerRow& speaker : speakerTable)
            known += (mask & speaker.bit) != 0;
        throw std::runtime_error(task.input + " has an unknown layout: of the speakers in the channel mask " + hexadecimal(mask) +
                                 " the effect knows " + std::to_string(known) + ", and there are " + std::to_string(channels) +
                                 " channels; --channel-mask " + hexadecimal(layoutOf(static_cast<std::size_t>(channels), 0)) +
                                 " takes them for the speakers that the effect knows");
    }
}

// One block through the effect. What it refuses depends on the block's length alone: the reverb's pre-delays cannot pass a
// block of exactly their own length.
void process(SignalPath& path, const Options& options, std::vector<float>& in, std::vector<float>& out)
{
    try {
        path->process(in.data(), options.blockSize, out.data(), options.blockSize);
    } catch (const ipps::Error& error) {
        throw std::runtime_error("the effect refuses blocks of " + std::to_string(options.blockSize) + " frames (" +
                                 error.what() + "): the reverb delays a speaker of this layout by exactly as many; " +
                                 "choose another --block-size");
    }
}

void render(const Options& options, const FileTask& task, FileReport& report, FileProgress& progress)
{
    Input input(task.input, options.files.allowTruncated,
                [&](std::uint32_t own) { return options.files.noResample ? own : effectRate; });
    const std::uint32_t rate = input.rate();
    const std::uint32_t mask = options.channelMask != 0 ? options.channelMask : input.mask();
    const auto channels = static_cast<std::size_t>(input.channels());
    SignalPath path = pathFor(options, task, input.channels(), mask, rate);
    const std::vector<float> responses = options.hrtf.give(*path->settings(), mask);

    const bool copying = rate != effectRate;
    if (copying)
        report.notices.push_back(task.input + " is at " + std::to_string(rate) +
                                 " Hz, where the effect only copies: the output is the input unchanged");
    if (input.ownRate() != rate)
        report.notices.push_back(task.input + " is at " + std::to_string(input.ownRate()) + " Hz: resampled to 48000 Hz");

    const bool reverb = !copying && options.settings.Settings != 0 && options.settings.Reverb != 0;
    const double tailSeconds = options.tail >= 0 ? options.tail : reverb ? reverbTail : 0;
    const auto tail = static_cast<std::uint64_t>(std::llround(tailSeconds * rate));
    std::optional<std::uint64_t> expected = input.frames(); // frames of the output
    if (expected)
        *expected += tail;

    // A copied frame is as wide as the input's; a rendered one has eight slots, of which two go into the file.
    const std::size_t slots = copying ? channels : outputSlots;
    const std::size_t kept = copying ? channels : 2;
    Output output(task.output, layoutFor(options.files, task, static_cast<int>(kept), rate, copying ? mask : 0x3), expected,
                  levelFor(options.files));

    const std::size_t block = options.blockSize;
    std::vector<float> in(block * channels);
    std::vector<float> out(block * outputSlots);
    std::vector<float> packed(block * kept);

    std::uint64_t done = 0;           // frames written
    std::optional<std::uint64_t> end; // frames of the output, once the input has ended
    for (;;) {
        stopIfInterrupted();
        std::uint64_t got = 0;
        if (!end) {
            got = input.read(in.data(), block);
            if (got < block)
                end = done + got + tail;
        }
        const std::uint64_t n = end ? std::min<std::uint64_t>(block, *end - done) : block;
        if (n == 0)
            break;

        // The effect always gets whole blocks: what the input does not fill is silence.
        std::fill(in.begin() + static_cast<std::ptrdiff_t>(got * channels), in.end(), 0.0F);
        process(path, options, in, out);
        for (std::size_t i = 0; i < n; ++i)
            std::copy_n(out.data() + i * slots, kept, packed.data() + i * kept);
        output.write(packed.data(), n);
        done += n;
        if (expected)
            progress.at(static_cast<double>(done) / static_cast<double>(std::max(done, *expected)));
    }
    output.commit();
    report.channels = static_cast<int>(kept);
    report.frames = done;
    reportSound(report, task, input, output);
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-render");
    quorel::Options options;
    quorel::declare(tool, options);
    return quorel::runTool(tool, argc, argv, [&] {
        options.settings = quorel::chosenSettings(options.choice, options.settings);
        options.hrtf.load(tool);
        return quorel::treatFiles(tool, options.files, [&](const auto& task, auto& report, auto& progress) {
            quorel::render(options, task, report, progress);
        });
    });
}

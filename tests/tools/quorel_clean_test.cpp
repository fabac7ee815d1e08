// SPDX-License-Identifier: MIT
#include "tests/tools/tool_test.h"

#include "core/signal_path.h"

#include <bit>
#include <cmath>
#include <csignal>
#include <numbers>
#include <sys/resource.h>
#include <thread>

namespace quorel {
namespace {

using testing::HasSubstr;

constexpr int formats = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

class QuorelClean : public ToolTest {
protected:
    QuorelClean() : ToolTest(QUOREL_CLEAN, "quorel-clean") {}

    // Two tones of different height on every channel, faded in, of a level that no floor reaches.
    static std::vector<float> tones(int channels, std::size_t frames, int rate)
    {
        std::vector<float> samples;
        for (std::size_t i = 0; i < frames; ++i) {
            const double t = static_cast<double>(i) / rate;
            for (int c = 0; c < channels; ++c)
                samples.push_back(static_cast<float>(0.1 * std::sin(2 * std::numbers::pi * 1000 * t) +
                                                     0.05 * std::sin(2 * std::numbers::pi * (700 + 50 * c) * t)));
        }
        return samples;
    }

    // Runs the tool with standard error on a terminal of that kind and returns what is seen there.
    std::string seenOnTerminal(const std::vector<std::string>& arguments, const char* kind)
    {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_EQ(grantpt(terminal), 0);
        EXPECT_EQ(unlockpt(terminal), 0);
        const int far = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
        const pid_t child = start(arguments, STDOUT_FILENO, far, [kind] { setenv("TERM", kind, 1); });
        close(far);
        const std::string seen = readAll(terminal); // ends when the tool does
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        return seen;
    }
};

// ---- refusals -------------------------------------------------------------------------------------------------------

TEST_F(QuorelClean, AMissingInputIsRefused)
{
    expectRefusal(path("none.wav"), "cannot read " + path("none.wav") + ": No such file or directory");
}

TEST_F(QuorelClean, AnInputThatIsNoAudioIsRefused)
{
    expectRefusal(store("text.wav", "This is a letter.\n"), "text.wav: neither WAV, RF64, W64, FLAC, AIFF nor CAF");
}

TEST_F(QuorelClean, AFlacFileThatBreaksOffIsRefused)
{
    save("whole.flac", 2, noise(2, 20000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    expectRefusal(store("part.flac", bytes("whole.flac").substr(0, 30000)), "cannot read " + path("part.flac"));
}

TEST_F(QuorelClean, AnInputOfNineChannelsIsRefused)
{
    expectRefusal(save("nine.wav", 9, noise(9, 100)), "nine.wav has 9 channels; the effect takes 1 to 8");
}

TEST_F(QuorelClean, AnotherRateIsRefusedWhereItMayNotBeResampled)
{
    for (const int rate : {8000, 44100, 96000})
        expectRefusal(save("in.wav", 1, noise(1, 100), formats, 0, rate),
                      "in.wav is at " + std::to_string(rate) + " Hz; the effect takes 16000 and 48000 Hz", {"--no-resample"});
}

TEST_F(QuorelClean, AnOutputThatDoesNotFitIsRefused)
{
    expectRefusal(save("in.wav", 2, noise(2, 100000)), "cannot write " + path("old.wav"), {}, [] {
        const rlimit limit{65536, 65536}; // bytes in a file
        setrlimit(RLIMIT_FSIZE, &limit);
    });
}

TEST_F(QuorelClean, EveryNumberBeyondItsRangeIsRefusedAndItsEndsAreTaken)
{
    struct Range {
        std::string option;
        std::vector<std::string> beyond;
        std::vector<std::string> ends;
    };
    const std::vector<Range> ranges = {{"--block-size", {"0", "48001", "-1"}, {"240", "48000"}},
                                       {"--MicNR", {"-1", "256"}, {"0", "255"}},
                                       {"--micEq", {"-1", "3"}, {"0", "2"}},
                                       {"--noiseGate", {"-1", "256", "loud"}, {"0", "255"}},
                                       {"--levelsEnabled", {"-1", "256"}, {"0", "255"}}};
    const std::string input = save("in.wav", 1, noise(1, 1000));
    for (const auto& [option, beyond, ends] : ranges) {
        for (const std::string& value : beyond)
            expectRefusal(input, option + ": " + value + " is not a number from", {option, value});
        for (const std::string& value : ends)
            treat(input, {option, value});
    }
}

TEST_F(QuorelClean, AnUnknownOptionRateOrFormatIsRefused)
{
    const std::string input = save("in.wav", 1, noise(1, 100));
    expectRefusal(input, "--Reverb", {"--Reverb", "3"});
    expectRefusal(input, "--rate", {"--rate", "44100"});
    expectRefusal(input, "--sample-format: mp3 not in {float,pcm24,pcm16}", {"--sample-format", "mp3"});
}

TEST_F(QuorelClean, MissingFileNamesAreRefused)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{}, {path("in.wav")}}) {
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        expectOneLine(outcome.err, arguments.empty() ? "INPUT is required" : "OUTPUT is required");
    }
}

// ---- the output as a file -------------------------------------------------------------------------------------------

TEST_F(QuorelClean, TheOutputHasTheInputsChannelsRateSpeakersAndLength)
{
    for (const int rate : {16000, 48000})
        for (const int channels : {1, 2, 6, 8})
            for (const std::size_t frames : {0U, 1U, 159U, 160U, 480U, 481U, 3001U})
                for (const bool align : {false, true}) {
                    std::vector<std::string> options;
                    if (align)
                        options.emplace_back("--align");
                    if (channels > 1) // what it hears ahead takes longest
                        options.emplace_back("--no-settle");
                    const std::string input = save("in.wav", channels, noise(channels, frames), formats, 0, rate);
                    const Sound out = treat(input, options);
                    EXPECT_EQ(out.info.frames, static_cast<sf_count_t>(frames));
                    EXPECT_EQ(out.info.channels, channels);
                    EXPECT_EQ(out.info.samplerate, rate);
                    EXPECT_EQ(out.info.format & SF_FORMAT_SUBMASK, SF_FORMAT_FLOAT);
                }
    const Sound out = treat(save("in.wav", 6, noise(6, 100), 0, 0x60F));
    EXPECT_EQ(out.speakers, load(path("in.wav")).speakers);
}

TEST_F(QuorelClean, EqualRunsAreEqualFilesWhateverTheBlocks)
{
    const std::string input = save("in.wav", 2, tones(2, 20000, 48000));
    treat(input);
    const std::string first = bytes("out.wav");
    treat(input);
    EXPECT_TRUE(bytes("out.wav") == first);
    for (const char* block : {"240", "720", "4800", "48000"}) {
        treat(input, {"--block-size", block});
        EXPECT_TRUE(bytes("out.wav") == first) << block;
    }
}

TEST_F(QuorelClean, AFlacFileGivesTheOutputOfTheSameWavFile)
{
    const std::vector<float> samples = noise(2, 3000);
    treat(save("in.wav", 2, samples, SF_FORMAT_WAV | SF_FORMAT_PCM_16));
    const std::string fromWav = bytes("out.wav");
    treat(save("in.flac", 2, samples, SF_FORMAT_FLAC | SF_FORMAT_PCM_16));
    EXPECT_TRUE(bytes("out.wav") == fromWav);
}

TEST_F(QuorelClean, AnInputCanBeReplacedByItsOwnOutput)
{
    const std::string file = save("same.wav", 2, noise(2, 3000));
    treat(file);
    const Outcome outcome = run({file, file});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_TRUE(bytes("same.wav") == bytes("out.wav"));
}

TEST_F(QuorelClean, TheSampleFormatIsTheOneAskedFor)
{
    const std::string input = save("in.wav", 1, noise(1, 1000));
    treat(input, {"--sample-format", "pcm16"});
    EXPECT_EQ(load(path("out.wav")).info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    treat(input, {"--sample-format", "pcm24"});
    EXPECT_EQ(load(path("out.wav")).info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
}

TEST_F(QuorelClean, AnInterruptLeavesTheOldOutputAndNothingElse)
{
    store("old.wav", "an older file");
    const std::string input = save("long.wav", 1, silence(1, 480000)); // ten seconds at the pace of the sound
    const std::vector<fs::path> before = entries();
    const pid_t child = start({input, path("old.wav"), "--pace"}, STDOUT_FILENO, STDERR_FILENO);
    for (int tries = 0; tries < 5000 && entries() == before; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_EQ(waitpid(child, nullptr, WNOHANG), 0);
    kill(child, SIGINT);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_TRUE(bytes("old.wav") == "an older file");
    EXPECT_EQ(entries(), before);
}

// ---- the sound ------------------------------------------------------------------------------------------------------

TEST_F(QuorelClean, WithEverythingOffTheOutputIsTheInput)
{
    for (const int rate : {16000, 48000}) {
        const std::string input = save("in.wav", 3, noise(3, 5000), formats, 0, rate);
        EXPECT_EQ(treat(input, {"--MicNR", "0"}).samples, load(input).samples);
        EXPECT_EQ(treat(input, {"--MicNR", "0", "--align"}).samples, load(input).samples); // nothing is late
    }
}

TEST_F(QuorelClean, NoiseReductionDelaysAndAlignTakesTheDelayOut)
{
    for (const auto& [rate, latency] : {std::pair{16000, 431U}, {48000, 782U}}) {
        const auto frames = static_cast<std::size_t>(rate);
        const std::string input = save("in.wav", 2, tones(2, frames, rate), formats, 0, rate);
        const Sound in = load(input);
        // A tone that lasts is noise to who knows it from before.
        const Sound late = treat(input, {"--no-settle"});
        const Sound aligned = treat(input, {"--no-settle", "--align"});
        // The gain rises to 1 with 40 ms; after 0.4 s it is there but for e^-10. The bank is transparent within a percent.
        for (std::size_t i = frames * 2 / 5; i < frames * 9 / 10; ++i)
            for (std::size_t c = 0; c < 2; ++c)
                ASSERT_NEAR(aligned.at(i, c), in.at(i, c), 2e-3) << rate << ' ' << i;
        for (std::size_t i = 0; i < frames - latency; ++i)
            ASSERT_EQ(aligned.at(i, 1), late.at(i + latency, 1));
    }
}

TEST_F(QuorelClean, NoiseBehindAVoiceIsLowered)
{
    for (const int rate : {16000, 48000}) {
        const auto frames = static_cast<std::size_t>(rate) * 8;
        const Sound out = treat(save("in.wav", 1, noise(1, frames), formats, 0, rate));
        const std::vector<float> in = noise(1, frames);
        double before = 0;
        double after = 0;
        for (std::size_t i = frames / 2; i < frames; ++i) {
            before += std::pow(static_cast<double>(in[i]), 2);
            after += std::pow(static_cast<double>(out.at(i, 0)), 2);
        }
        const double db = 10 * std::log10(after / before);
        EXPECT_LT(db, -2) << rate;
        EXPECT_GT(db, -10) << rate;
    }
}

// The power of the output in [from, to) of the input's, in dB.
double changeDb(const Sound& out, const std::vector<float>& in, std::size_t from, std::size_t to)
{
    double before = 0;
    double after = 0;
    for (std::size_t i = from; i < to; ++i) {
        before += std::pow(static_cast<double>(in[i]), 2);
        after += std::pow(static_cast<double>(out.at(i, 0)), 2);
    }
    return 10 * std::log10(after / before);
}

// White noise as well as hum, whose floor the live effect needs longest for: it is lowered from the first tenth of a second on as
// much as after 20 s, within 1.5 dB, where the live effect has done nothing yet.
TEST_F(QuorelClean, WhatItHeardAheadIsReducedFromTheStart)
{
    const std::size_t rate = 48000;
    std::vector<float> hum(24 * rate);
    for (const double hertz : {50.0, 100.0, 150.0, 250.0, 350.0})
        for (std::size_t i = 0; i < hum.size(); ++i)
            hum[i] += static_cast<float>(0.05 * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(i) / rate));
    for (const std::vector<float>& sound : {noise(1, 24 * rate), hum}) {
        const std::string input = save("in.wav", 1, sound);
        const Sound settled = treat(input, {"--align"});
        const Sound live = treat(input, {"--align", "--no-settle"});
        const double held = changeDb(live, sound, 20 * rate, 22 * rate);
        EXPECT_LT(held, -3);
        EXPECT_NEAR(changeDb(settled, sound, rate / 10, rate), held, 1.5);
        EXPECT_GT(changeDb(live, sound, rate / 2, rate), held + 1.5);
    }
}

TEST_F(QuorelClean, NothingOfWhatItHeardAheadIsInTheOutput)
{
    for (const auto& [rate, latency] : {std::pair{16000, 431U}, {48000, 782U}}) {
        const auto frames = static_cast<std::size_t>(rate);
        const Sound out = treat(save("in.wav", 1, noise(1, frames), formats, 0, rate));
        for (std::size_t i = 0; i < latency; ++i)
            ASSERT_EQ(out.at(i, 0), 0);
        EXPECT_NE(out.at(latency, 0), 0);
    }
}

// Without a look ahead the tool gives what the effect gives, block by block.
TEST_F(QuorelClean, NoSettleGivesTheLivePathsBitsAndSoDoesPace)
{
    std::vector<float> sound = noise(2, 24000);
    const std::string input = save("in.wav", 2, sound);
    const Sound out = treat(input, {"--no-settle"});
    const std::string plain = bytes("out.wav");
    treat(input, {"--pace"});
    EXPECT_TRUE(bytes("out.wav") == plain);

    SignalPath path(SignalPath::Microphone{}, 2, 0, 480, 48000);
    path->settings()->MicNR = 1;
    path->settings()->levelsEnabled = 1;
    std::vector<float> expected(sound.size());
    for (std::size_t i = 0; i < sound.size(); i += 960)
        path->process(sound.data() + i, 480, expected.data() + i, 480);
    EXPECT_EQ(out.samples, expected);
}

TEST_F(QuorelClean, AnyRateBecomesTheNearestThatTheEffectTakes)
{
    for (const auto& [from, to] : {std::pair{8000, 16000}, {11025, 16000}, {22050, 48000}, {44100, 48000}, {96000, 48000}}) {
        const Sound out = treat(save("in.wav", 1, noise(1, 2000), formats, 0, from), {},
                                "is at " + std::to_string(from) + " Hz: resampled to " + std::to_string(to) + " Hz");
        EXPECT_EQ(out.info.samplerate, to);
    }
}

TEST_F(QuorelClean, ASettingReachesTheEffectByItsName)
{
    const std::string input = save("in.wav", 1, tones(1, 20000, 48000));
    treat(input, {"--MicNR", "0"});
    const std::string plain = bytes("out.wav");
    for (const std::vector<std::string>& setting :
         {std::vector<std::string>{"--MicNR", "1"}, {"--MicNR", "0", "--micEq", "1"}, {"--MicNR", "0", "--noiseGate", "255"}}) {
        treat(input, setting);
        EXPECT_FALSE(bytes("out.wav") == plain) << setting.back();
    }
}

TEST_F(QuorelClean, BlocksOfPartHopsAreNotCleanedAndTheToolSaysSo)
{
    const std::string input = save("in.wav", 1, noise(1, 5000));
    const Outcome outcome = run({input, path("out.wav"), "--block-size", "100", "--align"});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    expectOneLine(outcome.err, "blocks of 100 frames are no multiple of 240");
    EXPECT_EQ(load(path("out.wav")).samples, load(input).samples);
}

TEST_F(QuorelClean, ResamplingBringsAnInputToTheRateAskedFor)
{
    for (const auto& [from, to] : {std::pair{44100, 48000}, {8000, 16000}, {48000, 16000}, {44100, 16000}}) {
        const std::string input = save("in.wav", 1, tones(1, static_cast<std::size_t>(from), from), formats, 0, from);
        const Sound out = treat(input, {"--rate", std::to_string(to), "--MicNR", "0"},
                                "is at " + std::to_string(from) + " Hz: resampled to " + std::to_string(to) + " Hz");
        EXPECT_EQ(out.info.samplerate, to);
        EXPECT_EQ(out.info.frames, to);
        const std::vector<float> expected = tones(1, static_cast<std::size_t>(to), to);
        for (std::size_t i = static_cast<std::size_t>(to) / 4; i < static_cast<std::size_t>(to) / 2; ++i)
            ASSERT_NEAR(out.at(i, 0), expected[i], 1e-5); // 20 bits of resampling
    }
}

// ---- what it says ---------------------------------------------------------------------------------------------------

TEST_F(QuorelClean, ATerminalSeesNineLevelsAndTheSpeed)
{
    for (const int rate : {16000, 48000}) {
        const std::string input = save("in.wav", 1, tones(1, static_cast<std::size_t>(rate), rate), formats, 0, rate);
        const std::string seen = seenOnTerminal({input, path("out.wav")}, "xterm");
        EXPECT_THAT(seen, HasSubstr(rate == 16000 ? "   63 to    94 Hz " : "   94 to   141 Hz "));
        EXPECT_THAT(seen, HasSubstr(rate == 16000 ? " 5344 to  8000 Hz " : "10734 to 24000 Hz "));
        EXPECT_EQ(seen.find("no frequencies") != std::string::npos, rate == 16000);
        EXPECT_THAT(seen, HasSubstr("#####"));
        EXPECT_THAT(seen, HasSubstr(" -60 dB"));
        EXPECT_THAT(seen, HasSubstr("\x1b[A")); // up, for the next picture
        EXPECT_THAT(seen, HasSubstr("\r\n1.0 s"));
        EXPECT_THAT(seen, HasSubstr("1.00 s of sound in "));
    }
}

TEST_F(QuorelClean, AtItsOwnPaceTheSoundTakesItsTime)
{
    const std::string input = save("in.wav", 1, tones(1, 24000, 48000));
    const auto start = std::chrono::steady_clock::now();
    const std::string seen = seenOnTerminal({input, path("out.wav"), "--pace"}, "xterm");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_THAT(seen, HasSubstr("0.3 s"));
}

TEST_F(QuorelClean, WithoutLevelsOrOnASimplerTerminalABarShows)
{
    const std::string input = save("in.wav", 1, tones(1, 48000, 48000));
    for (const auto& [kind, levels] : {std::pair{"xterm", "0"}, {"dumb", "1"}, {"none-such", "1"}}) {
        const std::string seen = seenOnTerminal({input, path("out.wav"), "--levelsEnabled", levels}, kind);
        EXPECT_THAT(seen, HasSubstr("100%"));
        EXPECT_THAT(seen, testing::Not(HasSubstr(" dB")));
    }
}

TEST_F(QuorelClean, VerboseTellsTheSpeedInAPipeToo)
{
    const Outcome outcome = run({save("in.wav", 1, noise(1, 48000)), path("out.wav"), "--verbose"});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    expectOneLine(outcome.err, "1.00 s of sound in ");
}

TEST_F(QuorelClean, SamplesThatNoEffectCanTakeBecomeZeroAndAreTold)
{
    expectReplacements(48000);
    expectReplacements(44100, {"--rate", "16000"});
}

TEST_F(QuorelClean, APipeIsReadLikeAFile)
{
    expectPipeLikeFile(save("in.wav", 2, noise(2, 30000)));
}

TEST_F(QuorelClean, WaitingForAPipeEndsByATermination)
{
    expectWaitingEndsBy(SIGTERM);
}

TEST_F(QuorelClean, HelpNamesEveryOptionAndSucceeds)
{
    const Outcome outcome = run({"--help"});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_EQ(outcome.err, "");
    for (const char* text :
         {"--block-size NUMBER=10 ms", "--align", "--rate", "--pace", "--sample-format", "--verbose", "--MicNR NUMBER=1 ",
          "--micEq NUMBER=0 ", "--noiseGate NUMBER=0 ", "--levelsEnabled NUMBER=1", "431 frames", "782"})
        EXPECT_THAT(outcome.out, HasSubstr(text));
}

} // namespace
} // namespace quorel

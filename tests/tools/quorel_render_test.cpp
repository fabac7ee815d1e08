// SPDX-License-Identifier: MIT
// The tool as its user meets it: started as a process, on files that are made here.
#include "tests/tools/render_test.h"

#include <cmath>
#include <numbers>

namespace quorel {
namespace {

using testing::HasSubstr;

// ---- other responses --------------------------------------------------------------------------------------------------

// One tap for each pair: 1 at frame 10 of the near ear, a half at frame 20 of the far one. Channel 1 is front left's left ear.
TEST_F(QuorelRender, ResponsesOfAFileTakeTheBuiltInOnesPlace)
{
    constexpr std::size_t setChannels = 14;
    std::vector<float> set(100 * setChannels);
    for (const std::size_t nearChannel : {0, 2, 4, 6, 7, 9, 11, 13})
        set[10 * setChannels + nearChannel] = 1;
    for (const std::size_t farChannel : {1, 3, 5, 8, 10, 12})
        set[20 * setChannels + farChannel] = 0.5F;
    const std::string responses = save("set.wav", 14, set);

    std::vector<float> impulse(2 * 400);
    impulse[0] = 0.01F; // far below the limiter
    const Outcome outcome = run({save("in.wav", 2, impulse), path("out.wav"), "--hrtf", responses});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_THAT(outcome.err, HasSubstr("fourteen channels of 100 frames at 48000 Hz\n"));
    const Sound heard = load(path("out.wav"));
    std::size_t first = 0;
    while (first < 100 && std::abs(heard.at(first, 0)) < 1e-4F)
        ++first;
    const float direct = heard.at(first, 0);
    for (std::size_t i = 0; i < 300; ++i) {
        EXPECT_NEAR(heard.at(i, 0), i == first ? direct : 0, 1e-6) << i; // the transforms' noise
        EXPECT_NEAR(heard.at(i, 1), i == first + 10 ? direct / 2 : 0, 1e-6) << i;
    }
    expectRefusal(path("in.wav"), "cannot read " + path("none.sofa") + ": No such file or directory",
                  {"--hrtf", path("none.sofa")});
}

// ---- layouts --------------------------------------------------------------------------------------------------------

TEST_F(QuorelRender, EverySpeakerOfEveryLayoutLandsInTheDownMix)
{
    struct Speaker {
        std::uint32_t bit;
        double left;
        double right;
    };
    constexpr Speaker speakers[] = {{0x1, 1, 0},      {0x2, 0, 1},      {0x4, 0.5, 0.5},   {0x8, 0.707, 0.707},
                                    {0x10, 0.707, 0}, {0x20, 0, 0.707}, {0x200, 0.707, 0}, {0x400, 0, 0.707}};
    // Channel c holds a level of its own, 2^-c of 0.1; the gain of the output is 0.8. After the first block nothing fades.
    for (const std::uint32_t mask :
         {0x4U, 0x3U, 0x7U, 0xBU, 0x33U, 0x603U, 0x37U, 0x607U, 0x3FU, 0x60FU, 0x637U, 0x63BU, 0x63FU}) {
        const int channels = std::popcount(mask);
        std::vector<float> samples;
        for (int i = 0; i < 2000; ++i)
            for (int c = 0; c < channels; ++c)
                samples.push_back(std::ldexp(0.1F, -c));
        const Sound out = render(save("in.wav", channels, samples, 0, mask), {"--Settings", "0"});
        double left = 0;
        double right = 0;
        int c = 0;
        for (const Speaker& speaker : speakers) {
            if ((mask & speaker.bit) == 0)
                continue;
            left += 0.8 * 0.1 * std::ldexp(speaker.left, -c);
            right += 0.8 * 0.1 * std::ldexp(speaker.right, -c);
            ++c;
        }
        // Float rounding of a few operations, and of a flat equaliser's recursion, stays far below 1e-5.
        EXPECT_NEAR(out.at(1500, 0), left, 1e-5) << std::hex << mask;
        EXPECT_NEAR(out.at(1500, 1), right, 1e-5) << std::hex << mask;
    }
}

TEST_F(QuorelRender, AnInputThatNamesNoSpeakersHasTheUsualOnes)
{
    constexpr std::pair<int, std::uint32_t> usual[] = {{1, 0x4}, {2, 0x3}, {3, 0x7}, {4, 0x33}, {5, 0x37}, {6, 0x3F}, {8, 0x63F}};
    for (const auto& [channels, mask] : usual) {
        const std::vector<float> samples = noise(channels, 2000);
        render(save("plain.wav", channels, samples));
        const std::string plain = bytes("out.wav");
        render(save("named.wav", channels, samples, 0, mask));
        EXPECT_TRUE(bytes("out.wav") == plain) << channels;
    }
}

TEST_F(QuorelRender, AMaskOptionTakesThePlaceOfTheFilesOwn)
{
    const std::vector<float> samples = noise(2, 2000);
    render(save("front.wav", 2, samples, 0, 0x3));
    const std::string front = bytes("out.wav");
    render(save("centre.wav", 2, samples, 0, 0xC), {"--channel-mask", "0x3"});
    EXPECT_TRUE(bytes("out.wav") == front);
    render(path("centre.wav"));
    EXPECT_FALSE(bytes("out.wav") == front);
}

// ---- settings -------------------------------------------------------------------------------------------------------

TEST_F(QuorelRender, TheSurroundEffectLetsBothEarsHearASpeakerAndTheNearOneMore)
{
    std::vector<float> samples = noise(1, 10000);
    const auto energies = [&](std::uint32_t mask) {
        const Sound out = render(save("in.wav", 1, samples, 0, mask));
        std::pair<double, double> sums;
        for (std::size_t i = 2000; i < 10000; ++i) {
            sums.first += std::pow(out.at(i, 0), 2);
            sums.second += std::pow(out.at(i, 1), 2);
        }
        return sums;
    };
    for (const std::uint32_t left : {0x1U, 0x10U, 0x200U}) {
        const auto [near, far] = energies(left);
        EXPECT_GT(near, 2 * far) << left;
        EXPECT_GT(far, 0.001 * near) << left;
    }
    for (const std::uint32_t right : {0x2U, 0x20U, 0x400U}) {
        const auto [far, near] = energies(right);
        EXPECT_GT(near, 2 * far) << right;
        EXPECT_GT(far, 0.001 * near) << right;
    }
}

TEST_F(QuorelRender, TheReverbSoundsInItsTailAndMoreOfItSoundsMore)
{
    const std::string input = save("in.wav", 2, noise(2, 10000));
    const auto tailPower = [&](const char* reverb) {
        const Sound out = render(input, {"--Reverb", reverb, "--tail", "0.1"});
        double sum = 0;
        for (std::size_t i = 10500; i < 14800; ++i)
            sum += std::pow(out.at(i, 0), 2) + std::pow(out.at(i, 1), 2);
        return sum;
    };
    const double off = tailPower("0");
    const double soft = tailPower("85"); // 9 dB below 170
    const double loud = tailPower("170");
    EXPECT_GT(soft, 1e-6);
    EXPECT_LT(off, 1e-6 * soft);
    EXPECT_NEAR(10 * std::log10(loud / soft), 9, 0.01);
}

TEST_F(QuorelRender, EachBandOptionRaisesItsOwnBand)
{
    constexpr double centres[] = {63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000}; // Hz
    for (std::size_t band = 0; band < std::size(centres); ++band) {
        std::vector<float> samples;
        for (int i = 0; i < 24000; ++i)
            samples.push_back(static_cast<float>(0.1 * std::sin(2 * std::numbers::pi * centres[band] / 48000 * i)));
        const std::string input = save("sine.wav", 1, samples);
        const auto gainDb = [&](const std::string& value) {
            const Sound out = render(input, {"--Settings", "0", "--EQBand" + std::to_string(band + 1), value});
            double sum = 0;
            for (std::size_t i = 12000; i < 24000; ++i) // a whole number of periods, long after the start
                sum += std::pow(out.at(i, 0), 2);
            return 10 * std::log10(sum / 12000 / (0.5 * 0.04 * 0.04)); // the centre at 0.5, the output at 0.8
        };
        // Neighbouring bands reach about 6 dB together, not each to the last tenth: what counts here is that it is this band.
        EXPECT_NEAR(gainDb("127"), 6, 1) << centres[band];
        EXPECT_NEAR(gainDb("-127"), -6, 1) << centres[band];
        EXPECT_NEAR(gainDb("0"), 0, 0.01) << centres[band];
    }
}

// ---- rates ----------------------------------------------------------------------------------------------------------

TEST_F(QuorelRender, LeftAtAnotherRateTheOutputIsTheInputAndTheToolSaysSo)
{
    for (const std::uint32_t mask : {0x4U, 0x3U, 0x60FU, 0x63FU}) {
        const int channels = std::popcount(mask);
        const std::string input = save("in.wav", channels, noise(channels, 1001), 0, mask, 44100);
        const Outcome outcome = run({input, path("out.wav"), "--Reverb", "200", "--no-resample"});
        EXPECT_TRUE(outcome.exited(0)) << outcome;
        expectOneLine(outcome.err, "is at 44100 Hz, where the effect only copies");

        const Sound in = load(input);
        const Sound out = load(path("out.wav"));
        EXPECT_EQ(out.samples, in.samples);
        EXPECT_EQ(out.info.samplerate, 44100);
        EXPECT_EQ(out.info.channels, channels);
        if (channels > 2) {
            EXPECT_EQ(out.speakers, in.speakers);
        }
    }
}

TEST_F(QuorelRender, ResamplingKeepsTheSoundAndItsLength)
{
    for (const int rate : {8000, 11025, 16000, 44100, 96000}) {
        // 1000 Hz at a level of 0.1: in float and behind 20 bits of resampling it stays within 1e-5 of itself.
        std::vector<float> samples;
        const double step = 2 * std::numbers::pi * 1000 / rate;
        for (int i = 0; i < rate + 1; ++i)
            samples.insert(samples.end(), {static_cast<float>(0.1 * std::sin(step * i)), 0.0F});
        const Sound out = render(save("in.wav", 2, samples, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0, rate), {"--Settings", "0"},
                                 "in.wav is at " + std::to_string(rate) + " Hz: resampled to 48000 Hz");
        EXPECT_EQ(out.info.samplerate, 48000);
        EXPECT_EQ(out.info.frames, std::llround((rate + 1.0) * 48000 / rate));
        double error = 0;
        for (std::size_t i = 4000; i < 44000; ++i)
            error = std::max(
                error, std::abs(out.at(i, 0) - 0.08 * std::sin(2 * std::numbers::pi * 1000 / 48000 * static_cast<double>(i))));
        EXPECT_LT(error, 1e-5) << rate;
    }
}

TEST_F(QuorelRender, ResamplingTellsOfAnInputThatBreaksOff)
{
    save("whole.flac", 2, noise(2, 20000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 0, 44100);
    expectRefusal(store("part.flac", bytes("whole.flac").substr(0, 30000)), "cannot read " + path("part.flac"));
}

// ---- level and dither ----------------------------------------------------------------------------------------------

TEST_F(QuorelRender, IntegersAreRoundedWithDitherThatIsTheSameAtEachRun)
{
    const std::string input = save("in.wav", 2, noise(2, 5000));
    render(input);
    const Sound exact = load(path("out.wav"));
    const auto steps = [&](const std::vector<std::string>& options) {
        render(input, options);
        const Sound out = load(path("out.wav"));
        std::pair<double, double> moments; // of the error, in steps
        for (std::size_t i = 0; i < out.samples.size(); ++i) {
            const double error = (static_cast<double>(out.samples[i]) - static_cast<double>(exact.samples[i])) * 32768;
            moments.first += error / 10000;
            moments.second += error * error / 10000;
        }
        return moments;
    };
    const auto [plainMean, plainPower] = steps({"--sample-format", "pcm16", "--dither", "none"});
    const auto [mean, power] = steps({"--sample-format", "pcm16"});
    const std::string first = bytes("out.wav");
    steps({"--sample-format", "pcm16"});
    EXPECT_TRUE(bytes("out.wav") == first);
    // Rounding alone has an error of 1/12 of a step squared, dither adds 1/6: 1/4. The mean's deviation is at most 0.005 over
    // 10000 samples, the power's 0.0035: six of them.
    EXPECT_NEAR(plainMean, 0, 0.03);
    EXPECT_NEAR(plainPower, 1.0 / 12, 0.006);
    EXPECT_NEAR(mean, 0, 0.03);
    EXPECT_NEAR(power, 0.25, 0.021);
}

TEST_F(QuorelRender, GainAndNormalizeSetTheLevel)
{
    const std::string input = save("in.wav", 2, noise(2, 5000));
    const auto peakOf = [](const Sound& sound) {
        float peak = 0;
        for (const float x : sound.samples)
            peak = std::max(peak, std::abs(x));
        return 20 * std::log10(static_cast<double>(peak));
    };
    const double plain = peakOf(render(input)); // floats: 2^-24 is 5e-7 dB
    EXPECT_NEAR(peakOf(render(input, {"--gain", "-6.5"})), plain - 6.5, 1e-5);
    EXPECT_NEAR(peakOf(render(input, {"--normalize"})), -1, 1e-5);
    EXPECT_NEAR(peakOf(render(input, {"--normalize=-3"})), -3, 1e-5);
    render(save("silence.wav", 2, silence(2, 100)), {"--normalize"});
    expectRefusal(input, "--normalize", {"--normalize=1"});
    expectRefusal(input, "--gain", {"--normalize", "--gain", "1"});
}

TEST_F(QuorelRender, AReportInJsonTellsWhatBecameOfTheFile)
{
    std::vector<float> samples = silence(2, 3000);
    samples[2 * 2000 + 1] = 4.0F;
    const Outcome outcome = run({save("in.wav", 2, samples), path("out.wav"), "--Settings", "0", "--sample-format", "pcm16",
                                 "--dither", "none", "--report", "json"});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 1);
    for (const char* text : {"\"state\":\"done\"", "\"rate\":48000", "\"channels\":2", "\"frames\":3000", "\"clippedSamples\":1",
                             "\"firstClippedFrame\":2000", "\"firstClippedChannel\":2", "\"peakDb\":10.1"})
        EXPECT_THAT(outcome.out, HasSubstr(text));
    const Outcome failed = run({path("none.wav"), path("out.wav"), "--report", "json"});
    EXPECT_TRUE(failed.exited(2));
    EXPECT_THAT(failed.out, HasSubstr("\"state\":\"failed\",\"error\":\"cannot read "));
}

// ---- many files ----------------------------------------------------------------------------------------------------

// A process that is made beside other threads may wait for good for a lock of the address sanitizer's memory, which gcc's does not
// give up there.
#ifdef __SANITIZE_ADDRESS__
constexpr const char* jobs = "1";
#else
constexpr const char* jobs = "3";
#endif

TEST_F(QuorelRender, AFolderIsRenderedAsAWholeWhateverFails)
{
    fs::create_directories(folder / "music/deep");
    for (const char* name : {"music/a.wav", "music/deep/b.wav", "music/deep/c.flac"})
        save(name, 2, noise(2, 3000),
             std::string(name).ends_with("flac") ? SF_FORMAT_FLAC | SF_FORMAT_PCM_16 : SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    store("music/broken.wav", "no sound");
    store("music/notes.txt", "no sound");
    render(path("music/a.wav"));
    const std::string expected = bytes("out.wav");

    const std::vector<std::string> command = {path("music"), "--output-dir", path("out"), "--jobs", jobs};
    const Outcome outcome = run(command);
    EXPECT_TRUE(outcome.exited(2)) << outcome;
    EXPECT_THAT(outcome.err, HasSubstr("cannot read " + path("music/broken.wav")));
    EXPECT_THAT(outcome.err,
                HasSubstr("quorel-render: " + path("music/a.wav") + ": " + path("out/a.wav") + ", 0.06 s of sound in "));
    EXPECT_THAT(outcome.err, HasSubstr("quorel-render: 4 files: 3 done, 0 up to date, 1 failed\n"));
    for (const char* name : {"out/a.wav", "out/deep/b.wav", "out/deep/c.wav"})
        EXPECT_TRUE(bytes(name) == expected) << name;
    EXPECT_FALSE(fs::exists(folder / "out/broken.wav"));

    fs::remove(folder / "music/broken.wav");
    fs::last_write_time(folder / "music/a.wav", fs::last_write_time(folder / "out/a.wav") + std::chrono::seconds(1));
    const Outcome second = run(command);
    EXPECT_TRUE(second.exited(0)) << second;
    EXPECT_THAT(second.err, HasSubstr("3 files: 1 done, 2 up to date, 0 failed\n"));
    std::vector<std::string> again = command;
    again.emplace_back("--again");
    EXPECT_THAT(run(again).err, HasSubstr("3 files: 3 done, 0 up to date, 0 failed\n"));
}

TEST_F(QuorelRender, InputsThatWouldBecomeOneFileAreRefused)
{
    const std::string wav = save("in.wav", 2, noise(2, 100));
    const std::string flac = save("in.flac", 2, noise(2, 100), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const Outcome outcome = run({wav, flac, "--output-dir", path("out")});
    EXPECT_TRUE(outcome.exited(2)) << outcome;
    expectOneLine(outcome.err, "two of the inputs would become " + path("out/in.wav"));
    EXPECT_FALSE(fs::exists(folder / "out"));
}

// ---- options as people write them ----------------------------------------------------------------------------------

TEST_F(QuorelRender, SettingsAreTakenInAnyCaseInDecibelsAndInHexadecimal)
{
    const std::string input = save("in.wav", 2, noise(2, 3000));
    // (-5 + 18) * 255 / 27 = 122.8; 2.5 * 127 / 6 = 52.9; -6 * 127 / 6 = -127.
    render(input, {"--Reverb", "123", "--EQBand3", "53", "--EQBand9", "-127", "--EQBand1", "26"});
    const std::string expected = bytes("out.wav");
    render(input, {"--reverb", "-5dB", "--eq", "3:+2.5dB,9:-6dB", "--eq", "1:0x1A"});
    EXPECT_TRUE(bytes("out.wav") == expected);
    fs::remove(path("out.wav"));
    EXPECT_TRUE(run({"--reverb", "-5dB", "--eq", "1:0x1A", "--eq", "3:+2.5dB,9:-6dB", input, path("out.wav")}).exited(0));
    EXPECT_TRUE(bytes("out.wav") == expected); // options may stand in front of the files
    render(input, {"--REVERB=1.23e2", "--eqband3", "2.5 dB", "--eq", "9:-127", "--eqBand1", "26"});
    EXPECT_TRUE(bytes("out.wav") == expected);
    expectRefusal(input, "--Reverb: 9.1dB is not a number from 0 to 255, nor one of -17.9 to +9.0 dB", {"--reverb", "9.1dB"});
    expectRefusal(input, "10:1 is no BAND:VALUE", {"--eq", "10:1"});
    expectRefusal(input, "EQBand3 is given twice", {"--eq", "3:1", "--EQBand3", "2"});
}

TEST_F(QuorelRender, APresetIsTheBeginningAndOptionsChangeIt)
{
    fs::create_directories(folder / "config/quorel/presets");
    store("config/quorel/presets/evening.json", R"({"settings": {"Settings": 1, "Reverb": 170, "EQBand2": -40}})");
    const std::string input = save("in.wav", 2, noise(2, 3000));
    render(input, {"--EQBand2", "-40", "--Reverb", "20"});
    const std::string expected = bytes("out.wav");
    const auto home = [this] { setenv("XDG_CONFIG_HOME", path("config").c_str(), 1); };
    EXPECT_TRUE(run({input, path("out.wav"), "--reverb", "20", "--preset", "evening"}, home).exited(0));
    EXPECT_TRUE(bytes("out.wav") == expected);
    const Outcome none = run({input, path("out.wav"), "--preset", "morning"}, home);
    EXPECT_TRUE(none.exited(2));
    expectOneLine(none.err, "cannot read the preset ");
}

TEST_F(QuorelRender, AMisspeltOptionIsToldFirstWithTheOneThatWasMeant)
{
    const Outcome outcome = run({"--reverp", "3"}); // no file at all
    EXPECT_TRUE(outcome.exited(2));
    EXPECT_EQ(outcome.err, "quorel-render: there is no option --reverp (did you mean --Reverb?)\n");
    EXPECT_EQ(run({"--xxxxxxxxxxxx"}).err, "quorel-render: there is no option --xxxxxxxxxxxx\n");
}

TEST_F(QuorelRender, WideSurroundIsExplainedAndTakenWithAMask)
{
    const std::vector<float> samples = noise(8, 2000);
    const std::string wide = save("wide.wav", 8, samples, 0, 0xFF);
    expectRefusal(wide, "the effect knows 6, and there are 8 channels; --channel-mask 0x63F takes them");
    render(wide, {"--channel-mask", "0x63F"});
    const std::string expected = bytes("out.wav");
    render(save("plain.wav", 8, samples));
    EXPECT_TRUE(bytes("out.wav") == expected);
}

// ---- what it says ---------------------------------------------------------------------------------------------------

TEST_F(QuorelRender, ATerminalSeesABarAndTheSpeed)
{
    const std::string input = save("in.wav", 2, noise(2, 48000));
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const int far = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const pid_t child = start({input, path("out.wav")}, STDOUT_FILENO, far);
    close(far);
    const std::string seen = readAll(terminal); // ends when the tool does
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_THAT(seen, HasSubstr("100%"));
    EXPECT_THAT(seen, HasSubstr(std::string(50, '*')));
    EXPECT_THAT(seen, HasSubstr("0:00 left"));
    EXPECT_THAT(seen, HasSubstr("1.00 s of sound in "));
    EXPECT_THAT(seen, HasSubstr(" times real time"));
}

TEST_F(QuorelRender, VerboseTellsTheSpeedInAPipeToo)
{
    const Outcome outcome = run({save("in.wav", 2, noise(2, 48000)), path("out.wav"), "--verbose"});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    expectOneLine(outcome.err, "1.00 s of sound in ");
    EXPECT_THAT(outcome.err, HasSubstr(" times real time"));
}

TEST_F(QuorelRender, HelpNamesEveryOptionAndSucceeds)
{
    const Outcome outcome = run({"--help"});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_EQ(outcome.err, "");
    std::istringstream lines(outcome.out);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80U) << line;
    EXPECT_THAT(run({"--version"}).out, testing::StartsWith("quorel-render "));
    std::vector<std::string> expected = {"--block-size NUMBER=480",
                                         "[1 to 848]",
                                         "--tail",
                                         "[0 to 600]",
                                         "--no-resample",
                                         "--channel-mask",
                                         "--sample-format",
                                         "--verbose",
                                         "--Settings NUMBER=1 ",
                                         "[0 to 255]",
                                         "--Reverb NUMBER=0 ",
                                         "0x63F"};
    for (int band = 1; band <= 9; ++band)
        expected.push_back("--EQBand" + std::to_string(band) + " NUMBER=0 ");
    for (const std::string& text : expected)
        EXPECT_THAT(outcome.out, HasSubstr(text));
}

} // namespace
} // namespace quorel

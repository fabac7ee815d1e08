// SPDX-License-Identifier: MIT
// What quorel-render refuses, and how it reads what it takes.
#include "tests/tools/render_test.h"

#include <csignal>
#include <sys/resource.h>

namespace quorel {
namespace {

// ---- refusals -------------------------------------------------------------------------------------------------------

TEST_F(QuorelRender, AMissingInputIsRefused)
{
    expectRefusal(path("none.wav"), "cannot read " + path("none.wav") + ": No such file or directory");
}

TEST_F(QuorelRender, AnInputThatIsNoAudioIsRefused)
{
    expectRefusal(store("text.wav", "This is a letter.\n"), "text.wav: neither WAV, RF64, W64, FLAC, AIFF nor CAF");
}

TEST_F(QuorelRender, AnEmptyInputIsRefused)
{
    expectRefusal(store("empty.wav", ""), "cannot read " + path("empty.wav"));
}

TEST_F(QuorelRender, AFolderAsInputIsRefused)
{
    expectRefusal(folder.string(), "not a regular file");
}

TEST_F(QuorelRender, AnAudioFormatOfAnotherKindIsRefused)
{
    expectRefusal(save("in.wav", 2, noise(2, 100), SF_FORMAT_AU | SF_FORMAT_PCM_16),
                  "neither WAV, RF64, W64, FLAC, AIFF nor CAF");
}

// Frames of an MP3 stream, and noise behind them: a decoder would tell the user of it.
TEST_F(QuorelRender, AnMp3FileIsRefusedWithOneLine)
{
    std::string stream;
    for (int frame = 0; frame < 20; ++frame)
        stream += "\xFF\xFB\x50" + std::string(1, '\0') + std::string(413, static_cast<char>(frame * 37));
    expectRefusal(store("song.mp3", stream), "song.mp3: neither WAV, RF64, W64, FLAC, AIFF nor CAF");
    expectRefusal(store("song.wav", stream), "song.wav: neither WAV, RF64, W64, FLAC, AIFF nor CAF");
}

TEST_F(QuorelRender, AFlacFileMayHaveATagInFront)
{
    const std::string plain = save("in.flac", 2, noise(2, 3000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const Sound expected = render(plain);
    constexpr std::size_t padding = 200; // 1 * 128 + 72
    const std::string tag = std::string("ID3\x03\0\0\0\0\x01\x48", 10) + std::string(padding, '\0');
    EXPECT_EQ(render(store("tagged.flac", tag + bytes("in.flac"))).samples, expected.samples);
    expectRefusal(store("tagged.mp3", tag + "\xFF\xFB\x50"), "neither WAV, RF64, W64, FLAC, AIFF nor CAF");
}

TEST_F(QuorelRender, APipeIsReadLikeAFile)
{
    expectPipeLikeFile(save("in.wav", 6, noise(6, 30000)));
}

TEST_F(QuorelRender, AFlacFileThroughAPipeIsReadLikeAFile)
{
    expectPipeLikeFile(save("in.flac", 2, noise(2, 30000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16));
}

TEST_F(QuorelRender, WaitingForAPipeEndsByAnInterrupt)
{
    expectWaitingEndsBy(SIGINT);
}

TEST_F(QuorelRender, SamplesThatNoEffectCanTakeBecomeZeroAndAreTold)
{
    expectReplacements(48000, {"--Reverb", "100", "--EQBand3", "20"});
    expectReplacements(48000, {"--sample-format", "pcm16"});
    expectReplacements(44100);
}

TEST_F(QuorelRender, AFlacFileThatBreaksOffIsRefused)
{
    save("whole.flac", 2, noise(2, 20000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    expectRefusal(store("part.flac", bytes("whole.flac").substr(0, 30000)), "cannot read " + path("part.flac"));
}

TEST_F(QuorelRender, AnInputWithoutChannelsIsRefused)
{
    // A whole header of 16-bit samples at 48000 Hz, with a channel count of 0.
    const char header[] = "RIFF\x24\0\0\0WAVEfmt \x10\0\0\0\x01\0\0\0\x80\xBB\0\0\0\0\0\0\0\0\x10\0data\0\0\0";
    expectRefusal(store("zero.wav", std::string(header, sizeof header)), "Channel count is zero");
}

TEST_F(QuorelRender, AnInputOfNineChannelsIsRefused)
{
    expectRefusal(save("nine.wav", 9, noise(9, 100)), "nine.wav has 9 channels; the effect takes 1 to 8");
}

TEST_F(QuorelRender, ALayoutWithASpeakerThatTheEffectDoesNotKnowIsRefused)
{
    // Back centre is 0x100.
    expectRefusal(save("quad.wav", 4, noise(4, 100), 0, 0x107), "quad.wav has an unknown layout");
}

TEST_F(QuorelRender, SevenChannelsWithoutNamedSpeakersAreRefused)
{
    const std::string input = save("seven.wav", 7, noise(7, 100));
    expectRefusal(input, "of the speakers in the channel mask 0x70F the effect knows 6, and there are 7 channels");
    render(input, {"--channel-mask", "0x637"});
}

TEST_F(QuorelRender, AMaskOptionOfAnotherNumberOfSpeakersIsRefused)
{
    expectRefusal(save("in.wav", 2, noise(2, 100)), "unknown layout", {"--channel-mask", "0x7"});
}

TEST_F(QuorelRender, AnOutputInAFolderThatDoesNotExistIsRefused)
{
    const Outcome outcome = run({save("in.wav", 2, noise(2, 100)), path("none/out.wav")});
    EXPECT_TRUE(outcome.exited(2)) << outcome;
    expectOneLine(outcome.err, "cannot write " + path("none/out.wav") + ": No such file or directory");
}

TEST_F(QuorelRender, AFolderOrADeviceAsOutputIsRefused)
{
    const std::string input = save("in.wav", 2, noise(2, 100));
    for (const std::string& output : {folder.string(), std::string("/dev/null")}) {
        const Outcome outcome = run({input, output});
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        expectOneLine(outcome.err, "cannot write " + output + ": not a regular file");
    }
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

// What goes through a pipe is kept in a file without a name meanwhile.
TEST_F(QuorelRender, APipeWithoutAPlaceForItsSoundIsRefused)
{
    const auto withoutPlace = [&] { setenv("TMPDIR", path("none").c_str(), 1); };
    const Outcome in = run({"-", path("out.wav")}, [&] {
        int ends[2];
        if (pipe(ends) == 0)
            dup2(ends[0], STDIN_FILENO);
        withoutPlace();
    });
    EXPECT_TRUE(in.exited(2)) << in;
    expectOneLine(in.err, "cannot read -: there is no place for what the pipe holds: ");
    const std::string input = save("in.wav", 2, noise(2, 100));
    const Outcome out = run({input, "-", "--format", "wav"}, withoutPlace);
    EXPECT_TRUE(out.exited(2)) << out;
    expectOneLine(out.err, "cannot write to standard output: there is no place for what goes there: ");
}

TEST_F(QuorelRender, APipeThatHoldsMoreThanThereIsPlaceForIsRefused)
{
    const std::string input = save("in.wav", 2, noise(2, 100000));
    const Outcome outcome = run({"-", path("out.wav")}, [&] {
        int ends[2];
        if (pipe(ends) != 0)
            return;
        if (fork() == 0) { // who fills the pipe
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]); // or it would wait for itself
            execlp("cat", "cat", input.c_str(), nullptr);
            _exit(127);
        }
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
        const rlimit limit{65536, 65536}; // bytes in a file
        setrlimit(RLIMIT_FSIZE, &limit);
    });
    EXPECT_TRUE(outcome.exited(2)) << outcome;
    expectOneLine(outcome.err, "cannot read -: what the pipe holds can't be kept in ");
    EXPECT_FALSE(fs::exists(path("out.wav")));
}

TEST_F(QuorelRender, AStandardOutputThatTakesNothingIsRefused)
{
    const std::string input = save("in.wav", 2, noise(2, 100));
    const auto refused = [&](const std::string& device, const std::string& reason) {
        const Outcome outcome =
            run({input, "-", "--format", "wav"}, [&] { dup2(open(device.c_str(), O_RDWR | O_NOCTTY), STDOUT_FILENO); });
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        expectOneLine(outcome.err, "cannot write to standard output: " + reason);
    };
    refused("/dev/full", "No space left on device");
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    refused(ptsname(terminal), "it is a terminal");
    close(terminal);
}

TEST_F(QuorelRender, ADeviceAsInputIsRefused)
{
    expectRefusal("/dev/null", "cannot read /dev/null: not a regular file or a pipe");
}

TEST_F(QuorelRender, AnOutputThatDoesNotFitIsRefused)
{
    const std::string input = save("in.wav", 2, noise(2, 100000));
    expectRefusal(input, "cannot write " + path("old.wav"), {}, [] {
        const rlimit limit{65536, 65536}; // bytes in a file
        setrlimit(RLIMIT_FSIZE, &limit);
    });
}

TEST_F(QuorelRender, EveryNumberBeyondItsRangeIsRefused)
{
    struct Range {
        std::string option;
        std::vector<std::string> beyond;
    };
    std::vector<Range> ranges = {{"--block-size", {"0", "849", "-1"}},
                                 {"--Settings", {"-1", "256"}},
                                 {"--Reverb", {"-1", "256"}},
                                 {"--tail", {"-0.1", "600.1", "nan", "inf"}},
                                 {"--channel-mask", {"0", "262144"}}};
    for (int band = 1; band <= 9; ++band)
        ranges.push_back({"--EQBand" + std::to_string(band), {"-128", "128"}});
    const std::string input = save("in.wav", 2, noise(2, 100));
    for (const auto& [option, values] : ranges)
        for (const std::string& value : values)
            expectRefusal(input, option + ": " + value + " is not a number from", {option, value});
}

TEST_F(QuorelRender, EveryEndOfARangeIsAccepted)
{
    std::vector<std::pair<std::string, std::vector<std::string>>> ranges = {{"--block-size", {"1", "848"}},
                                                                            {"--Settings", {"0", "255"}},
                                                                            {"--Reverb", {"0", "255"}},
                                                                            {"--tail", {"0"}},
                                                                            {"--channel-mask", {"3"}}};
    for (int band = 1; band <= 9; ++band)
        ranges.push_back({"--EQBand" + std::to_string(band), {"-127", "127"}});
    const std::string input = save("in.wav", 2, noise(2, 1000));
    for (const auto& [option, values] : ranges)
        for (const std::string& value : values)
            render(input, {option, value});
}

TEST_F(QuorelRender, WhatIsNoNumberIsRefused)
{
    const std::string input = save("in.wav", 2, noise(2, 100));
    expectRefusal(input, "--Reverb: loud is not a number from 0 to 255", {"--Reverb", "loud"});
    expectRefusal(input, "--Reverb", {"--Reverb", "1.5"});
    expectRefusal(input, "--Reverb:  is not a number", {"--Reverb", ""});
    expectRefusal(input, "--Reverb", {"--Reverb"});
}

TEST_F(QuorelRender, ABlockAsLongAsAPreDelayOfTheLayoutIsRefusedWithTheReason)
{
    // Pre-delays take effect in whole lines of 16 frames: back left's is 64, that of every other speaker 48.
    const std::string surround = save("surround.wav", 8, noise(8, 1000));
    const std::string stereo = save("stereo.wav", 2, noise(2, 1000));
    const std::string backLeft = save("back_left.wav", 1, noise(1, 1000), 0, 0x10);
    const auto refuse = [&](const std::string& input, const std::string& block) {
        expectRefusal(input,
                      "the effect refuses blocks of " + block +
                          " frames (ippStsSizeErr): the reverb delays a speaker of this layout by exactly as many; choose "
                          "another --block-size",
                      {"--block-size", block});
    };
    refuse(surround, "48");
    refuse(surround, "64");
    refuse(stereo, "48");
    render(stereo, {"--block-size", "64"});
    render(backLeft, {"--block-size", "48"});
    refuse(backLeft, "64");
}

TEST_F(QuorelRender, AnUnknownOptionOrSampleFormatIsRefused)
{
    const std::string input = save("in.wav", 2, noise(2, 100));
    expectRefusal(input, "--volume", {"--volume", "3"});
    expectRefusal(input, "--sample-format: mp3 not in {float,pcm24,pcm16}", {"--sample-format", "mp3"});
    expectRefusal(input, "another", {"another.wav"});
}

TEST_F(QuorelRender, MissingFileNamesAreRefused)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{}, {path("in.wav")}}) {
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        expectOneLine(outcome.err, arguments.empty() ? "INPUT is required" : "OUTPUT is required, or --output-dir");
    }
}

TEST_F(QuorelRender, AnInputWithoutAPlaceForItsOutputIsRefused)
{
    const auto refused = [&](const std::vector<std::string>& arguments, const std::string& reason) {
        const Outcome outcome = run(arguments);
        EXPECT_TRUE(outcome.exited(2)) << outcome;
        expectOneLine(outcome.err, reason);
    };
    refused({path("a.wav"), path("b.wav"), path("c.wav")},
            "only one INPUT has an OUTPUT, so " + path("c.wav") + " has no place; --output-dir takes several inputs");
    refused({"-", "--output-dir", path("out")}, "standard input has no name for a file in a folder: it goes to an OUTPUT");
    fs::create_directory(path("empty"));
    refused({path("empty"), "--output-dir", path("out")}, "there is no audio file in the folder " + path("empty"));
}

} // namespace
} // namespace quorel

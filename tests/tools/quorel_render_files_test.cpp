// SPDX-License-Identifier: MIT
// The files that quorel-render reads and writes.
#include "tests/tools/render_test.h"

#include <cmath>
#include <csignal>
#include <thread>

namespace quorel {
namespace {

// ---- the output as a file -------------------------------------------------------------------------------------------

TEST_F(QuorelRender, TheOutputIsStereoAt48000AndOfTheInputsLength)
{
    for (const std::size_t frames : {0U, 1U, 479U, 480U, 481U, 960U, 1001U}) {
        const Sound out = render(save("in.wav", 6, noise(6, frames)));
        EXPECT_EQ(out.info.frames, static_cast<sf_count_t>(frames));
        EXPECT_EQ(out.info.channels, 2);
        EXPECT_EQ(out.info.samplerate, 48000);
        EXPECT_EQ(out.info.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    }
}

TEST_F(QuorelRender, TheLengthDoesNotDependOnTheBlocks)
{
    const std::string input = save("in.wav", 2, noise(2, 1000));
    for (const char* block : {"1", "7", "480", "500", "848"})
        EXPECT_EQ(render(input, {"--block-size", block}).info.frames, 1000) << block;
}

TEST_F(QuorelRender, TheTailIsAddedToTheLength)
{
    const std::string input = save("in.wav", 2, noise(2, 1000));
    EXPECT_EQ(render(input, {"--tail", "0.01"}).info.frames, 1480);
    EXPECT_EQ(render(input, {"--tail", "2"}).info.frames, 97000);
    EXPECT_EQ(render(save("none.wav", 2, {}), {"--tail", "0.01"}).info.frames, 480);
}

TEST_F(QuorelRender, TheTailIsASecondWithReverbAndNothingWithout)
{
    const std::string input = save("in.wav", 2, noise(2, 1000));
    EXPECT_EQ(render(input, {"--Reverb", "100"}).info.frames, 49000);
    EXPECT_EQ(render(input, {"--Reverb", "100", "--Settings", "0"}).info.frames, 1000);
    EXPECT_EQ(render(input, {"--Reverb", "100", "--tail", "0"}).info.frames, 1000);
}

TEST_F(QuorelRender, TheTailOfADownMixIsSilence)
{
    const Sound out = render(save("in.wav", 2, noise(2, 1000)), {"--tail", "0.1", "--Settings", "0"});
    // The flat equaliser leaves rounding alone behind.
    for (std::size_t i = 1000; i < 5800; ++i)
        EXPECT_LT(std::abs(out.at(i, 0)) + std::abs(out.at(i, 1)), 1e-5F) << i;
}

TEST_F(QuorelRender, EqualRendersAreEqualFiles)
{
    const std::string input = save("in.wav", 8, noise(8, 5000));
    render(input, {"--Reverb", "200"});
    const std::string first = bytes("out.wav");
    render(input, {"--Reverb", "200"});
    EXPECT_TRUE(bytes("out.wav") == first);
    EXPECT_EQ(first.find("PEAK"), std::string::npos); // the chunk that holds the time of day
}

TEST_F(QuorelRender, AFlacFileGivesTheRenderOfTheSameWavFile)
{
    for (const int channels : {1, 2, 3, 4, 5, 6, 8}) {
        const std::vector<float> samples = noise(channels, 3000);
        render(save("in.wav", channels, samples, SF_FORMAT_WAV | SF_FORMAT_PCM_16));
        const std::string fromWav = bytes("out.wav");
        render(save("in.flac", channels, samples, SF_FORMAT_FLAC | SF_FORMAT_PCM_16));
        EXPECT_TRUE(bytes("out.wav") == fromWav) << channels;
    }
}

TEST_F(QuorelRender, AFlacFileThatDoesNotTellItsLengthIsReadToItsEnd)
{
    const std::string input = save("in.flac", 2, noise(2, 3000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const Sound whole = render(input);
    // The length is the 36 bits that end at byte 26; 0 stands for unknown.
    std::string contents = bytes("in.flac");
    contents[21] = static_cast<char>(contents[21] & 0xF0);
    std::fill_n(contents.begin() + 22, 4, '\0');
    EXPECT_EQ(render(store("unknown.flac", contents)).samples, whole.samples);
}

TEST_F(QuorelRender, AnInputCanBeReplacedByItsOwnRender)
{
    const std::string file = save("same.wav", 2, noise(2, 3000));
    render(file);
    const Outcome outcome = run({file, file});
    EXPECT_TRUE(outcome.exited(0)) << outcome;
    EXPECT_TRUE(bytes("same.wav") == bytes("out.wav"));
}

TEST_F(QuorelRender, ALinkAsOutputStaysALinkAndAReplacedFileKeepsItsPermissions)
{
    const std::string target = store("target.wav", "an older file");
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink(target, folder / "out.wav");
    render(save("in.wav", 2, noise(2, 100)));
    EXPECT_TRUE(fs::is_symlink(folder / "out.wav"));
    EXPECT_EQ(load(target).info.frames, 100);
    EXPECT_EQ(fs::status(target).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(QuorelRender, FloatsKeepWhatIsBeyondFullScaleAndIntegersClipIt)
{
    // The limiter lets the first sample of a peak through; the output gain is 0.8. A click of a single frame comes late
    // enough that nothing fades any more.
    std::vector<float> samples = silence(2, 3000);
    samples[2 * 2000] = 4.0F;
    const std::string input = save("in.wav", 2, samples);
    EXPECT_NEAR(render(input, {"--Settings", "0"}).at(2000, 0), 3.2, 1e-3);
    // 3.2 is +10.10 dB.
    const std::string told =
        "1 sample of " + path("out.wav") + " clipped, the first in frame 2000, channel 1; the peak is at +10.1";
    EXPECT_GE(render(input, {"--Settings", "0", "--sample-format", "pcm16"}, told).at(2000, 0), 32767.0F / 32768);
    EXPECT_EQ(load(path("out.wav")).info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_GE(render(input, {"--Settings", "0", "--sample-format", "pcm24"}, told).at(2000, 0), 32767.0F / 32768);
    EXPECT_EQ(load(path("out.wav")).info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
}

TEST_F(QuorelRender, AnInterruptLeavesTheOldOutputAndNothingElse)
{
    store("old.wav", "an older file");
    const std::string input = save("long.wav", 1, silence(1, 3000000)); // in blocks of one frame it takes its time
    const std::vector<fs::path> before = entries();
    const pid_t child = start({input, path("old.wav"), "--block-size", "1"}, STDOUT_FILENO, STDERR_FILENO,
                              [] { std::signal(SIGINT, SIG_DFL); }); // a shell's background job begins with it ignored
    int status = 0;
    while (entries() == before && waitpid(child, &status, WNOHANG) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_NE(entries(), before) << "ended before it could be interrupted: " << status;
    kill(child, SIGINT);
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
    EXPECT_TRUE(bytes("old.wav") == "an older file");
    EXPECT_EQ(entries(), before);
}

// ---- kinds of files ------------------------------------------------------------------------------------------------

TEST_F(QuorelRender, TheSameSoundInAnyKindOfFileGivesTheSameRender)
{
    const std::vector<float> samples = noise(2, 3000);
    render(save("in.wav", 2, samples));
    const std::string expected = bytes("out.wav");
    for (const int kind : {SF_FORMAT_RF64, SF_FORMAT_W64, SF_FORMAT_AIFF, SF_FORMAT_CAF}) {
        render(save("in.wav", 2, samples, kind | SF_FORMAT_PCM_16)); // whatever its name
        EXPECT_TRUE(bytes("out.wav") == expected) << std::hex << kind;
    }
}

TEST_F(QuorelRender, AnOutputIsOfTheKindThatItsNameEndsIn)
{
    const std::string input = save("in.wav", 2, noise(2, 3000));
    constexpr std::pair<const char*, int> kinds[] = {
        {"out.WAV", SF_FORMAT_WAV | SF_FORMAT_FLOAT},   {"out.rf64", SF_FORMAT_RF64 | SF_FORMAT_FLOAT},
        {"out.w64", SF_FORMAT_W64 | SF_FORMAT_FLOAT},   {"out.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"out.aiff", SF_FORMAT_AIFF | SF_FORMAT_FLOAT}, {"out.caf", SF_FORMAT_CAF | SF_FORMAT_FLOAT}};
    const Sound plain = render(input);
    for (const auto& [name, format] : kinds) {
        EXPECT_TRUE(run({input, path(name)}).exited(0)) << name;
        const Sound out = load(path(name));
        EXPECT_EQ(out.info.format, format) << name;
        ASSERT_EQ(out.samples.size(), plain.samples.size()) << name;
        for (std::size_t i = 0; i < out.samples.size(); ++i) // 24 bits with dither: at most 1.5 steps
            ASSERT_NEAR(out.samples[i], plain.samples[i], 1.5 / 8388608 + 1e-7);
    }
    const Outcome unknown = run({input, path("out.mp3")});
    EXPECT_TRUE(unknown.exited(2));
    expectOneLine(unknown.err, "out.mp3: its name tells no kind of file");
    EXPECT_TRUE(run({input, path("out.mp3"), "--format", "flac"}).exited(0));
    EXPECT_EQ(load(path("out.mp3")).info.format, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    const Outcome floats = run({input, path("out.flac"), "--sample-format", "float"});
    EXPECT_TRUE(floats.exited(2));
    expectOneLine(floats.err, "FLAC holds integers alone");
}

TEST_F(QuorelRender, ChannelsInAnotherOrderArePutInTheirPlaces)
{
    // The same 5.1 as AIFF, whose layout chunk can name the order centre, left, right, left and right behind, low frequency.
    const std::vector<float> plain = noise(6, 2000);
    render(save("in.wav", 6, plain, 0, 0x3F));
    const std::string expected = bytes("out.wav");
    SF_INFO info{};
    info.channels = 6;
    info.samplerate = 48000;
    info.format = SF_FORMAT_CAF | SF_FORMAT_FLOAT;
    {
        const SoundFile file(sf_open(path("in.caf").c_str(), SFM_WRITE, &info));
        int map[] = {SF_CHANNEL_MAP_CENTER,    SF_CHANNEL_MAP_LEFT,       SF_CHANNEL_MAP_RIGHT,
                     SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT, SF_CHANNEL_MAP_LFE};
        ASSERT_EQ(sf_command(file.get(), SFC_SET_CHANNEL_MAP_INFO, map, sizeof map), SF_TRUE);
        constexpr std::size_t from[] = {2, 0, 1, 4, 5, 3};
        std::vector<float> moved;
        for (std::size_t i = 0; i < plain.size(); i += 6)
            for (const std::size_t c : from)
                moved.push_back(plain[i + c]);
        sf_write_float(file.get(), moved.data(), static_cast<sf_count_t>(moved.size()));
    }
    render(path("in.caf"));
    EXPECT_TRUE(bytes("out.wav") == expected);
}

TEST_F(QuorelRender, AiffOfManyChannelsHasToNameItsSpeakers)
{
    expectRefusal(save("in.aiff", 6, noise(6, 100), SF_FORMAT_AIFF | SF_FORMAT_PCM_16),
                  "it has 6 channels and does not name their speakers");
}

TEST_F(QuorelRender, AFileThatBreaksOffIsRefusedOrTold)
{
    for (const int kind : {SF_FORMAT_WAV, SF_FORMAT_RF64, SF_FORMAT_W64, SF_FORMAT_AIFF, SF_FORMAT_CAF}) {
        save("whole.wav", 2, noise(2, 20000), kind | SF_FORMAT_PCM_16);
        const std::string part = store("part.wav", bytes("whole.wav").substr(0, 60000));
        expectRefusal(part, "part.wav: it breaks off: ");
        expectRefusal(part, "--allow-truncated takes what is there");
        const Sound out = render(part, {"--allow-truncated"}, "part.wav: it breaks off: ");
        EXPECT_LT(out.info.frames, 15001) << std::hex << kind; // of four bytes
        EXPECT_GT(out.info.frames, 13900) << std::hex << kind; // headers are of at most 4096 bytes
    }
    save("whole.flac", 2, noise(2, 20000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const std::string part = store("part.flac", bytes("whole.flac").substr(0, 30000));
    EXPECT_GT(render(part, {"--allow-truncated"}, "part.flac: ").info.frames, 4000);
}

TEST_F(QuorelRender, AnUnknownLengthIsNoTruncation)
{
    const Sound whole = render(save("in.wav", 2, noise(2, 3000)));
    const std::string contents = bytes("in.wav");
    const std::size_t size = contents.find("data") + 4;
    for (const std::string& open : {std::string("\xFF\xFF\xFF\xFF"), std::string("\0\xF0\xFF\x7F", 4)})
        EXPECT_EQ(render(store("open.wav", std::string(contents).replace(size, 4, open))).samples, whole.samples);
}

TEST_F(QuorelRender, ACafFileOfOpenLengthIsReadToItsEnd)
{
    const Sound whole = render(save("in.caf", 2, noise(2, 3000), SF_FORMAT_CAF | SF_FORMAT_FLOAT));
    const std::string contents = bytes("in.caf");
    const std::string open(8, '\xFF'); // -1
    EXPECT_EQ(render(store("open.caf", std::string(contents).replace(contents.find("data") + 4, 8, open))).samples,
              whole.samples);
}

// A recorder writes the lengths when it ends, so one that was killed leaves none.
TEST_F(QuorelRender, ARecordingWhoseLengthsWereNeverWrittenIsTakenOnWish)
{
    const Sound whole = render(save("in.wav", 2, noise(2, 3000)));
    const std::string contents = bytes("in.wav");
    const std::size_t size = contents.find("data") + 4;
    const std::string none(4, '\0');
    for (const std::string& all : {none, std::string("\x24\0\0\0", 4), std::string(4, '\xFF')}) {
        const std::string killed = store("killed.wav", std::string(contents).replace(size, 4, none).replace(4, 4, all));
        expectRefusal(killed, "killed.wav: it breaks off: its header tells of no samples, and 24000 bytes follow");
        EXPECT_EQ(render(killed, {"--allow-truncated"}, "its header tells of no samples, and 24000 bytes follow").samples,
                  whole.samples);
    }
}

TEST_F(QuorelRender, AWavWithoutSamplesMayHaveOtherChunksBehind)
{
    const std::string empty = bytes(fs::path(save("empty.wav", 2, {})).filename());
    const std::string behind = empty + std::string("LIST\x04\0\0\0INFO", 12);
    const auto all = static_cast<char>(behind.size() - 8);
    const std::string input = store("behind.wav", std::string(behind).replace(4, 1, 1, all));
    EXPECT_EQ(render(input, {"--tail", "0"}).info.frames, 0);
}

TEST_F(QuorelRender, StandardInputAndOutputAreDashes)
{
    const std::string input = save("in.wav", 2, noise(2, 30000));
    for (const std::string& format : {std::string("wav"), std::string("flac")}) {
        EXPECT_TRUE(run({input, path("plain." + format)}).exited(0));
        const Outcome outcome = run({"-", "-", "--format", format}, [&] {
            int ends[2]; // closed by its writer before the tool begins
            if (pipe(ends) != 0)
                return;
            if (fork() == 0) {
                const std::string all = bytes("in.wav");
                for (std::size_t done = 0; done < all.size();)
                    done += static_cast<std::size_t>(std::max<ssize_t>(0, write(ends[1], all.data() + done, all.size() - done)));
                _exit(0);
            }
            dup2(ends[0], STDIN_FILENO);
            close(ends[0]);
            close(ends[1]);
        });
        EXPECT_TRUE(outcome.exited(0)) << outcome.err;
        EXPECT_TRUE(outcome.out == bytes("plain." + format)) << format;
    }
}

} // namespace
} // namespace quorel

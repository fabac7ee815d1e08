// SPDX-License-Identifier: MIT
// Sets of responses that quorel-control delivers to an effect.
#include "tests/tools/control_test.h"

#include "speaker/hrtf_tables.h"
#include "speaker/response_spectrum.h"
#include "speaker/speaker_tables.h"

namespace quorel {
namespace {

using testing::HasSubstr;

// ---- head-related responses -----------------------------------------------------------------------------------------

// The same as an independent computation gives: the pair of each speaker, from the latest frame that loses nothing, at the level
// at which pink noise is as strong at the ears as with the built-in set.
TEST_F(Responses, ASetOfFourteenChannelsIsHeardAtTheNextBlock)
{
    constexpr std::size_t onset = 300;
    const auto set = someSet(120, onset, 1000);
    SignalPath path = path7();
    done({"hrtf", "load", wav("set.wav", 14, interleaved(set))});
    follow(*path->settings());
    EXPECT_EQ(path->settings()->hrtfLength, 1024U);
    EXPECT_EQ(path->settings()->hrtfChannels, 8U);
    EXPECT_NE(path->settings()->hrtfId, 0U);

    const double gain = std::sqrt(pinkPower(builtIn()) / pinkPower(set));
    for (std::size_t row = 0; row < 8; ++row) {
        const Ears ears = heard(path, row);
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = 0; i < 480; ++i) {
                // The front centre's main tap is its first, at frame 0.
                const double expected = row != woofer ? (onset + i < 1000 ? gain * set[row][ear][onset + i] : 0)
                                        : i == 0      ? 0.707
                                                      : 0;
                // The transforms' noise; and a single-precision sum of 1e-6 of the power in the gain.
                ASSERT_NEAR(ears[ear][i], expected, 5e-6) << "speaker " << row << ", ear " << ear << ", frame " << i;
            }
    }
}

TEST_F(Responses, ClearingBringsTheBuiltInSoundBackAtOnce)
{
    SignalPath path = path7();
    std::vector<Ears> before;
    for (std::size_t row = 0; row < 8; ++row)
        before.push_back(heard(path, row));
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    follow(*path->settings());
    EXPECT_GT(std::abs(heard(path, 0)[0][0] - before[0][0][0]), 0.01);

    done({"hrtf", "clear"});
    follow(*path->settings());
    EXPECT_EQ(path->settings()->hrtfId, 0U);
    EXPECT_EQ(path->settings()->hrtfChannels, 8U);
    std::vector<float> own; // the spectra that a new path begins with
    for (const bool left : {true, false})
        for (const SpeakerResponses& speaker : speakerResponses) {
            const EarResponse& response = left ? speaker.left : speaker.right;
            appendSpectrum(own, response.taps, response.onset);
        }
    EXPECT_EQ(std::memcmp(share(), own.data(), hrtfShareBytes), 0);
    for (std::size_t row = 0; row < 8; ++row) {
        const Ears after = heard(path, row);
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = 0; i < 480; ++i)
                ASSERT_NEAR(after[ear][i], before[row][ear][i], 1e-6) << row << ' ' << ear << ' ' << i;
    }
    const Outcome again = run({"hrtf", "clear"});
    EXPECT_EQ(again.code, 0);
    EXPECT_THAT(again.err, HasSubstr("no delivered set is in force"));
}

TEST_F(Responses, ASetThatIsLoadedAgainHasANewIdentity)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    std::vector<std::uint32_t> identities;
    for (int i = 0; i < 3; ++i) {
        done({"hrtf", "load", file});
        identities.push_back(settings().hrtfId);
        if (i == 1)
            done({"hrtf", "clear"});
    }
    EXPECT_NE(identities[0], 0U);
    EXPECT_NE(identities[0], identities[1]);
    EXPECT_NE(identities[1], identities[2]);
}

TEST_F(Responses, GainIsOnTopOfTheBuiltInLevel)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    done({"hrtf", "load", file});
    const std::vector<float> plain(share(), share() + 16 * 1024);
    const Outcome louder = run({"hrtf", "load", file, "--gain", "6"});
    EXPECT_EQ(louder.code, 0);
    const double factor = std::pow(10, 6 / 20.0);
    for (std::size_t i = 0; i < plain.size(); ++i) // of values up to 10, twice rounded in single precision
        ASSERT_NEAR(static_cast<double>(share()[i]), factor * static_cast<double>(plain[i]), 1e-5) << i;
}

TEST_F(Responses, TheEnergyThatIsCutIsTold)
{
    auto set = someSet(100, 0, 400);
    // One tap of a tenth of the energy of the rest, too late for the convolver: an eleventh would be cut.
    set[4][0][300] = std::sqrt(energy(set[4][0]) / 10);
    const Outcome outcome = run({"hrtf", "load", wav("set.wav", 14, interleaved(set))});
    EXPECT_EQ(outcome.code, 0) << outcome;
    EXPECT_THAT(outcome.err, HasSubstr("cut of the energy: at most 9.09 % (-10.41 dB), at back left, left ear\n"));
}

TEST_F(Responses, ASetThatLosesTooMuchIsRefused)
{
    auto set = someSet(100, 0, 400);
    set[4][0][300] = std::sqrt(energy(set[4][0]) / 8); // a ninth
    expectUntouched({"hrtf", "load", wav("set.wav", 14, interleaved(set))},
                    "set.wav: the convolver takes 177 taps, and of back left, left ear they hold too little: 11.1 % of its "
                    "energy would be cut, more than 10.0 %");
}

TEST_F(Responses, ABadFileIsRefusedAndNothingIsTouched)
{
    const auto set = someSet(100, 10, 200);
    const std::vector<float> good = interleaved(set);
    expectUntouched({"hrtf", "load", path("none.wav")}, "cannot read " + path("none.wav"));
    expectUntouched({"hrtf", "load", path("none.sofa")}, "cannot read " + path("none.sofa"));
    std::ofstream(folder / "text.wav") << "This is a letter.\n";
    expectUntouched({"hrtf", "load", path("text.wav")}, "cannot read " + path("text.wav"));
    expectUntouched({"hrtf", "load", wav("two.wav", 2, std::vector<float>(400))},
                    "two.wav: it has 2 channels; a set of responses has 14, a pair for each speaker");
    expectUntouched({"hrtf", "load", wav("empty.wav", 14, {})}, "empty.wav: it is empty");
    expectUntouched({"hrtf", "load", wav("frame.wav", 14, std::vector<float>(14, 0.5F))},
                    "frame.wav: its responses have 1 frame, and that of a head has at least 16");
    expectUntouched({"hrtf", "load", wav("long.wav", 14, std::vector<float>(14 * 65537))},
                    "long.wav: its responses are longer than 65536 frames");

    auto bad = good;
    for (const float value : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        bad[14 * 50 + pairOf[6][1]] = value;
        expectUntouched({"hrtf", "load", wav("bad.wav", 14, bad)}, "holds a value that is no number");
    }
    bad = good;
    for (std::size_t i = 0; i < 200; ++i)
        bad[14 * i + pairOf[2][1]] = 0;
    expectUntouched({"hrtf", "load", wav("silent.wav", 14, bad)}, "the response of front centre, right ear is silent");
    bad = good;
    for (std::size_t i = 0; i < 200; ++i)
        std::swap(bad[14 * i + pairOf[5][0]], bad[14 * i + pairOf[5][1]]);
    expectUntouched({"hrtf", "load", wav("order.wav", 14, bad)},
                    "its channels are in another order: back right would be louder at the far ear");
    bad = good;
    for (float& value : bad)
        value *= 1e30F;
    done({"hrtf", "load", wav("loud.wav", 14, bad)}); // the level is the built-in set's in any case
}

TEST_F(Responses, ASetIsForARunningStreamThatCanTakeIt)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    handler->writeActiveFormat(0, 0.0F);
    expectUntouched({"hrtf", "load", file}, "no stream is running that a set could be for; --channels insists");
    handler->writeActiveFormat(0x63F, 44100.0F);
    expectUntouched({"hrtf", "load", file}, "the running stream has the channel mask 0x63F at 44100 Hz");
    handler->writeActiveFormat(0x3, 48000.0F);
    expectUntouched({"hrtf", "load", file}, "a set is for all eight speakers, 0x63F, at 48000 Hz; --channels insists");
    expectUntouched(
        {"hrtf", "load", file, "--channels", "8"},
        "the running stream has 2 channels: with a set for 8 it refuses every block, and is silent, until hrtf clear; "
        "--yes delivers it all the same");
    done({"hrtf", "load", file, "--channels", "8", "--yes"});
    EXPECT_EQ(settings().hrtfChannels, 8U);
}

// A headset's microphone is often locked after its speakers.
TEST_F(Responses, ASetIsForEightChannelsWhileAMicrophoneRuns)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    for (const auto& [mask, rate] : {std::pair{0x4U, 48000.0F}, {0U, 48000.0F}, {0x3U, 16000.0F}, {0x1U, 44100.0F}}) {
        SignalPath path = path7();
        handler->writeActiveFormat(mask, rate);
        const Outcome outcome = run({"hrtf", "load", file});
        EXPECT_EQ(outcome.code, 0) << outcome;
        EXPECT_THAT(outcome.err, HasSubstr("stereo at 96 kHz, would refuse every block until hrtf clear\n"));
        EXPECT_EQ(settings().hrtfChannels, 8U);
        follow(*path->settings());
        EXPECT_NO_THROW(heard(path, 0));
        EXPECT_EQ(run({"status"}).err, "") << mask;
        EXPECT_THAT(done({"status"}), HasSubstr(", as a microphone has\n"));
        done({"hrtf", "clear"});
    }
    handler->writeActiveFormat(0x3, 44100.0F); // of two speakers, so a player's
    expectUntouched({"hrtf", "load", file}, "the running stream has the channel mask 0x3 at 44100 Hz");
}

TEST_F(Responses, StatusNamesTheFileOfTheSetInForce)
{
    const std::string file = wav("my ears.wav", 14, interleaved(someSet(100, 10, 200)));
    done({"hrtf", "load", file});
    EXPECT_THAT(done({"status"}), HasSubstr(" for 8 channels, of " + file + "\n"));
    SettingsRecord record = settings();
    record.hrtfId ^= 0x100; // another application has delivered another set
    copySettings(record, *block);
    EXPECT_THAT(done({"status"}), HasSubstr(" for 8 channels\n"));
    done({"hrtf", "clear"});
    EXPECT_THAT(done({"status"}), HasSubstr("responses: built in\n"));
}

TEST_F(Responses, ASetForFewerChannelsHasTheirPairs)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    done({"hrtf", "load", file});
    const std::vector<float> all(share(), share() + 16 * 1024);
    // The rows of `speakerTable`: the stream's own layout where it has so many channels, else the usual one.
    for (const auto& [mask, channels, rows] : {std::tuple{0x3U, 2U, std::vector<std::size_t>{0, 1}},
                                               {0x63FU, 2U, {0, 1}},
                                               {0x63FU, 6U, {0, 1, 2, 3, 4, 5}},
                                               {0x60FU, 6U, {0, 1, 2, 3, 6, 7}},
                                               {0U, 1U, {2}},
                                               {0U, 4U, {0, 1, 4, 5}},
                                               {0U, 7U, {0, 1, 2, 4, 5, 6, 7}}}) {
        handler->writeActiveFormat(mask, 48000.0F);
        done({"hrtf", "load", file, "--channels", std::to_string(channels), "--yes"});
        EXPECT_EQ(settings().hrtfChannels, channels);
        for (std::size_t c = 0; c < rows.size(); ++c)
            for (std::size_t ear = 0; ear < 2; ++ear)
                EXPECT_EQ(std::memcmp(share() + (ear * channels + c) * 1024, all.data() + (ear * 8 + rows[c]) * 1024, 4096), 0)
                    << channels << ' ' << c << ' ' << ear;
    }
}

// Blocks run only between the commands, as in a stream that pauses while they are given.
TEST_F(Responses, ClearingEndsARefusalAfterASecondDelivery)
{
    const std::string file = wav("set.wav", 14, interleaved(someSet(100, 10, 200)));
    std::vector<float> in(480 * 8);
    std::vector<float> out(480 * 8);
    for (const auto& [channels, mask, other] : {std::tuple{8U, 0x63FU, "2"}, {2U, 0x3U, "8"}, {6U, 0x60FU, "8"}}) {
        handler->writeActiveFormat(mask, 48000.0F);
        SignalPath path(SignalPath::Speaker{}, static_cast<int>(channels), mask, 480, 48000);
        const auto runs = [&] {
            follow(*path->settings());
            path->process(in.data(), 480, out.data(), 480);
        };
        done({"hrtf", "load", file, "--channels", std::to_string(channels)});
        EXPECT_NO_THROW(runs());
        done({"hrtf", "load", file, "--channels", other, "--yes"});
        EXPECT_THROW(runs(), std::invalid_argument);
        const Outcome cleared = run({"hrtf", "clear"});
        EXPECT_THAT(cleared.err, HasSubstr(std::string("hrtf clear --channels ") + other + '\n'));
        EXPECT_NO_THROW(runs()) << channels;
        EXPECT_EQ(run({"status"}).err, "");
    }
}

TEST_F(Responses, ASetIsClearedWhileAMicrophoneIsTheLastStream)
{
    SignalPath path = path7();
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    follow(*path->settings());
    heard(path, 0);
    handler->writeActiveFormat(0x4, 48000.0F);
    done({"hrtf", "clear"});
    follow(*path->settings());
    EXPECT_NO_THROW(heard(path, 0));
    EXPECT_EQ(settings().hrtfChannels, 8U);
}

TEST_F(Responses, StatusWarnsOfAStreamThatTheClearingMayHaveMissed)
{
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    SignalPath path = path7();
    heard(path, 0);
    done({"hrtf", "clear", "--channels", "2"});
    follow(*path->settings());
    EXPECT_THROW(heard(path, 0), std::invalid_argument);
    EXPECT_THAT(run({"status"}).err, HasSubstr("was brought back for 2 channels, the stream has 8"));
    EXPECT_THAT(run({"status"}).err, HasSubstr("hrtf clear --channels 8 ends this"));
    done({"hrtf", "clear", "--channels", "8"});
    follow(*path->settings());
    EXPECT_NO_THROW(heard(path, 0));
    EXPECT_EQ(run({"status"}).err, "");
}

TEST_F(Responses, ClearingEndsTheRefusalOfASetThatDoesNotFit)
{
    SignalPath stereo(SignalPath::Speaker{}, 2, 0x3, 480, 48000);
    done({"hrtf", "load", wav("set.wav", 14, interleaved(someSet(100, 10, 200)))});
    handler->writeActiveFormat(0x3, 48000.0F);
    std::vector<float> in(480 * 2);
    std::vector<float> out(480 * 8);
    follow(*stereo->settings());
    EXPECT_THROW(stereo->process(in.data(), 480, out.data(), 480), std::invalid_argument);
    done({"hrtf", "clear"});
    follow(*stereo->settings());
    EXPECT_NO_THROW(stereo->process(in.data(), 480, out.data(), 480));
}

} // namespace
} // namespace quorel

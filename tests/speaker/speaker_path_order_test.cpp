// SPDX-License-Identifier: MIT
// The order of a block's steps, each fade, and the switches that nothing turns off: each alone, against what the stages beside
// it make of the same signal.
#include "speaker/speaker_path.h"

#include "speaker/built_in.h"
#include "speaker/compressor_tables.h"
#include "tests/speaker/cases.h"
#include "tests/support/noise.h"

#include <cmath>
#include <numbers>
#include <vector>

namespace quorel {

namespace {

constexpr std::size_t frames = 480;
constexpr std::array<std::uint32_t, 9> masks = {0, 0x4, 0x3, 0x7, 0x33, 0x37, 0x3F, 0x61F, 0x63F};

// A front centre speaker: its down-mix is half of it on either side.
struct Centre {
    Centre(std::uint8_t surround, std::uint32_t reverb)
    {
        path.settings().Settings = surround;
        path.settings().Reverb = reverb;
        deliver();
        for (int block = 0; block < 3; ++block)
            process(std::vector<float>(frames));
    }

    void deliver()
    {
        ++path.settings().blockSequence;
        path.settings().applied = 0;
    }

    // Left and right of one block, interleaved.
    std::vector<float> process(std::vector<float> in)
    {
        std::vector<float> out(in.size() * 8);
        path.process({in.data(), in.size()}, {out.data(), in.size()});
        std::vector<float> stereo;
        for (std::size_t i = 0; i < in.size(); ++i)
            stereo.insert(stereo.end(), {out[8 * i], out[8 * i + 1]});
        return stereo;
    }

    SpeakerPath<1, float> path{0x4, frames, 48000};
};

std::vector<float> times(std::vector<float> x, float factor)
{
    for (float& sample : x)
        sample *= factor;
    return x;
}

double rising(std::size_t i)
{
    return 0.5 - 0.5 * std::cos(static_cast<double>(i) * std::numbers::pi / frames);
}

double energy(const std::vector<float>& x)
{
    double sum = 0.0;
    for (const float sample : x)
        sum += double{sample} * double{sample};
    return sum;
}

// Interleaved stereo in the form that stages take.
Buffer<float, 2> rows(const std::vector<float>& stereo)
{
    Buffer<float, 2> buffer(stereo.size() / 2);
    for (std::size_t k = 0; k < stereo.size(); ++k)
        buffer.channel(k % 2)[k / 2] = stereo[k];
    buffer.setSize(stereo.size() / 2);
    return buffer;
}

Compressor<2> limiter()
{
    return {renderAttack, renderRelease, renderCurve};
}

// --- The switches that nothing turns off -----------------------------------------------------------------------------

TEST(SpeakerPathSwitches, WithoutTheConvolverTheRoomAloneIsHeard)
{
    // The twin's convolver runs, on responses that are silent: its direct signal is exactly 0.
    Centre room(1, 170);
    Centre twin(1, 170);
    for (Centre* each : {&room, &twin})
        each->process(normalNoise(frames, 0.1F, 1)); // so that the bus holds something
    room.path.steps().direct = false;
    const std::vector<float> silentSet(2 * 1024);
    twin.path.settings().hrtfId = 1;
    twin.path.settings().hrtfChannels = 1;
    twin.path.settings().hrtfLength = 1024;
    twin.path.settings().hrtfData = silentSet.data();
    twin.deliver();
    for (const std::size_t n : {std::size_t{480}, std::size_t{100}, std::size_t{480}}) {
        const auto in = normalNoise(n, 0.1F, 2);
        const auto heard = room.process(in);
        EXPECT_EQ(heard, twin.process(in));
        EXPECT_GT(energy(heard), 1e-4);
    }
}

TEST(SpeakerPathSwitches, WithoutConvolverAndRoomThereIsSilence)
{
    Centre path(1, 0);
    path.process(normalNoise(frames, 0.1F, 1));
    path.path.steps().direct = false;
    for (const std::size_t n : {std::size_t{480}, std::size_t{99}})
        EXPECT_EQ(path.process(normalNoise(n, 0.1F, 2)), std::vector<float>(2 * n));
}

TEST(SpeakerPathSwitches, WithoutTheEqualiserAChangeWaitsAndNothingIsBent)
{
    Centre path(0, 0);
    path.path.steps().equalizer = false;
    path.path.settings().EQBand.fill(127);
    path.deliver();
    for (std::uint32_t block = 0; block < 3; ++block) {
        const auto in = normalNoise(frames, 0.05F, block);
        const auto out = path.process(in);
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t ear = 0; ear < 2; ++ear)
                ASSERT_EQ(out[2 * i + ear], 0.8F * (0.5F * in[i])); // the limiters are open: a gain of exactly 1
        EXPECT_TRUE(path.path.wantedEqualizer().changed);
    }
    path.path.steps().equalizer = true;
    path.process(normalNoise(frames, 0.05F, 4));
    EXPECT_FALSE(path.path.wantedEqualizer().changed);
}

TEST(SpeakerPathSwitches, WithoutTheLimiterTheEqualisersSoundLeavesAsItIs)
{
    // A sine that the first limiter lets pass, and twelve decibels and more on top of it by the equaliser.
    Centre with(0, 0);
    Centre without(0, 0);
    for (Centre* each : {&with, &without}) {
        each->path.settings().EQBand.fill(127);
        each->deliver();
        each->process(std::vector<float>(frames));
    }
    without.path.steps().compressor = false;
    Compressor<2> last = limiter(); // as the path's stands after silence
    double loudest = 0.0;
    for (std::size_t block = 0; block < 20; ++block) {
        std::vector<float> in(frames);
        for (std::size_t i = 0; i < frames; ++i)
            in[i] = 1.8F * static_cast<float>(std::sin(2.0 * std::numbers::pi * 1000.0 * static_cast<double>(i) / 48000.0));
        const auto limited = with.process(in);
        const auto whole = without.process(in);
        // The path's last limiter, run here on what leaves without it: 0.8 times that is what leaves with it.
        Buffer<float, 2> through(frames);
        last.process(rows(times(whole, 1.0F / 0.8F)), through);
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t ear = 0; ear < 2; ++ear) {
                // Some ten roundings of samples up to 4.
                ASSERT_NEAR(double{limited[2 * i + ear]}, 0.8 * double{through.channel(ear)[i]}, 10 * 4 * 0x1p-24);
                loudest = std::max(loudest, std::abs(double{whole[2 * i + ear]}));
            }
    }
    EXPECT_GT(loudest, 2.0);
}

// --- Fades -----------------------------------------------------------------------------------------------------------

TEST(SpeakerPathFades, AChangedReverbGoesAlongHalfACosineAndThenStands)
{
    Centre before(1, 100);
    Centre after(1, 200);
    Centre changed(1, 100);
    for (Centre* each : {&before, &after, &changed}) {
        each->path.steps().equalizer = false;
        each->process(normalNoise(frames, 0.02F, 5));
    }
    changed.path.settings().Reverb = 200;
    changed.deliver();
    const auto in = normalNoise(frames, 0.02F, 6);
    const auto old = before.process(in);
    const auto fresh = after.process(in);
    const auto faded = changed.process(in);
    std::vector<float> apart;
    for (std::size_t k = 0; k < faded.size(); ++k)
        apart.push_back(fresh[k] - old[k]);
    ASSERT_GT(energy(apart), 1e-3);
    for (std::size_t k = 0; k < faded.size(); ++k) {
        const double up = rising(k / 2);
        // A dozen roundings of samples below 0.25; the ramp itself is right to 2e-7.
        ASSERT_NEAR(double{faded[k]}, (1.0 - up) * double{old[k]} + up * double{fresh[k]}, 12 * 0.25 * 0x1p-24) << k;
    }
    const auto next = normalNoise(frames, 0.02F, 7);
    EXPECT_EQ(changed.process(next), after.process(next));
}

TEST(SpeakerPathFades, AChangedBandGoesToACurveThatStartsFromSilence)
{
    Centre path(0, 0);
    Equalizer old = builtInEqualizer();
    Equalizer fresh = builtInEqualizer();
    Buffer<float, 2> warm(frames);
    Buffer<float, 2> bent(frames);
    const auto halves = [](const std::vector<float>& in) {
        std::vector<float> both;
        for (const float sample : in)
            both.insert(both.end(), {0.5F * sample, 0.5F * sample});
        return rows(both);
    };
    const auto first = normalNoise(frames, 0.02F, 8);
    path.process(first);
    old.process(halves(first), warm);

    path.path.settings().EQBand[0] = 127;
    path.path.settings().EQBand[6] = -127;
    path.deliver();
    fresh.design({6, 0, 0, 0, 0, 0, -6, 0, 0});
    const auto second = normalNoise(frames, 0.02F, 9);
    const auto faded = path.process(second);
    old.process(halves(second), warm);
    fresh.process(halves(second), bent);
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const double mixed = (1.0 - rising(i)) * double{warm.channel(ear)[i]} + rising(i) * double{bent.channel(ear)[i]};
            ASSERT_NEAR(double{faded[2 * i + ear]}, 0.8 * mixed, 12 * 0.25 * 0x1p-24) << i;
        }

    const auto third = normalNoise(frames, 0.02F, 10);
    const auto settled = path.process(third);
    fresh.process(halves(third), bent);
    for (std::size_t i = 0; i < frames; ++i)
        ASSERT_EQ(settled[2 * i], 0.8F * bent.channel(0)[i]) << i;
}

// --- Order -----------------------------------------------------------------------------------------------------------

TEST(SpeakerPathOrder, TheRoomHearsTheRawInputAndJoinsBehindTheFirstLimiter)
{
    const auto room = [](float scale) {
        Centre wet(1, 170);
        Centre dry(1, 0);
        std::vector<float> heard;
        for (Centre* each : {&wet, &dry})
            each->path.steps().equalizer = each->path.steps().compressor = false;
        for (std::uint32_t block = 0; block < 3; ++block) {
            const auto in = normalNoise(frames, scale, block);
            const auto with = wet.process(in);
            const auto without = dry.process(in);
            for (std::size_t k = 0; k < with.size(); ++k)
                heard.push_back(with[k] - without[k]);
        }
        return heard;
    };
    // Sixty-four times as loud, where the direct signal is far down in the limiter, the room is sixty-four times as loud too.
    const auto soft = room(0.03125F);
    const auto loud = room(2.0F);
    ASSERT_GT(energy(loud), 10.0);
    for (std::size_t k = 0; k < soft.size(); ++k)
        ASSERT_NEAR(double{loud[k]}, 64.0 * double{soft[k]}, 64 * 0.25 * 0x1p-22) << k; // of differences of samples below 0.25
}

TEST(SpeakerPathOrder, InATransitionTheFirstLimiterGoesOnFromTheDirectSignal)
{
    // Required: one set of envelopes runs over the direct signal and then over the down-mix of the same block.
    const auto in = normalNoise(frames, 2.0F, 11);
    Centre soft(1, 0);
    soft.path.steps().equalizer = soft.path.steps().compressor = false;
    const auto direct = times(soft.process(times(in, 0x1p-6F)), 0x1p6F / 0.8F); // what the limiter is given
    Centre path(1, 0);
    path.path.steps().equalizer = path.path.steps().compressor = false;
    path.path.settings().Settings = 0;
    path.deliver();
    const auto out = path.process(in);

    Compressor<2> first = limiter();
    Buffer<float, 2> falls(frames);
    Buffer<float, 2> rises(frames);
    std::vector<float> mixed;
    for (const float sample : in)
        mixed.insert(mixed.end(), {0.5F * sample, 0.5F * sample});
    first.process(rows(direct), falls);
    first.process(rows(mixed), rises);
    for (std::size_t i = 0; i < frames; ++i)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const double both = (1.0 - rising(i)) * double{falls.channel(ear)[i]} + rising(i) * double{rises.channel(ear)[i]};
            // Transforms err by some 1e-7 of the loudest sample, about 8.
            ASSERT_NEAR(double{out[2 * i + ear]}, 0.8 * both, 8e-6) << i;
        }
}

// --- The translation of a record -------------------------------------------------------------------------------------

TEST(SpeakerPathTranslation, ARefusedSetIsItsLastStepInEveryLayout)
{
    forChannelCounts([]<std::size_t N>() {
        SpeakerPath<N, float> path(masks[N], frames, 48000);
        std::vector<float> in(N * frames);
        std::vector<float> out(8 * frames);
        path.settings().Settings = 1;
        path.process({in.data(), frames}, {out.data(), frames});

        path.settings().Settings = 0;
        path.settings().EQBand = {127, -127, 0, 0, 0, 0, 0, 0, 127};
        path.settings().Reverb = 170; // 0 dB
        path.settings().hrtfId = 5;
        path.settings().hrtfChannels = N + 1;
        path.settings().hrtfLength = 1024;
        path.settings().blockSequence = 1;
        path.settings().applied = 0;
        for (int block = 0; block < 2; ++block) {
            failureText<std::invalid_argument>([&] { path.process({in.data(), frames}, {out.data(), frames}); });
            EXPECT_FALSE(path.wantsSurround());
            EXPECT_TRUE(path.wantsReverb());
            EXPECT_EQ(path.wantedReverbGain().value, 1.0F);
            EXPECT_EQ(path.wantedEqualizer().value, (std::array<double, 9>{6, -6, 0, 0, 0, 0, 0, 0, 6}));
            EXPECT_EQ(path.hrtfId(), 0U);
            EXPECT_EQ(path.settings().applied, 0);
        }
    });
}

TEST(SpeakerPathTranslation, ADeliveredSetReachesItsChannelsEarsInEveryLayout)
{
    forChannelCounts([]<std::size_t N>() {
        SpeakerPath<N, float> path(masks[N], frames, 48000);
        std::vector<float> in(N * frames);
        std::vector<float> out(8 * frames);
        path.settings().Settings = 1;
        for (int block = 0; block < 3; ++block)
            path.process({in.data(), frames}, {out.data(), frames});

        // Response r is an impulse of height 1 + r at tap 0: the left ears' of all channels, then the right ears'.
        std::vector<float> set(2 * N * 1024);
        for (std::size_t r = 0; r < 2 * N; ++r) {
            set[r * 1024] = set[r * 1024 + 1023] = static_cast<float>(1 + r);
            for (std::size_t k = 1; k < 1023; k += 2)
                set[r * 1024 + k] = static_cast<float>(1 + r);
        }
        path.settings().hrtfId = 5;
        path.settings().hrtfChannels = N;
        path.settings().hrtfLength = 1024;
        path.settings().hrtfData = set.data();
        path.settings().blockSequence = 1;
        path.settings().applied = 0;
        for (std::size_t c = 0; c < N; ++c)
            in[(10 + c) * N + c] = 0.03125F; // a click of its own time in each channel
        path.process({in.data(), frames}, {out.data(), frames});
        EXPECT_EQ(path.hrtfId(), 5U);
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t ear = 0; ear < 2; ++ear) {
                const double height = i >= 10 && i < 10 + N ? static_cast<double>(1 + ear * N + i - 10) : 0.0;
                ASSERT_NEAR(double{out[8 * i + ear]}, 0.8 * 0.03125 * height, 1e-6) << i;
            }
    });
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
#include "microphone/ogle.h"

#include "microphone/microphone_tables.h"
#include "tests/microphone/cases.h"
#include "tests/microphone/tracker_stream.h"

#include <cmath>
#include <limits>
#include <random>

namespace quorel {
namespace {

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();

// The estimate of one band, in which `tracker` meets the magnitudes one frame after the other.
std::vector<float> estimates(Ogle<1>& tracker, const std::vector<float>& magnitudes)
{
    std::vector<float> result;
    Buffer<float, 1> out(gainBandCount);
    for (const float magnitude : magnitudes) {
        tracker.process(constantBands<1>(gainBandCount, magnitude), out);
        result.push_back(out.channel(0)[5]);
    }
    return result;
}

TEST(Ogle, SilenceEndsAtTheFloorAndNeverAtZero)
{
    for (const std::uint32_t rate : bothRates) {
        Ogle<1> tracker(levelTrackerTables(rate));
        Buffer<float, 1> out(levelBandCount);
        for (int frame = 0; frame < 20; ++frame) {
            tracker.process(constantBands<1>(levelBandCount, 0.0F), out);
            for (std::size_t b = 0; b < levelBandCount; ++b) {
                EXPECT_GT(out.channel(0)[b], 0.0F);
                EXPECT_LE(out.channel(0)[b], 1.1920929e-06F);
            }
        }
        // Within the 0.9 of the floor that count as reached.
        EXPECT_GE(out.channel(0)[0], 0.9F * 1.1920929e-06F);
    }
}

TEST(Ogle, ASteadyBandIsApproachedByHalvesUntilTheEstimateHolds)
{
    // Sums of powers of two: exact. From the fifth frame on 0.9 lies below the estimate and 2^-17 of the distance is taken.
    Ogle<1> tracker(signalTrackerTables());
    const std::vector<float> o = estimates(tracker, std::vector<float>(6, 1.0F));
    EXPECT_EQ(o[0], 0.5F);
    EXPECT_EQ(o[1], 0.75F);
    EXPECT_EQ(o[2], 0.875F);
    EXPECT_EQ(o[3], 0.9375F);
    const float creep = 0.0625F * 7.62939453e-06F; // 2^-21, four units in the last place of the estimate
    EXPECT_EQ(o[4], 0.9375F + creep);
    EXPECT_NEAR(o[5], 0.9375F + 2 * creep, 6e-8F);
}

TEST(Ogle, At48000TheLevelOfASteadyBandIsReachedInOneFrame)
{
    Ogle<1> tracker(levelTrackerTables(48000));
    Buffer<float, 1> out(levelBandCount);
    tracker.process(constantBands<1>(levelBandCount, 0.25F), out);
    EXPECT_EQ(out.channel(0)[3], 0.25F);
}

TEST(Ogle, ADropToHalfIsFollowedOnceTheEnvelopeHasPassedTheLowRatio)
{
    Ogle<1> tracker(signalTrackerTables());
    const float before = estimates(tracker, std::vector<float>(4, 1.0F)).back(); // 0.9375, envelope 1
    // The envelope falls by a quarter of the distance: 0.875, 0.78125, 0.7109, 0.6582, 0.6187; 0.7 * 0.9375 is 0.65625.
    const std::vector<float> o = estimates(tracker, std::vector<float>(5, 0.5F));
    for (int frame = 0; frame < 4; ++frame)
        EXPECT_NEAR(o[static_cast<std::size_t>(frame)], before, 1e-5F)
            << "frame " << frame; // held: 4 * 2^-17 of the distance at most
    const float envelope = 0.5F + 0.5F * std::pow(0.75F, 5.0F);
    EXPECT_NEAR(o[4], o[3] + 0.125F * (envelope - o[3]), 1e-6F);
}

TEST(Ogle, NoFrameRunsNoChannelAndEmptiesTheOutput)
{
    forChannelCounts([]<std::size_t N>() {
        Ogle<N> tracker(signalTrackerTables());
        SpectrumBuffer<N> in(gainBandCount);
        Buffer<float, N> out(gainBandCount);
        out.channel(0)[0] = 7.0F;
        for (const std::uint64_t size : {0U, 15U}) {
            in.setSize(size);
            out.setSize(3);
            tracker.process(in, out);
            EXPECT_EQ(out.size(), 0U);
            EXPECT_EQ(out.channel(0)[0], 7.0F);
        }
    });
}

TEST(Ogle, WhatIsLeftBehindWholeFramesStaysUnread)
{
    forChannelCounts([]<std::size_t N>() {
        Ogle<N> whole(signalTrackerTables());
        Ogle<N> ragged(signalTrackerTables());
        auto in = constantBands<N>(gainBandCount, 0.5F, 2);
        Buffer<float, N> a(2 * gainBandCount);
        Buffer<float, N> b(2 * gainBandCount);
        in.setSize(gainBandCount + 15);
        ragged.process(in, b);
        EXPECT_EQ(b.size(), gainBandCount);
        in.setSize(gainBandCount);
        whole.process(in, a);
        whole.process(in, a);
        ragged.process(in, b);
        for (std::size_t c = 0; c < N; ++c)
            for (std::size_t k = 0; k < gainBandCount; ++k)
                EXPECT_EQ(a.channel(c)[k], b.channel(c)[k]);
    });
}

TEST(Ogle, FramesBeyondTheOutputsCapacityFail)
{
    forChannelCounts([]<std::size_t N>() {
        Ogle<N> tracker(signalTrackerTables());
        const auto in = constantBands<N>(gainBandCount, 0.5F, 2);
        Buffer<float, N> out(gainBandCount);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { tracker.process(in, out); }), "Ogle: out buffer too small");
    });
}

// Written from the formulas, in double precision. The estimate is taken over from the tracker after every frame, so that a
// decision which rounding has turned cannot spread: within `doubt` of a threshold either side counts as right.
TEST(Ogle, EveryFrameFollowsTheFormulasInDoublePrecision)
{
    constexpr double doubt = 1e-5;     // relative distance from a threshold that rounding may cross
    constexpr double tolerance = 5e-7; // three roundings of 2^-24, a float coefficient, a magnitude of two roundings
    for (const bool wide : {false, true}) {
        const OgleTables tables = wide ? signalTrackerTables() : levelTrackerTables(16000);
        const std::size_t bands = tables.floor.size();
        forChannelCounts([&]<std::size_t N>() {
            Ogle<N> tracker(tables);
            std::mt19937 random(7);
            std::normal_distribution<float> normal;
            std::vector<double> envelope(N * bands);
            std::vector<double> estimate(N * bands);
            SpectrumBuffer<N> in(bands);
            Buffer<float, N> out(bands);
            in.setSize(bands);
            float loudness = 1.0F;
            for (int frame = 0; frame < 2000; ++frame) {
                if (frame % 50 == 0) // from -100 dB to 0 dB, so that every branch is met
                    loudness = std::pow(10.0F, -5.0F * std::uniform_real_distribution<float>()(random));
                for (std::size_t c = 0; c < N; ++c)
                    for (std::size_t b = 0; b < bands; ++b)
                        in.channel(c)[b] = {loudness * normal(random), loudness * normal(random)};
                tracker.process(in, out);
                for (std::size_t c = 0; c < N; ++c) {
                    for (std::size_t b = 0; b < bands; ++b) {
                        double& e = envelope[c * bands + b];
                        double& o = estimate[c * bands + b];
                        const double m = std::max(std::abs(std::complex<double>(in.channel(c)[b])), double{tables.floor[b]});
                        e += (m > e ? double{tables.rise[b]} : double{tables.fall[b]}) * (m - e);
                        const double low = o * double{tables.lowRatio[b]};
                        const double high = e * double{tables.highRatio[b]};
                        double rate = low > e ? tables.dropRate[b] : high >= o ? tables.catchUpRate[b] : tables.holdRate[b];
                        const double heard = out.channel(c)[b];
                        if (std::abs(low - e) < doubt * e && std::abs(heard - o) < 1e-4 * o)
                            rate = tables.holdRate[b];
                        if (std::abs(high - o) < doubt * o && std::abs(heard - o) < 1e-4 * o)
                            rate = tables.holdRate[b];
                        const double expected = o + rate * (e - o);
                        ASSERT_LE(std::abs(heard - expected), tolerance * std::max(e, o)) << "frame " << frame << " band " << b;
                        o = heard;
                    }
                }
            }
        });
    }
}

TEST(Ogle, ChannelsAndCutsOfTheStreamDoNotMatter)
{
    expectChannelsAndCutsNotToMatter<Ogle>(signalTrackerTables(), 1.0F);
}

TEST(Ogle, NotANumberEntersAsTheFloor)
{
    Ogle<1> tracker(signalTrackerTables());
    Ogle<1> silent(signalTrackerTables());
    EXPECT_EQ(estimates(tracker, {0.5F, notANumber, notANumber, 0.25F}), estimates(silent, {0.5F, 0.0F, 0.0F, 0.25F}));
}

TEST(Ogle, AnInfiniteMagnitudeLeavesTheEstimateNotANumberForGood)
{
    // Required: the envelope takes infinity at once, and infinity minus infinity in the frame after it.
    Ogle<1> tracker(signalTrackerTables());
    const std::vector<float> o = estimates(tracker, {0.5F, infinity, 0.5F, 0.5F, 0.5F});
    EXPECT_EQ(o[1], infinity);
    for (const std::size_t frame : {2U, 3U, 4U})
        EXPECT_TRUE(std::isnan(o[frame])) << frame;
}

} // namespace
} // namespace quorel

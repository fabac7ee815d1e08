// SPDX-License-Identifier: MIT
#include "stages/biquad.h"

#include "core/buffer.h"
#include "speaker/fdn_tables.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

namespace quorel {
namespace {

// One-pole smoothing:  y[n] = 0.25 * x[n] + 0.75 * y[n-1], whose impulse response is 0.25 * 0.75^n.
constexpr double smoothing[] = {0.25, 0, 0, 1, -0.75, 0};
// Twice that, for what must differ.
constexpr double doubled[] = {0.5, 0, 0, 1, -0.75, 0};

template <class Tap>
std::vector<Tap> taps(std::span<const double> values)
{
    std::vector<Tap> all;
    for (const double value : values)
        all.push_back(static_cast<Tap>(value));
    return all;
}

template <std::size_t C>
Buffer<float, C> impulse(std::uint64_t n)
{
    Buffer<float, C> buffer(n);
    for (std::size_t c = 0; c < C; ++c)
        buffer.channel(c)[0] = 1.0F;
    buffer.setSize(n);
    return buffer;
}

// Every instance: channel counts 1 to 8 and 12, both widths of taps.
template <class Instance>
class EveryBiquad : public testing::Test {
};

template <std::size_t channels, class Width>
struct Instance {
    static constexpr std::size_t C = channels;
    using Tap = Width;
};
using Instances =
    testing::Types<Instance<1, float>, Instance<2, float>, Instance<3, float>, Instance<4, float>, Instance<5, float>,
                   Instance<6, float>, Instance<7, float>, Instance<8, float>, Instance<12, float>, Instance<1, double>,
                   Instance<2, double>, Instance<3, double>, Instance<4, double>, Instance<5, double>, Instance<6, double>,
                   Instance<7, double>, Instance<8, double>, Instance<12, double>>;
TYPED_TEST_SUITE(EveryBiquad, Instances);

TYPED_TEST(EveryBiquad, FiltersEachChannelByItsOwnTaps)
{
    constexpr auto C = TypeParam::C;
    using Tap = typename TypeParam::Tap;
    std::array<std::vector<Tap>, C> lists;
    for (std::size_t c = 0; c < C; ++c) {
        lists[c] = taps<Tap>(smoothing);
        lists[c][0] = static_cast<Tap>(0.25 + 0.5 * static_cast<double>(c));
    }
    Biquad<C, Tap> biquad(1);
    biquad.setCoefficients(lists);
    const auto in = impulse<C>(20);
    Buffer<float, C> out(20);
    biquad.process(in, out);
    ASSERT_EQ(out.size(), 20U);
    for (std::size_t c = 0; c < C; ++c) {
        EXPECT_EQ(biquad.coefficients(c), lists[c]);
        for (std::size_t i = 0; i < 20; ++i) {
            const double wanted = (0.25 + 0.5 * static_cast<double>(c)) * std::pow(0.75, static_cast<double>(i));
            EXPECT_NEAR(static_cast<double>(out.channel(c)[i]), wanted, 0x1p-23 * wanted); // rounded once to float
        }
    }
}

TYPED_TEST(EveryBiquad, OneListServesAllChannels)
{
    constexpr auto C = TypeParam::C;
    using Tap = typename TypeParam::Tap;
    Biquad<C, Tap> biquad(2);
    const auto one = taps<Tap>(smoothing);
    auto both = one;
    both.insert(both.end(), one.begin(), one.end());
    biquad.setCoefficients(both);
    const auto in = impulse<C>(20);
    Buffer<float, C> out(20);
    biquad.process(in, out);
    for (std::size_t c = 0; c < C; ++c)
        for (std::size_t i = 0; i < 20; ++i) { // the smoothing twice: 0.0625 * (n + 1) * 0.75^n
            const double wanted = 0.0625 * static_cast<double>(i + 1) * std::pow(0.75, static_cast<double>(i));
            EXPECT_NEAR(static_cast<double>(out.channel(c)[i]), wanted, 0x1p-23 * wanted); // rounded once to float
        }
}

// Noise in blocks of 480, against the sections one after the other in double precision on the same taps.
template <std::size_t C, class Lists>
void expectPrecision(std::uint64_t sections, const Lists& lists)
{
    Biquad<C> biquad(sections);
    biquad.setCoefficients(lists);
    std::mt19937 random(51);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    Buffer<float, C> in(480);
    Buffer<float, C> out(480);
    in.setSize(480);
    std::array<std::vector<std::array<double, 4>>, C> past; // x[n-1], x[n-2], y[n-1], y[n-2] of each section
    past.fill(std::vector<std::array<double, 4>>(sections));
    std::array<double, C> signal{}, error{};
    for (int block = 0; block < 20; ++block) {
        for (std::size_t c = 0; c < C; ++c)
            std::generate_n(in.channel(c), 480, [&] { return level(random); });
        biquad.process(in, out);
        for (std::size_t c = 0; c < C; ++c)
            for (std::size_t i = 0; i < 480; ++i) {
                double v = static_cast<double>(in.channel(c)[i]);
                for (std::size_t s = 0; s < sections; ++s) {
                    const auto tap = [&](std::size_t k) { return static_cast<double>(biquad.coefficients(c)[6 * s + k]); };
                    auto& p = past[c][s];
                    const double y = (tap(0) * v + tap(1) * p[0] + tap(2) * p[1] - tap(4) * p[2] - tap(5) * p[3]) / tap(3);
                    p = {v, p[0], y, p[2]};
                    v = y;
                }
                signal[c] += v * v;
                error[c] += std::pow(static_cast<double>(out.channel(c)[i]) - v, 2);
            }
    }
    for (std::size_t c = 0; c < C; ++c)
        EXPECT_GT(10 * std::log10(signal[c] / error[c]), 120) << "channel " << c;
}

TEST(Biquad, TheLineFiltersSignalToErrorIsAbove120dB)
{
    expectPrecision<12>(2, fdnLineFilters);
}

TEST(Biquad, TheOutputFiltersSignalToErrorIsAbove120dB)
{
    expectPrecision<2>(4, fdnOutputFilter);
}

// One whose poles lie close to the unit circle.
TEST(Biquad, OneDelicateChannelOfTwelveKeepsItsPrecision)
{
    auto lists = fdnLineFilters;
    lists[7] = {0.58315772F, -1.1193596F, 0.53626329F,  1, -1.9905342F, 0.99064332F,
                1.4479772F,  -1.0284984F, 0.031935934F, 1, -1.0284984F, 0.47991312F};
    expectPrecision<12>(2, lists);
}

TEST(Biquad, TwelveChannelsOfOtherSectionCountsRunToo)
{
    std::array<std::vector<float>, 12> lists;
    for (std::size_t c = 0; c < 12; ++c)
        lists[c].assign(fdnLineFilters[c].begin(), fdnLineFilters[c].begin() + 6);
    expectPrecision<12>(1, lists);
}

TEST(Biquad, HistoryCarriesOverFromBlockToBlock)
{
    Biquad<2> biquad(1);
    biquad.setCoefficients(taps<float>(smoothing));
    auto block = impulse<2>(5);
    Buffer<float, 2> out(5);
    biquad.process(block, out);
    block.clear();
    biquad.process(block, out);
    EXPECT_NEAR(static_cast<double>(out.channel(1)[0]), 0.25 * std::pow(0.75, 5), 1e-8);
}

TEST(Biquad, SettingTheSameTapsAgainStartsFromSilence)
{
    Biquad<2> biquad(1);
    biquad.setCoefficients(taps<float>(smoothing));
    auto block = impulse<2>(5);
    Buffer<float, 2> out(5);
    biquad.process(block, out);
    biquad.setCoefficients(taps<float>(smoothing));
    block.clear();
    biquad.process(block, out);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 5; ++i)
            EXPECT_EQ(out.channel(c)[i], 0.0F);
}

TEST(Biquad, ABlockBeyondTheOutputsCapacityFails)
{
    Biquad<2> biquad(1);
    biquad.setCoefficients(taps<float>(smoothing));
    const auto in = impulse<2>(17);
    Buffer<float, 2> out(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { biquad.process(in, out); }), "Biquad: out buffer too small");
    EXPECT_EQ(out.size(), 0U);
}

TEST(Biquad, ABlockOfExactlyTheOutputsCapacityPasses)
{
    Biquad<2> biquad(1);
    biquad.setCoefficients(taps<float>(smoothing));
    const auto in = impulse<2>(16);
    Buffer<float, 2> out(16);
    biquad.process(in, out);
    EXPECT_EQ(out.size(), 16U);
}

TEST(Biquad, RunningBeforeTheTapsAreSetFailsEvenOnAnEmptyBlock)
{
    Biquad<2> biquad(1);
    Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { biquad.process(in, out); }), "Biquad: coefficients not initialized");
    in.setSize(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { biquad.process(in, out); }), "Biquad: coefficients not initialized");
}

TEST(Biquad, TheSizeIsTestedBeforeTheTaps)
{
    Biquad<2> biquad(1);
    const auto in = impulse<2>(17);
    Buffer<float, 2> out(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { biquad.process(in, out); }), "Biquad: out buffer too small");
}

TEST(Biquad, AnEmptyBlockIsTheKernelsSizeError)
{
    Biquad<2> biquad(1);
    biquad.setCoefficients(taps<float>(smoothing));
    const Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    out.setSize(7);
    EXPECT_EQ(failureStatus([&] { biquad.process(in, out); }), -6);
    EXPECT_EQ(out.size(), 7U);
}

TEST(Biquad, TapsForAnotherSectionCountFail)
{
    Biquad<2> biquad(2);
    const auto five = std::vector<float>(5, 1.0F);
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(taps<float>(smoothing)); }), -25);
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(std::vector<float>{}); }), -25);
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(std::vector<float>(11, 1.0F)); }), -25);
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(std::vector<float>(13, 1.0F)); }), -25);
}

TEST(Biquad, NoSectionsCannotBeBuilt)
{
    EXPECT_EQ(failureStatus([] { Biquad<2>(0); }), -25);
}

TEST(Biquad, AZeroLeadingTapIsTheKernelsDivisionByZero)
{
    Biquad<1> biquad(1);
    auto zero = taps<float>(smoothing);
    zero[3] = 0.0F;
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(zero); }), -10);
    zero = taps<float>(smoothing);
    zero[0] = 0.0F;
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(zero); }), -10);
}

TEST(Biquad, AListThatFailsOnChannelOneLeavesChannelZeroSet)
{
    Biquad<2> biquad(1);
    const std::array<std::vector<float>, 2> half = {taps<float>(smoothing), std::vector<float>(5, 1.0F)};
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(half); }), -25);
    EXPECT_EQ(biquad.coefficients(0), half[0]);
    EXPECT_TRUE(biquad.coefficients(1).empty());
    const auto in = impulse<2>(16);
    Buffer<float, 2> out(16);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { biquad.process(in, out); }), "Biquad: coefficients not initialized");
}

TEST(Biquad, AListThatFailsOnChannelOneLeavesAnInitialisedBiquadRunning)
{
    Biquad<2> biquad(1);
    biquad.setCoefficients(taps<float>(smoothing));
    const std::array<std::vector<float>, 2> half = {taps<float>(doubled), std::vector<float>(5, 1.0F)};
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(half); }), -25);
    const auto in = impulse<2>(16);
    Buffer<float, 2> out(16);
    biquad.process(in, out);
    EXPECT_EQ(out.channel(0)[0], 0.5F);
    EXPECT_EQ(out.channel(1)[0], 0.25F);
}

// Channels 0 to 4 start anew, those from 5 on go on with what they remember.
TEST(Biquad, AListThatFailsLeavesTheHistoriesThatItDidNotReach)
{
    Biquad<12> biquad(2);
    std::vector<float> both = taps<float>(smoothing);
    both.insert(both.end(), {1, 0, 0, 1, 0, 0});
    biquad.setCoefficients(both);
    auto block = impulse<12>(5);
    Buffer<float, 12> out(5);
    biquad.process(block, out);
    std::array<std::vector<float>, 12> lists;
    lists.fill(both);
    lists[5].pop_back();
    EXPECT_EQ(failureStatus([&] { biquad.setCoefficients(lists); }), -25);
    block.clear();
    biquad.process(block, out);
    for (std::size_t c = 0; c < 12; ++c)
        EXPECT_NEAR(static_cast<double>(out.channel(c)[0]), c < 5 ? 0.0 : 0.25 * std::pow(0.75, 5), 1e-8) << "channel " << c;
}

TEST(Biquad, AMovedBiquadRunsOnWithItsHistory)
{
    static_assert(std::is_nothrow_move_constructible_v<Biquad<2>> && std::is_nothrow_move_assignable_v<Biquad<2>>);
    static_assert(!std::is_copy_constructible_v<Biquad<2>> && !std::is_copy_assignable_v<Biquad<2>>);
    Biquad<2> first(1);
    first.setCoefficients(taps<float>(smoothing));
    auto block = impulse<2>(5);
    Buffer<float, 2> out(5);
    first.process(block, out);
    Biquad<2> second(std::move(first));
    block.clear();
    second.process(block, out);
    EXPECT_NEAR(static_cast<double>(out.channel(1)[0]), 0.25 * std::pow(0.75, 5), 1e-8);
    EXPECT_EQ(failureStatus([&] { first.process(block, out); }), -8); // NOLINT(bugprone-use-after-move): that is the test
}

} // namespace
} // namespace quorel

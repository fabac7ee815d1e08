// SPDX-License-Identifier: MIT
#include "microphone/band_sum.h"

#include "microphone/microphone_tables.h"
#include "tests/microphone/cases.h"

#include <cmath>
#include <random>

namespace quorel {
namespace {

using Widths = std::span<const std::uint64_t>;

TEST(BandSum, EveryBandOfAnEvenSpectrumIsThatSpectrumsValue)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        const auto in = constantBands<N>(row.fftLength, 1.0F);
        SpectrumBuffer<N> out(gainBandCount);
        BandSum<N> sum(row.gainWidths, true);
        sum.process(in, out);
        EXPECT_EQ(out.size(), gainBandCount);
        for (std::size_t c = 0; c < N; ++c)
            for (std::size_t j = 0; j < gainBandCount; ++j) {
                // The reciprocal of a width is rounded, and so is its product with the width.
                EXPECT_NEAR(out.channel(c)[j].real(), 1.0F, 1.2e-7F);
                EXPECT_EQ(out.channel(c)[j].imag(), 0.0F);
            }
    });
}

TEST(BandSum, OppositePhasesOfNeighbouringBinsCancel)
{
    const MicrophoneRateRow& row = *microphoneRate(16000);
    auto in = constantBands<1>(row.fftLength, 0.0F);
    in.channel(0)[2] = 1.0F;
    in.channel(0)[3] = -1.0F;
    SpectrumBuffer<1> out(gainBandCount);
    BandSum<1> sum(row.gainWidths, true);
    sum.process(in, out);
    EXPECT_EQ(out.channel(0)[1], Complex(0.0F, 0.0F));
    in.channel(0)[3] = 1.0F;
    sum.process(in, out);
    EXPECT_EQ(out.channel(0)[1], Complex(1.0F, 0.0F));
}

TEST(BandSum, TheTenthLevelBandAt16000StaysZero)
{
    // Required: it has no bins, and stands last.
    const MicrophoneRateRow& row = *microphoneRate(16000);
    forChannelCounts([&]<std::size_t N>() {
        BandSum<N> sum(row.levelWidths, true);
        SpectrumBuffer<N> out(levelBandCount);
        for (const float value : {1.0F, -3.0F, 1e6F}) {
            out.channel(N - 1)[9] = 5.0F;
            sum.process(constantBands<N>(row.fftLength, value), out);
            for (std::size_t c = 0; c < N; ++c)
                EXPECT_EQ(out.channel(c)[9], Complex(0.0F, 0.0F));
        }
    });
}

TEST(BandSum, ABandWithoutBinsInTheMiddleShiftsTheBandsBehindIt)
{
    // Required: no sum is written for a width of 0, so the next one takes its place.
    const std::array<std::uint64_t, 3> widths = {1, 0, 1};
    BandSum<1> sum(widths, false);
    SpectrumBuffer<1> in(4);
    in.channel(0)[0] = 2.0F;
    in.channel(0)[1] = 3.0F;
    in.setSize(4);
    SpectrumBuffer<1> out(3);
    sum.process(in, out);
    EXPECT_EQ(out.channel(0)[0], Complex(2.0F, 0.0F));
    EXPECT_EQ(out.channel(0)[1], Complex(3.0F, 0.0F));
    EXPECT_EQ(out.channel(0)[2], Complex(0.0F, 0.0F));
}

TEST(BandSum, WithoutNormalisingTheSumsThemselvesComeOut)
{
    const std::array<std::uint64_t, 2> widths = {2, 3};
    BandSum<1> sum(widths, false);
    SpectrumBuffer<1> out(2);
    sum.process(constantBands<1>(10, Complex(1.0F, 2.0F)), out);
    EXPECT_EQ(out.channel(0)[0], Complex(2.0F, 4.0F));
    EXPECT_EQ(out.channel(0)[1], Complex(3.0F, 6.0F));
}

TEST(BandSum, RandomSpectraGiveTheMeansInDoublePrecisionFrameByFrame)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        for (const Widths widths : {Widths(row.gainWidths), Widths(row.levelWidths)}) {
            constexpr std::uint64_t frames = 3;
            std::mt19937 random(3);
            std::normal_distribution<float> normal;
            SpectrumBuffer<N> in(frames * row.fftLength + 17);
            for (std::size_t c = 0; c < N; ++c)
                for (std::uint64_t k = 0; k < in.capacity(); ++k)
                    in.channel(c)[k] = {normal(random), normal(random)};
            in.setSize(frames * row.fftLength + 17); // what is left stays unread
            SpectrumBuffer<N> out(frames * widths.size());
            BandSum<N> sum(widths, true);
            sum.process(in, out);
            EXPECT_EQ(out.size(), frames * widths.size());
            for (std::size_t c = 0; c < N; ++c) {
                for (std::uint64_t f = 0; f < frames; ++f) {
                    const Complex* x = in.channel(c) + f * row.fftLength;
                    for (std::size_t j = 0; j < widths.size(); ++j) {
                        std::complex<double> mean = 0.0;
                        for (std::uint64_t k = 0; k < widths[j]; ++k)
                            mean += std::complex<double>(*x++);
                        if (widths[j] != 0)
                            mean /= static_cast<double>(widths[j]);
                        // Three roundings of 2^-24: the sum, the reciprocal, the product.
                        const auto heard = std::complex<double>(out.channel(c)[f * widths.size() + j]);
                        EXPECT_LE(std::abs(heard - mean), 3.0 * 0x1p-24 * std::abs(mean) + 1e-12) << "band " << j;
                    }
                }
            }
        }
    });
}

TEST(BandSum, NoSpectrumEmptiesTheOutput)
{
    const MicrophoneRateRow& row = *microphoneRate(48000);
    BandSum<2> sum(row.gainWidths, true);
    auto in = constantBands<2>(row.fftLength, 1.0F);
    in.setSize(1023);
    SpectrumBuffer<2> out(gainBandCount);
    out.setSize(4);
    sum.process(in, out);
    EXPECT_EQ(out.size(), 0U);
}

TEST(BandSum, BandValuesBeyondTheOutputsCapacityFail)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        BandSum<N> sum(row.gainWidths, true);
        const auto in = constantBands<N>(row.fftLength, 1.0F, 2);
        SpectrumBuffer<N> out(gainBandCount);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { sum.process(in, out); }), "BandSum: out buffer too small");
    });
}

} // namespace
} // namespace quorel

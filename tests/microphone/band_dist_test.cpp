// SPDX-License-Identifier: MIT
#include "microphone/band_dist.h"

#include "microphone/microphone_tables.h"
#include "tests/microphone/cases.h"

#include <random>

namespace quorel {
namespace {

TEST(BandDist, OnesInEveryBandAreOnesInEveryBinButTheOneAtHalfTheRate)
{
    // Required: that bin is cut whatever the last band's gain.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        BandDist<N> dist(row.gainWidths);
        SpectrumBuffer<N> out(row.fftLength);
        dist.process(constantBands<N>(gainBandCount, 1.0F), out);
        EXPECT_EQ(out.size(), row.fftLength);
        for (std::size_t c = 0; c < N; ++c)
            for (std::uint64_t k = 0; k < row.fftLength; ++k)
                EXPECT_EQ(out.channel(c)[k], k == row.fftLength / 2 ? Complex(0.0F) : Complex(1.0F)) << "bin " << k;
    });
}

TEST(BandDist, RealValuesScaleTheLowerHalfAsTheWholeProductDoes)
{
    // Multiplied by a real value a part is rounded once, whichever way.
    for (const std::uint32_t rate : bothRates) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        SpectrumBuffer<1> values(gainBandCount);
        SpectrumBuffer<1> whole(row.fftLength);
        std::vector<Complex> bins(row.fftLength);
        std::mt19937 random(9);
        std::normal_distribution<float> normal;
        for (std::uint64_t j = 0; j < gainBandCount; ++j)
            values.channel(0)[j] = normal(random);
        for (Complex& bin : bins)
            bin = {normal(random), normal(random)};
        values.setSize(gainBandCount);
        const std::vector<Complex> before = bins;
        BandDist<1> dist(row.gainWidths);
        dist.process(values, whole);
        dist.scaleLowerHalf(values.channel(0), bins.data());
        for (std::uint64_t k = 0; k <= row.fftLength / 2; ++k) {
            EXPECT_EQ(bins[k].real(), before[k].real() * whole.channel(0)[k].real()) << "bin " << k;
            EXPECT_EQ(bins[k].imag(), before[k].imag() * whole.channel(0)[k].real()) << "bin " << k;
        }
        for (std::uint64_t k = row.fftLength / 2 + 1; k < row.fftLength; ++k)
            EXPECT_EQ(bins[k], before[k]) << "bin " << k;
    }
}

TEST(BandDist, EachBinHoldsItsBandsValueAndItsMirrorImageTheConjugate)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        constexpr std::uint64_t frames = 2;
        std::mt19937 random(9);
        std::normal_distribution<float> normal;
        SpectrumBuffer<N> in(frames * gainBandCount);
        for (std::size_t c = 0; c < N; ++c)
            for (std::uint64_t j = 0; j < frames * gainBandCount; ++j)
                in.channel(c)[j] = {normal(random), normal(random)};
        in.setSize(frames * gainBandCount + 3); // what is left stays unread
        SpectrumBuffer<N> out(frames * row.fftLength);
        BandDist<N> dist(row.gainWidths);
        dist.process(in, out);
        EXPECT_EQ(out.size(), frames * row.fftLength);
        for (std::size_t c = 0; c < N; ++c) {
            for (std::uint64_t f = 0; f < frames; ++f) {
                const Complex* bins = out.channel(c) + f * row.fftLength;
                std::uint64_t k = 0;
                for (std::size_t j = 0; j < gainBandCount; ++j) {
                    const Complex value = in.channel(c)[f * gainBandCount + j];
                    for (std::uint64_t i = 0; i < row.gainWidths[j]; ++i, ++k) {
                        EXPECT_EQ(bins[k], value) << "bin " << k;
                        if (k != 0) {
                            EXPECT_EQ(bins[row.fftLength - k], std::conj(value)) << "bin " << k;
                        }
                    }
                }
                EXPECT_EQ(k, row.fftLength / 2);
                EXPECT_EQ(bins[k], Complex(0.0F));
            }
        }
    });
}

TEST(BandDist, NoFrameEmptiesTheOutput)
{
    BandDist<1> dist(microphoneRate(16000)->gainWidths);
    auto in = constantBands<1>(gainBandCount, 1.0F);
    in.setSize(15);
    SpectrumBuffer<1> out(512);
    out.setSize(512);
    dist.process(in, out);
    EXPECT_EQ(out.size(), 0U);
}

TEST(BandDist, SpectraBeyondTheOutputsCapacityFail)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const MicrophoneRateRow& row = *microphoneRate(rate);
        BandDist<N> dist(row.gainWidths);
        const auto in = constantBands<N>(gainBandCount, 1.0F, 2);
        SpectrumBuffer<N> out(2 * row.fftLength - 8);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { dist.process(in, out); }), "BandDist: out buffer too small");
    });
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
#include "microphone/filter_bank.h"

#include "microphone/microphone_tables.h"
#include "microphone/window_tables.h"
#include "tests/microphone/cases.h"
#include "tests/support/noise.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <random>

namespace quorel {
namespace {

struct Shape {
    std::uint64_t fftLength;
    std::uint64_t hop;
    std::uint64_t latency; // samples
    std::span<const float> analysis;
    std::span<const float> synthesis;
};

Shape shapeOf(std::uint32_t rate)
{
    if (rate == 16000)
        return {512, 80, 431, analysisWindow16000, synthesisWindow16000};
    return {1024, 240, 782, analysisWindow48000, synthesisWindow48000};
}

template <std::size_t N>
struct Pair {
    explicit Pair(const Shape& shape)
        : shape(shape),
          analysis(shape.fftLength, shape.hop, shape.analysis),
          synthesis(shape.fftLength, shape.hop, shape.synthesis),
          frame(shape.hop),
          spectrum(shape.fftLength)
    {
    }

    // Each row, a whole number of hops, through both banks.
    std::vector<std::vector<float>> run(const std::vector<std::vector<float>>& rows)
    {
        std::vector<std::vector<float>> result(N);
        for (std::size_t i = 0; i < rows[0].size(); i += shape.hop) {
            for (std::size_t c = 0; c < N; ++c)
                std::copy_n(rows[c].begin() + static_cast<std::ptrdiff_t>(i), shape.hop, frame.channel(c));
            frame.setSize(shape.hop);
            analysis.process(frame, spectrum);
            synthesis.process(spectrum, frame);
            EXPECT_EQ(frame.size(), shape.hop);
            for (std::size_t c = 0; c < N; ++c)
                result[c].insert(result[c].end(), frame.channel(c), frame.channel(c) + shape.hop);
        }
        return result;
    }

    Shape shape;
    FilterBank<N> analysis;
    InverseFilterBank<N> synthesis;
    Buffer<float, N> frame;
    SpectrumBuffer<N> spectrum;
};

// The response to a unit impulse at sample `position`, whole hops long enough for all of it.
std::vector<float> response(const Shape& shape, std::uint64_t position)
{
    std::vector<float> samples(shape.hop * 16);
    samples[position] = 1.0F;
    return Pair<1>(shape).run({samples})[0];
}

TEST(FilterBank, AnImpulseComesOut431SamplesLateAt16000And782At48000)
{
    for (const std::uint32_t rate : bothRates) {
        const Shape shape = shapeOf(rate);
        std::uint64_t close = 0;
        for (std::uint64_t position = 0; position < shape.hop; ++position) {
            const std::vector<float> y = response(shape, position);
            for (std::uint64_t i = 0; i < y.size(); ++i) {
                if (i == position + shape.latency) {
                    EXPECT_NEAR(y[i], 1.0F, rate == 16000 ? 1e-5F : 1e-2F) << rate << " Hz, sample " << position;
                    close += std::abs(y[i] - 1.0F) <= 1e-3F;
                } else {
                    // A transform's roundings, its error spread over all bins.
                    ASSERT_NEAR(y[i], 0.0F, 1e-6F) << rate << " Hz, sample " << position << " at " << i;
                }
            }
        }
        EXPECT_GT(close, shape.hop / 2); // most positions within 0.1 percent
    }
}

TEST(FilterBank, EveryChannelComesOutAsItWentInAndLate)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const Shape shape = shapeOf(rate);
        std::vector<std::vector<float>> rows(N);
        for (std::size_t c = 0; c < N; ++c)
            rows[c] = normalNoise(shape.hop * 20, 0.1F, static_cast<unsigned>(c + 1));
        const auto out = Pair<N>(shape).run(rows);
        for (std::size_t c = 0; c < N; ++c)
            for (std::uint64_t i = shape.latency; i < rows[c].size(); ++i)
                EXPECT_NEAR(out[c][i], rows[c][i - shape.latency], rate == 16000 ? 1e-5F : 1e-2F) << "channel " << c;
    });
}

TEST(FilterBank, TheTransparencyErrorRepeatsWithTheHop)
{
    for (const std::uint32_t rate : bothRates) {
        const Shape shape = shapeOf(rate);
        for (const std::uint64_t position : {0U, 17U, 79U}) {
            const float once = response(shape, position)[position + shape.latency];
            const float later = response(shape, position + 3 * shape.hop)[position + 3 * shape.hop + shape.latency];
            EXPECT_EQ(once, later) << rate;
        }
    }
}

TEST(FilterBank, ZerosBehindAnImpulseTakeItThroughAllWindowPositionsAndOut)
{
    for (const std::uint32_t rate : bothRates) {
        const Shape shape = shapeOf(rate);
        FilterBank<1> bank(shape.fftLength, shape.hop, shape.analysis);
        Buffer<float, 1> frame(shape.hop);
        SpectrumBuffer<1> spectrum(shape.fftLength);
        frame.setSize(shape.hop);
        frame.channel(0)[10] = 1.0F;
        for (std::uint64_t age = shape.hop - 11;; age += shape.hop) { // samples between the impulse and the newest
            bank.process(frame, spectrum);
            frame.clear();
            if (age >= shape.analysis.size()) {
                for (std::uint64_t k = 0; k < shape.fftLength; ++k)
                    EXPECT_EQ(spectrum.channel(0)[k], Complex(0.0F)) << "bin " << k;
                break;
            }
            // Every bin has the magnitude of the window's entry there; bin 0 is that entry.
            EXPECT_FLOAT_EQ(spectrum.channel(0)[0].real(), shape.analysis[age]) << age;
            EXPECT_EQ(spectrum.channel(0)[0].imag(), 0.0F);
            EXPECT_NEAR(std::abs(spectrum.channel(0)[7]), shape.analysis[age], 1e-6F * shape.analysis[age]);
        }
    }
}

TEST(FilterBank, SpectraAreThoseOfTheFormulaInDoublePrecision)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const Shape shape = shapeOf(rate);
        std::vector<float> window(shape.analysis.begin(), shape.analysis.end());
        for (std::size_t m = 0; m < window.size(); ++m) // a lopsided window tells the directions of time apart
            window[m] *= 1.0F + 0.001F * static_cast<float>(m);
        const auto length = window.size();
        constexpr std::uint64_t frames = 2; // in one call
        FilterBank<N> bank(shape.fftLength, shape.hop, window);
        Buffer<float, N> in(frames * shape.hop + 5);
        SpectrumBuffer<N> out(frames * shape.fftLength);
        std::vector<std::vector<float>> rows(N);
        for (int call = 0; call < 6; ++call) {
            for (std::size_t c = 0; c < N; ++c) {
                const auto fresh =
                    normalNoise(frames * shape.hop, 0.1F, static_cast<unsigned>(100 * call) + static_cast<unsigned>(c));
                rows[c].insert(rows[c].end(), fresh.begin(), fresh.end());
                std::copy(fresh.begin(), fresh.end(), in.channel(c));
            }
            in.setSize(frames * shape.hop + 5); // what is left stays unread
            bank.process(in, out);
            ASSERT_EQ(out.size(), frames * shape.fftLength);
        }
        const double turn = 2.0 * std::numbers::pi / static_cast<double>(shape.fftLength);
        const auto half = static_cast<std::int64_t>((length - 1) / 2);
        for (std::size_t c = 0; c < N; c += 3) {
            for (std::uint64_t f = 0; f < frames; ++f) {
                const std::uint64_t newest = rows[c].size() - 1 - (frames - 1 - f) * shape.hop;
                double energy = 0.0;
                for (std::uint64_t m = 0; m < length; ++m)
                    energy += std::pow(double{window[m]} * double{rows[c][newest - m]}, 2.0);
                for (std::uint64_t k = 0; k < shape.fftLength; k += 13) {
                    std::complex<double> x = 0.0;
                    for (std::uint64_t m = 0; m < length; ++m)
                        x += double{window[m]} * double{rows[c][newest - m]} *
                             std::polar(1.0, -turn * static_cast<double>(static_cast<std::int64_t>(k) *
                                                                         (half - static_cast<std::int64_t>(m))));
                    // Ten passes of a transform add roundings of 2^-24 of the spectrum's root mean square each.
                    const auto heard = std::complex<double>(out.channel(c)[f * shape.fftLength + k]);
                    EXPECT_LE(std::abs(heard - x), 10 * 0x1p-24 * 4.0 * std::sqrt(energy)) << "bin " << k;
                }
            }
        }
    });
}

TEST(FilterBank, FramesAreThoseOfTheFormulaForSpectraWithoutSymmetryToo)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const Shape shape = shapeOf(rate);
        const auto length = shape.synthesis.size();
        constexpr std::uint64_t calls = 6;
        InverseFilterBank<N> bank(shape.fftLength, shape.hop, shape.synthesis);
        SpectrumBuffer<N> in(shape.fftLength + 5);
        Buffer<float, N> out(shape.hop);
        std::mt19937 random(rate + N);
        std::normal_distribution<float> normal;
        const double turn = 2.0 * std::numbers::pi / static_cast<double>(shape.fftLength);
        const auto centre = static_cast<std::int64_t>(length / 2);
        std::vector<double> expected(calls * shape.hop + length);
        for (std::uint64_t call = 0; call < calls; ++call) {
            for (std::size_t c = 0; c < N; ++c) // sparse spectra keep the oracle quick
                for (std::uint64_t k = 0; k < shape.fftLength; ++k)
                    in.channel(c)[k] = k % 37 < 2 ? Complex(normal(random), normal(random)) : Complex(0.0F);
            in.setSize(shape.fftLength + 5); // what is left stays unread
            bank.process(in, out);
            ASSERT_EQ(out.size(), shape.hop);
            const Complex* x = in.channel(N - 1);
            for (std::uint64_t m = 0; m < length; ++m) {
                double sum = 0.0;
                for (std::uint64_t k = 0; k < shape.fftLength; ++k)
                    if (x[k] != Complex(0.0F)) {
                        const double angle =
                            turn * static_cast<double>(static_cast<std::int64_t>(k) * (static_cast<std::int64_t>(m) - centre));
                        sum += double{x[k].real()} * std::cos(angle) - double{x[k].imag()} * std::sin(angle);
                    }
                expected[call * shape.hop + m] += double{shape.synthesis[m]} * sum;
            }
            for (std::uint64_t i = 0; i < shape.hop; ++i)
                // The spectra hold about 60 values of unit deviation; their sums lie below 40. Ten passes, six overlaps.
                ASSERT_NEAR(out.channel(N - 1)[i], expected[call * shape.hop + i], 40.0 * 16 * 0x1p-24) << call << ' ' << i;
        }
    });
}

TEST(FilterBank, LessThanAHopRunsNoTransform)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const Shape shape = shapeOf(rate);
        FilterBank<N> bank(shape.fftLength, shape.hop, shape.analysis);
        Buffer<float, N> in(shape.hop);
        SpectrumBuffer<N> out(shape.fftLength);
        out.channel(0)[0] = 7.0F;
        in.setSize(shape.hop - 1);
        out.setSize(9);
        bank.process(in, out);
        EXPECT_EQ(out.size(), 0U);
        EXPECT_EQ(out.channel(0)[0], Complex(7.0F));
    });
}

TEST(FilterBank, TwoHopsForOneSpectrumsRoomFail)
{
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const Shape shape = shapeOf(rate);
        FilterBank<N> bank(shape.fftLength, shape.hop, shape.analysis);
        Buffer<float, N> in(2 * shape.hop);
        SpectrumBuffer<N> out(shape.fftLength);
        ASSERT_EQ(out.capacity(), shape.fftLength);
        in.setSize(2 * shape.hop);
        EXPECT_EQ(failureText<std::invalid_argument>([&] { bank.process(in, out); }),
                  "FilterBank: Size mismatch. Too many frames provided fopr output size");
    });
}

TEST(FilterBank, TheLowerHalfIsThatOfTheWholeSpectrum)
{
    // Bit for bit both ways: what is left out is the other half of the same spectrum.
    forRatesAndChannelCounts([]<std::size_t N>(std::uint32_t rate) {
        const Shape shape = shapeOf(rate);
        Pair<N> whole(shape);
        Pair<N> half(shape);
        std::vector<Complex> bins(shape.fftLength / 2 + 1);
        std::vector<float> out(shape.hop);
        whole.frame.setSize(shape.hop);
        for (unsigned f = 0; f < 8; ++f) {
            std::vector<std::vector<float>> in;
            for (std::size_t c = 0; c < N; ++c) {
                in.push_back(normalNoise(shape.hop, 0.1F, f * 8 + static_cast<unsigned>(c)));
                std::copy(in[c].begin(), in[c].end(), whole.frame.channel(c));
            }
            whole.analysis.process(whole.frame, whole.spectrum);
            whole.synthesis.process(whole.spectrum, whole.frame);
            for (std::size_t c = 0; c < N; ++c) {
                half.analysis.lowerHalf(c, in[c].data(), bins.data());
                for (std::size_t k = 0; k < bins.size(); ++k)
                    ASSERT_EQ(bins[k], whole.spectrum.channel(c)[k]) << "bin " << k;
                bins.front().imag(5.0F); // unread
                bins.back().imag(5.0F);
                half.synthesis.fromLowerHalf(c, bins.data(), out.data());
                for (std::uint64_t i = 0; i < shape.hop; ++i)
                    ASSERT_EQ(out[i], whole.frame.channel(c)[i]) << "sample " << i;
            }
        }
    });
}

TEST(FilterBank, ALengthThatIsNoPowerOfTwoFailsWithTheFirstFrame)
{
    const std::vector<float> window(401, 0.01F);
    FilterBank<1> analysis(500, 80, window);
    InverseFilterBank<1> synthesis(500, 80, window);
    Buffer<float, 1> frame(80);
    SpectrumBuffer<1> spectrum(500);
    frame.setSize(80);
    spectrum.setSize(500);
    EXPECT_EQ(failureText<ipps::Error>([&] { analysis.process(frame, spectrum); }), "ippStsSizeErr");
    EXPECT_EQ(failureText<ipps::Error>([&] { synthesis.process(spectrum, frame); }), "ippStsSizeErr");
}

TEST(FilterBank, MovedBanksCarryTheStreamOn)
{
    for (const std::uint32_t rate : bothRates) {
        const Shape shape = shapeOf(rate);
        const std::vector<float> x = normalNoise(shape.hop * 8, 0.1F, 3);
        const std::vector<float> front(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(4 * shape.hop));
        const std::vector<float> back(x.begin() + static_cast<std::ptrdiff_t>(4 * shape.hop), x.end());
        std::vector<float> expected = Pair<1>(shape).run({x})[0];
        Pair<1> first(shape);
        std::vector<float> y = first.run({front})[0];
        Pair<1> second(std::move(first));
        const std::vector<float> rest = second.run({back})[0];
        y.insert(y.end(), rest.begin(), rest.end());
        EXPECT_EQ(y, expected);
        EXPECT_THROW(first.run({front}), std::exception);
    }
}

TEST(FilterBank, WhatIsNotFiniteLeavesWithTheHistoryAndTheTail)
{
    for (const std::uint32_t rate : bothRates) {
        const Shape shape = shapeOf(rate);
        for (const float bad : {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()}) {
            const std::vector<float> x = normalNoise(shape.hop * 24, 0.1F, 3);
            std::vector<float> spoilt = x;
            const std::uint64_t position = 2 * shape.hop + 3;
            spoilt[position] = bad;
            const std::vector<float> expected = Pair<1>(shape).run({x})[0];
            const std::vector<float> y = Pair<1>(shape).run({spoilt})[0];
            // Before the frame that holds it nothing has happened; that frame's samples are the first to be spoilt. The last
            // spoilt spectrum is the last with the sample in the history, and its tail is a synthesis window long.
            const std::uint64_t last =
                (position + shape.analysis.size()) / shape.hop * shape.hop - shape.hop; // its frame starts here
            for (std::uint64_t i = 0; i < 2 * shape.hop; ++i)
                EXPECT_EQ(y[i], expected[i]);
            EXPECT_FALSE(std::isfinite(y[2 * shape.hop]));
            ASSERT_LT(last + shape.synthesis.size(), x.size());
            for (std::uint64_t i = last + shape.synthesis.size(); i < x.size(); ++i)
                EXPECT_EQ(y[i], expected[i]) << i;
        }
    }
}

} // namespace
} // namespace quorel

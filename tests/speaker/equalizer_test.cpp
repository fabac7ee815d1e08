// SPDX-License-Identifier: MIT
#include "core/buffer.h"
#include "speaker/equalizer.h"
#include "speaker/equalizer_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdlib>
#include <new>
#include <random>
#include <string>

namespace {

std::size_t allocations = 0; // every operator new of this program counts

} // namespace

[[gnu::noinline]] void* operator new(std::size_t bytes)
{
    ++allocations;
    if (void* block = std::malloc(bytes > 0 ? bytes : 1))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* block) noexcept
{
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept
{
    std::free(block);
}

namespace quorel {
namespace {

// The matrix as the equaliser is given it.
// clang-format off
constexpr double given[9][9] = {
{1.12526229, -0.388185238, 0.0475613812, -0.00738471774, 0.000922272684, -0.000137198557, 1.73576469e-05, -2.29871307e-06, 1.81745703e-07},
{-0.388195758, 1.2591701, -0.404557335, 0.0500949358, -0.00769319817, 0.000965349991, -0.00014031799, 1.66853374e-05, -1.40366894e-06},
{0.0475621426, -0.404599234, 1.26113057, -0.404721574, 0.0500743247, -0.00765863483, 0.000947729213, -0.000127725192, 9.99985441e-06},
{-0.00738612784, 0.0500984041, -0.404889264, 1.26097856, -0.404135165, 0.0498354894, -0.00749485544, 0.000868485557, -7.41906467e-05},
{0.000922377628, -0.00769888079, 0.0500882942, -0.404806546, 1.26017595, -0.401759082, 0.048858562, -0.00680121525, 0.000523035722},
{-0.000137539091, 0.000965917557, -0.00768162695, 0.0498928615, -0.404454653, 1.25694194, -0.392159625, 0.044669166, -0.00390729033},
{1.74240508e-05, -0.00014177593, 0.000950536478, -0.00759077136, 0.0491121509, -0.403101549, 1.24372598, -0.352206928, 0.0267459359},
{-2.41948452e-06, 1.71617434e-05, -0.000134935888, 0.000888870837, -0.00725673495, 0.0460944785, -0.39907282, 1.18733973, -0.193291259},
{2.58071195e-07, -2.17847069e-06, 1.39868538e-05, -0.000117575391, 0.000713846599, -0.00646601958, 0.037435079, -0.411901926, 1.06996661},
};
// clang-format on

using Gains = Equalizer::Gains;

Equalizer made()
{
    return {equalizerInteraction(), equalizerCentres, equalizerQ, equalizerSampleRate, equalizerShelfFactor};
}

// What the equaliser should do, computed on its own: the decibels of each band by the transposed matrix, and each section's
// response straight from the formulas of the peak and the shelves at e^(jw).
class ClosedForm {
public:
    explicit ClosedForm(const Gains& gains, bool transposed = true)
    {
        Gains sorted = gains;
        std::sort(sorted.begin(), sorted.end());
        for (std::size_t band = 0; band < 9; ++band) {
            double corrected = 0;
            for (std::size_t other = 0; other < 9; ++other)
                corrected += (transposed ? given[other][band] : given[band][other]) * (gains[other] - sorted[4]);
            decibels[band] = sorted[4] + corrected;
        }
    }

    double operator()(double frequency) const
    {
        const std::complex<double> z1 = std::polar(1.0, -2 * std::numbers::pi * frequency / 48000); // z^-1
        std::complex<double> response = 1;
        for (std::size_t band = 0; band < 9; ++band) {
            const double centre = band == 0 ? 63 * 1.5 : band == 8 ? 16000 / 1.5 : 62.5 * std::pow(2.0, band);
            const double w0 = 2 * std::numbers::pi * (band == 1 ? 125 : centre) / 48000;
            const double A = std::exp(decibels[band] / 40 * std::log(10.0));
            const double cosine = std::cos(w0), alpha = std::sin(w0 / 1.9);
            if (band > 0 && band < 8) {
                response *= (1 + alpha * A - 2 * cosine * z1 + (1 - alpha * A) * z1 * z1) /
                            (1 + alpha / A - 2 * cosine * z1 + (1 - alpha / A) * z1 * z1);
            } else {
                const double s = band == 0 ? -1 : 1, t = 2 * std::sqrt(A) * alpha;
                const auto top = (A + 1 + s * (A - 1) * cosine + t) - 2 * s * (A - 1 + s * (A + 1) * cosine) * z1 +
                                 (A + 1 + s * (A - 1) * cosine - t) * z1 * z1;
                const auto bottom = (A + 1 - s * (A - 1) * cosine + t) + 2 * s * (A - 1 - s * (A + 1) * cosine) * z1 +
                                    (A + 1 - s * (A - 1) * cosine - t) * z1 * z1;
                response *= A * top / bottom;
            }
        }
        return 20 * std::log10(std::abs(response));
    }

private:
    std::array<double, 9> decibels{};
};

// The response of a channel in dB, from what an impulse leaves in 16384 samples: by then the slowest pole of all gains tried
// here has fallen below 1e-20.
class Measured {
public:
    Measured(Equalizer& equalizer, std::size_t channel)
    {
        Buffer<float, 2> in(512);
        Buffer<float, 2> out(512);
        in.setSize(512);
        in.channel(channel)[0] = 1.0F;
        for (int block = 0; block < 32; ++block) {
            equalizer.process(in, out);
            in.clear();
            h.insert(h.end(), out.channel(channel), out.channel(channel) + 512);
        }
    }

    double operator()(double frequency) const
    {
        std::complex<double> sum = 0, turn = 1;
        const auto step = std::polar(1.0, -2 * std::numbers::pi * frequency / 48000);
        for (const float tap : h) {
            sum += static_cast<double>(tap) * turn;
            turn *= step;
        }
        return 20 * std::log10(std::abs(sum));
    }

    std::vector<float> h;
};

constexpr double frequencies[] = {5,    20,   40,   63,   94.5, 125,  180,   250,   350,   500,   700,  1000,
                                  1400, 2000, 2800, 4000, 5600, 8000, 10667, 12000, 14000, 16000, 20000};

TEST(Equalizer, RandomGainsHaveTheClosedFormToAHundredthOfADecibel)
{
    std::mt19937 random(41);
    std::uniform_real_distribution<double> gain(-12.0, 12.0);
    auto equalizer = made();
    for (int trial = 0; trial < 20; ++trial) {
        Gains gains{};
        std::generate(gains.begin(), gains.end(), [&] { return gain(random); });
        equalizer.design(gains);
        const Measured measured(equalizer, static_cast<std::size_t>(trial % 2));
        const ClosedForm wanted(gains);
        for (const double frequency : frequencies)
            EXPECT_NEAR(measured(frequency), wanted(frequency), 0.01) << "at " << frequency << " Hz, trial " << trial;
    }
}

// Both ways give plausible curves: only numbers tell them apart.
TEST(Equalizer, TheGivenMatrixIsUsedTransposed)
{
    const Gains gains = {12, -12, 12, -12, 12, -12, 12, -12, 12};
    auto equalizer = made();
    equalizer.design(gains);
    const Measured measured(equalizer, 0);
    double apart = 0;
    for (const double frequency : frequencies) {
        EXPECT_NEAR(measured(frequency), ClosedForm(gains)(frequency), 0.01);
        apart = std::max(apart, std::abs(measured(frequency) - ClosedForm(gains, false)(frequency)));
    }
    EXPECT_GT(apart, 0.5);
}

TEST(Equalizer, NineGainsOfNothingPassEverySample)
{
    auto equalizer = made();
    equalizer.design({});
    const auto& taps = equalizer.coefficients();
    ASSERT_EQ(taps.size(), 54U);
    for (std::size_t s = 0; s < 54; s += 6)
        for (std::size_t k = 0; k < 3; ++k)
            EXPECT_EQ(taps[s + k], taps[s + 3 + k]) << "section " << s / 6;

    std::mt19937 random(42);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    Buffer<float, 2> in(480);
    Buffer<float, 2> out(480);
    in.setSize(480);
    for (int block = 0; block < 100; ++block) {
        for (std::size_t c = 0; c < 2; ++c)
            std::generate_n(in.channel(c), 480, [&] { return level(random); });
        equalizer.process(in, out);
        for (std::size_t c = 0; c < 2; ++c)
            for (std::size_t i = 0; i < 480; ++i)
                ASSERT_EQ(out.channel(c)[i], in.channel(c)[i]);
    }
}

TEST(Equalizer, NineEqualGainsAreNotCorrected)
{
    Gains gains{};
    gains.fill(6.0);
    auto equalizer = made();
    equalizer.design(gains);
    const double A = std::pow(10.0, 6.0 / 40.0);
    const auto& taps = equalizer.coefficients();
    for (std::size_t band = 1; band < 8; ++band) {
        const double alpha = std::sin(2 * std::numbers::pi * equalizerCentres[band] / 48000 / 1.9);
        EXPECT_NEAR(taps[6 * band], 1 + A * alpha, 1e-14);
        EXPECT_NEAR(taps[6 * band + 3], 1 + alpha / A, 1e-14);
    }
    EXPECT_GT(Measured(equalizer, 0)(1000.0), 8.0); // overlapping bands add up
}

TEST(Equalizer, TheMedianIsTheFifthSmallestGain)
{
    const Gains gains = {12, 1, 10, 2, 9, 3, 8, 4, 5};
    auto equalizer = made();
    equalizer.design(gains);
    const Measured measured(equalizer, 0);
    for (const double frequency : frequencies)
        EXPECT_NEAR(measured(frequency), ClosedForm(gains)(frequency), 0.01);
}

// Against the same taps run one section after the other in double precision.
TEST(Equalizer, SignalToErrorIsAbove120dBAtTheEndsOfTheGains)
{
    std::mt19937 random(43);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    auto equalizer = made();
    Buffer<float, 2> in(480);
    Buffer<float, 2> out(480);
    in.setSize(480);
    for (int trial = 0; trial < 40; ++trial) {
        Gains gains{};
        std::generate(gains.begin(), gains.end(), [&] { return random() % 2 == 0 ? 12.0 : -12.0; });
        equalizer.design(gains);
        const auto& taps = equalizer.coefficients();
        std::array<std::array<double, 4>, 9> past{}; // x[n-1], x[n-2], y[n-1], y[n-2]
        double signal = 0, error = 0;
        for (int block = 0; block < 20; ++block) {
            std::generate_n(in.channel(0), 480, [&] { return level(random); });
            std::copy_n(in.channel(0), 480, in.channel(1));
            equalizer.process(in, out);
            for (std::size_t i = 0; i < 480; ++i) {
                double v = static_cast<double>(in.channel(0)[i]);
                for (std::size_t s = 0; s < 9; ++s) {
                    const double* t = taps.data() + 6 * s;
                    auto& p = past[s];
                    const double y = (t[0] * v + t[1] * p[0] + t[2] * p[1] - t[4] * p[2] - t[5] * p[3]) / t[3];
                    p = {v, p[0], y, p[2]};
                    v = y;
                }
                signal += v * v;
                error += std::pow(static_cast<double>(out.channel(1)[i]) - v, 2);
            }
        }
        EXPECT_GT(10 * std::log10(signal / error), 120) << "trial " << trial;
    }
}

TEST(Equalizer, ADesignRestartsBothChannelsFromSilence)
{
    auto equalizer = made();
    equalizer.design({6, 6, 6, 6, 6, 6, 6, 6, 0});
    Buffer<float, 2> in(100);
    Buffer<float, 2> out(100);
    in.setSize(100);
    std::fill_n(in.channel(0), 100, 1.0F);
    std::fill_n(in.channel(1), 100, -1.0F);
    equalizer.process(in, out);
    equalizer.design({6, 6, 6, 6, 6, 6, 6, 6, 0});
    in.clear();
    equalizer.process(in, out);
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < 100; ++i)
            EXPECT_EQ(out.channel(c)[i], 0.0F);
}

TEST(Equalizer, DesignAndProcessAllocateNothing)
{
    auto equalizer = made();
    Buffer<float, 2> in(480);
    Buffer<float, 2> out(480);
    in.setSize(480);
    const auto before = allocations;
    for (int turn = 0; turn < 10; ++turn) {
        equalizer.design({1, 2, 3, 4, 5, 6, 7, 8, static_cast<double>(turn)});
        equalizer.process(in, out);
    }
    EXPECT_EQ(allocations, before);
    auto another = made(); // the count counts
    EXPECT_GT(allocations, before);
}

TEST(Equalizer, GainsThatAreNoNumbersDoNoHarmBeyondTheirSound)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double huge = std::numeric_limits<double>::infinity();
    Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    in.setSize(16);
    in.channel(0)[0] = 1.0F;
    auto equalizer = made();
    for (const Gains& gains : {Gains{nan, 1, nan, 2, nan, 3, nan, 4, nan}, Gains{nan, nan, nan, nan, nan, nan, nan, nan, nan},
                               Gains{1, 2, 3, 4, huge, 6, -huge, 8, 9}}) {
        equalizer.design(gains);
        equalizer.process(in, out);
        EXPECT_TRUE(std::isnan(out.channel(0)[0]));
    }
    equalizer.design({});
    equalizer.process(in, out);
    EXPECT_NEAR(static_cast<double>(out.channel(0)[0]), 1.0, 0x1p-24);
}

TEST(Equalizer, AnotherSectionCountThanNineFailsInTheDesign)
{
    for (const std::uint64_t sections : {8, 10}) {
        Equalizer equalizer(equalizerInteraction(), equalizerCentres, 0.95, 48000.0, 1.5, sections);
        try {
            equalizer.design({});
            FAIL();
        } catch (const ipps::Error& failure) {
            EXPECT_EQ(failure.status, -25);
        }
    }
}

TEST(Equalizer, AMatrixOfLowerOrderIsOutOfBounds)
{
    try {
        Equalizer({{1, 2}, {3, 4}}, equalizerCentres, 0.95, 48000.0, 1.5);
        FAIL();
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "SquareMatrix: index out of bounds");
    }
}

TEST(Equalizer, RunningBeforeADesignFailsEvenOnAnEmptyBlock)
{
    auto equalizer = made();
    const Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    try {
        equalizer.process(in, out);
        FAIL();
    } catch (const std::invalid_argument& failure) {
        EXPECT_STREQ(failure.what(), "Biquad: coefficients not initialized");
    }
}

TEST(Equalizer, MovesAndDoesNotCopy)
{
    static_assert(std::is_nothrow_move_constructible_v<Equalizer> && std::is_nothrow_move_assignable_v<Equalizer>);
    static_assert(!std::is_copy_constructible_v<Equalizer>);
}

TEST(EqualizerTables, TheMatrixStandsAsGiven)
{
    const auto matrix = equalizerInteraction();
    ASSERT_EQ(matrix.order(), 9U);
    for (std::size_t row = 0; row < 9; ++row)
        for (std::size_t column = 0; column < 9; ++column)
            EXPECT_EQ(matrix(row, column), given[row][column]);
}

TEST(EqualizerTables, BandsStandAnOctaveApart)
{
    for (std::size_t band = 1; band < 9; ++band) // 62.5 Hz, rounded, and its doubles
        EXPECT_EQ(equalizerCentres[band], 62.5 * std::pow(2.0, band));
    EXPECT_EQ(equalizerCentres[0], 63.0);
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
#include "core/kernels/bank.h"

#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

// Runs every test with one variant of the kernels in use.
class CascadeBanks : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, CascadeBanks, testing::ValuesIn(testedVariants()), variantName);

constexpr std::size_t channels = lineCount;
using Taps = std::array<float, 12>;
using Signal = std::vector<float>;

// Poles within 0.6 of the middle of the unit circle, another pair on every channel; not normalised.
Taps tapsOf(std::size_t c)
{
    std::mt19937 random(static_cast<unsigned>(50 + c));
    std::uniform_real_distribution<float> unit(0.0F, 1.0F);
    Taps taps{};
    for (std::size_t s = 0; s < 12; s += 6) {
        const float pole = 0.6F * unit(random), angle = 3.0F * unit(random), a0 = 0.5F + unit(random);
        taps[s] = a0 * (0.5F + unit(random));
        taps[s + 1] = a0 * (unit(random) - 0.5F);
        taps[s + 2] = a0 * (unit(random) - 0.5F);
        taps[s + 3] = a0;
        taps[s + 4] = -2 * a0 * pole * std::cos(angle);
        taps[s + 5] = a0 * pole * pole;
    }
    return taps;
}

Signal noise(std::size_t n, std::size_t seed)
{
    std::mt19937 random(static_cast<unsigned>(seed));
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    Signal x(n);
    std::generate(x.begin(), x.end(), [&] { return level(random); });
    return x;
}

// The definition in double precision.
std::vector<double> truth(const Taps& taps, const Signal& in)
{
    std::vector<double> signal(in.begin(), in.end());
    for (std::size_t s = 0; s < 12; s += 6) {
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
        const auto tap = [&](std::size_t k) { return static_cast<double>(taps[s + k]); };
        for (double& sample : signal) {
            const double x = sample;
            sample = (tap(0) * x + tap(1) * x1 + tap(2) * x2 - tap(4) * y1 - tap(5) * y2) / tap(3);
            x2 = x1, x1 = x, y2 = y1, y1 = sample;
        }
    }
    return signal;
}

struct Bank {
    kernels::BankState state{};
    kernels::BankState* bank = &state;

    Bank()
    {
        for (std::size_t c = 0; c < channels; ++c)
            EXPECT_EQ(cascadeBankSet(bank, c, tapsOf(c).data()), ippStsNoErr);
    }

    // Runs samples at to at + n of every channel, from rows and into rows of several alignments, with guards behind them.
    void run(const std::array<Signal, channels>& x, std::array<Signal, channels>& y, std::size_t at, std::size_t n)
    {
        constexpr float guard = 12345.0F;
        std::array<Signal, channels> in, out;
        std::array<const float*, channels> from{};
        std::array<float*, channels> to{};
        for (std::size_t c = 0; c < channels; ++c) {
            in[c].assign(n + 32, std::numeric_limits<float>::quiet_NaN());
            out[c].assign(n + 32, guard);
            std::copy_n(x[c].begin() + static_cast<std::ptrdiff_t>(at), n, in[c].begin() + static_cast<std::ptrdiff_t>(c));
            from[c] = in[c].data() + c;
            to[c] = out[c].data() + (5 * c + at) % 16;
        }
        ASSERT_EQ(cascadeBankRun(bank, from.data(), to.data(), static_cast<std::int32_t>(n)), ippStsNoErr);
        for (std::size_t c = 0; c < channels; ++c) {
            std::copy_n(to[c], n, y[c].begin() + static_cast<std::ptrdiff_t>(at));
            std::fill_n(to[c], n, guard);
            ASSERT_EQ(std::count(out[c].begin(), out[c].end(), guard), static_cast<std::ptrdiff_t>(n + 32));
        }
    }
};

std::array<Signal, channels> noises(std::size_t n)
{
    std::array<Signal, channels> x;
    for (std::size_t c = 0; c < channels; ++c)
        x[c] = noise(n, 60 + c);
    return x;
}

// Single precision: each of about ten roundings of 2^-24 of the peak a sample grows by the poles' gain, below 1/0.4^4 < 64.
void expectTruth(const Signal& y, const std::vector<double>& wanted)
{
    double peak = 0;
    for (const double v : wanted)
        peak = std::max(peak, std::abs(v));
    for (std::size_t i = 0; i < y.size(); ++i)
        ASSERT_NEAR(static_cast<double>(y[i]), wanted[i], 10 * 64 * 0x1p-24 * peak) << "sample " << i;
}

TEST_P(CascadeBanks, EveryChannelGivesTheDefinitionOverAnyCut)
{
    const auto x = noises(1500);
    std::mt19937 random(70);
    std::vector<std::function<std::size_t()>> cuts;
    for (const std::size_t n : {1U, 2U, 3U, 4U, 5U, 7U, 8U, 13U, 64U, 127U, 128U, 129U, 480U, 1500U})
        cuts.emplace_back([n] { return n; });
    cuts.emplace_back([&] { return std::uniform_int_distribution<std::size_t>(1, 300)(random); });
    for (const auto& cut : cuts) {
        Bank bank;
        std::array<Signal, channels> y;
        y.fill(Signal(1500));
        for (std::size_t at = 0, n = 0; at < 1500; at += n) {
            n = std::min<std::size_t>(cut(), 1500 - at);
            ASSERT_NO_FATAL_FAILURE(bank.run(x, y, at, n));
        }
        for (std::size_t c = 0; c < channels; ++c)
            ASSERT_NO_FATAL_FAILURE(expectTruth(y[c], truth(tapsOf(c), x[c]))) << "channel " << c;
    }
}

TEST_P(CascadeBanks, SignalToErrorIsAbove120dB)
{
    const auto x = noises(20000);
    Bank bank;
    std::array<Signal, channels> y;
    y.fill(Signal(20000));
    bank.run(x, y, 0, 20000);
    for (std::size_t c = 0; c < channels; ++c) {
        const auto wanted = truth(tapsOf(c), x[c]);
        double signal = 0, error = 0;
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            signal += wanted[i] * wanted[i];
            error += std::pow(static_cast<double>(y[c][i]) - wanted[i], 2);
        }
        EXPECT_GT(10 * std::log10(signal / error), 120) << "channel " << c;
    }
}

TEST_P(CascadeBanks, RunsInPlace)
{
    const auto x = noises(333);
    auto y = x;
    std::array<const float*, channels> from{};
    std::array<float*, channels> to{};
    for (std::size_t c = 0; c < channels; ++c)
        from[c] = to[c] = y[c].data();
    Bank bank;
    ASSERT_EQ(cascadeBankRun(bank.bank, from.data(), to.data(), 333), ippStsNoErr);
    for (std::size_t c = 0; c < channels; ++c)
        expectTruth(y[c], truth(tapsOf(c), x[c]));
}

TEST_P(CascadeBanks, SettingAChannelRestartsThatChannelAlone)
{
    const auto x = noises(200);
    Bank bank;
    std::array<Signal, channels> y;
    y.fill(Signal(200));
    bank.run(x, y, 0, 100);
    ASSERT_EQ(cascadeBankSet(bank.bank, 7, tapsOf(3).data()), ippStsNoErr);
    bank.run(x, y, 100, 100);
    for (std::size_t c = 0; c < channels; ++c)
        if (c != 7) {
            ASSERT_NO_FATAL_FAILURE(expectTruth(y[c], truth(tapsOf(c), x[c])));
        }
    expectTruth({y[7].begin() + 100, y[7].end()}, truth(tapsOf(3), {x[7].begin() + 100, x[7].end()}));
}

TEST_P(CascadeBanks, WhatIsNotFiniteStaysInItsChannelAndLeavesWhatCameBefore)
{
    for (const float bad : {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN()})
        for (const std::size_t at : {0U, 1U, 3U, 4U, 63U, 128U}) {
            auto x = noises(300);
            x[5][at] = bad;
            Bank bank;
            std::array<Signal, channels> y;
            y.fill(Signal(300));
            bank.run(x, y, 0, 150);
            bank.run(x, y, 150, 150);
            for (std::size_t c = 0; c < channels; ++c) {
                if (c != 5) {
                    ASSERT_NO_FATAL_FAILURE(expectTruth(y[c], truth(tapsOf(c), x[c])));
                }
            }
            for (std::size_t i = 0; i < 300; ++i)
                ASSERT_EQ(std::isfinite(y[5][i]), i < at) << i;
        }
}

template <class Samples>
std::size_t subnormals(const Samples& x)
{
    return static_cast<std::size_t>(
        std::count_if(std::begin(x), std::end(x), [](float v) { return std::fpclassify(v) == FP_SUBNORMAL; }));
}

// Ten seconds of noise, then a minute in which all channels but one are silent: the states of the silent ones must not crawl
// through subnormal numbers although the bank as a whole sounds. Then that channel falls silent too.
TEST_P(CascadeBanks, SettlesInSilenceChannelByChannel)
{
    constexpr std::size_t block = 480, second = 48000;
    Bank bank;
    const auto loud = noises(second);
    const Signal silence(block);
    std::array<Signal, channels> out;
    out.fill(Signal(block));
    std::array<float*, channels> to{};
    for (std::size_t c = 0; c < channels; ++c)
        to[c] = out[c].data();
    std::size_t inOutput = 0, inState = 0, late = 0;
    for (std::size_t at = 0; at < 75 * second; at += block) {
        std::array<const float*, channels> from{};
        for (std::size_t c = 0; c < channels; ++c)
            from[c] = at < 10 * second || (at < 70 * second && c == 4) ? loud[c].data() + at % second : silence.data();
        ASSERT_EQ(cascadeBankRun(bank.bank, from.data(), to.data(), static_cast<std::int32_t>(block)), ippStsNoErr);
        for (std::size_t c = 0; c < channels; ++c) {
            inOutput += subnormals(out[c]);
            if (at > 72 * second)
                late += static_cast<std::size_t>(std::count_if(out[c].begin(), out[c].end(), [](float v) { return v != 0.0F; }));
        }
        for (const auto& section : bank.bank->section)
            inState += subnormals(section.s1) + subnormals(section.s2);
    }
    EXPECT_LT(inOutput, channels * 128); // at most those of one stretch for each channel
    EXPECT_EQ(inState, 0U);
    EXPECT_EQ(late, 0U);
}

// What is below silence when the bank remembers nothing else comes out as zeros, so that a loop through it falls silent too.
TEST_P(CascadeBanks, ALoopThroughTheBankFallsSilent)
{
    Bank bank;
    std::array<Signal, channels> x;
    x.fill(Signal(480, 1e-31F));
    std::array<Signal, channels> y;
    y.fill(Signal(480, 1.0F));
    bank.run(x, y, 0, 480);
    for (const auto& row : y)
        EXPECT_EQ(std::count(row.begin(), row.end(), 0.0F), 480);
}

TEST(BankKernel, TapsWhosePolesAskForDoublePrecisionAreRefused)
{
    Bank bank;
    Taps taps = tapsOf(0);
    for (const auto& [a1, a2] : {std::pair{-1.97F, 0.972F},
                                 {1.97F, 0.972F},
                                 {0.0F, 0.99F},
                                 {-0.95F, 0.0F},
                                 {std::numeric_limits<float>::quiet_NaN(), 0.0F},
                                 {0.0F, std::numeric_limits<float>::infinity()}})
        for (const std::size_t section : {0U, 6U}) {
            Taps close = taps;
            close[section + 3] = 1.0F;
            close[section + 4] = a1;
            close[section + 5] = a2;
            EXPECT_EQ(cascadeBankSet(bank.bank, 0, close.data()), ippStsCoeffErr) << a1 << ", " << a2;
        }
}

TEST(BankKernel, ZeroLeadingTapsAreRefused)
{
    Bank bank;
    for (const std::size_t k : {0U, 3U, 6U, 9U}) {
        Taps zero = tapsOf(0);
        zero[k] = 0.0F;
        EXPECT_EQ(cascadeBankSet(bank.bank, 0, zero.data()), ippStsDivByZeroErr);
    }
}

TEST(BankKernel, ChecksItsArguments)
{
    Bank bank;
    Signal row(8);
    std::array<const float*, channels> from{};
    std::array<float*, channels> to{};
    from.fill(row.data());
    to.fill(row.data());
    EXPECT_EQ(cascadeBankRun(nullptr, from.data(), to.data(), 8), -8);
    EXPECT_EQ(cascadeBankRun(bank.bank, nullptr, to.data(), 8), -8);
    EXPECT_EQ(cascadeBankRun(bank.bank, from.data(), nullptr, 8), -8);
    EXPECT_EQ(cascadeBankRun(bank.bank, from.data(), to.data(), 0), -6);
    EXPECT_EQ(cascadeBankRun(bank.bank, from.data(), to.data(), -1), -6);
    from[11] = nullptr;
    EXPECT_EQ(cascadeBankRun(bank.bank, from.data(), to.data(), 8), -8);
    from[11] = row.data();
    to[0] = nullptr;
    EXPECT_EQ(cascadeBankRun(bank.bank, from.data(), to.data(), 8), -8);
}

} // namespace
} // namespace quorel

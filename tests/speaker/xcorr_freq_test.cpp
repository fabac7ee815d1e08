// SPDX-License-Identifier: MIT
#include "speaker/xcorr_freq.h"

#include "core/buffer.h"
#include "speaker/xcorr_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace quorel {
namespace {

// The packed spectrum of 140 taps by the definition of the transform, in double precision.
std::vector<float> packed(const std::array<float, xcorrTaps>& taps)
{
    std::vector<float> spectrum(1024);
    for (std::size_t k = 0; k <= 512; ++k) {
        std::complex<double> sum;
        for (std::size_t n = 0; n < taps.size(); ++n)
            sum += static_cast<double>(taps[n]) *
                   std::polar(1.0, -2.0 * std::numbers::pi * static_cast<double>(n * k % 1024) / 1024.0);
        if (k == 0 || k == 512)
            spectrum[k == 0 ? 0 : 1023] = static_cast<float>(sum.real());
        else {
            spectrum[2 * k - 1] = static_cast<float>(sum.real());
            spectrum[2 * k] = static_cast<float>(sum.imag());
        }
    }
    return spectrum;
}

XCorrFreq<float> decorrelator()
{
    return XCorrFreq<float>(packed(sameSideTaps).data(), packed(crossSideTaps).data(), 139);
}

Buffer<float, 2> block(const std::vector<float>& left, const std::vector<float>& right)
{
    Buffer<float, 2> buffer(std::max<std::size_t>(left.size(), 1));
    std::copy(left.begin(), left.end(), buffer.channel(0));
    std::copy(right.begin(), right.end(), buffer.channel(1));
    buffer.setSize(left.size());
    return buffer;
}

// The root of the mean square of each output for a steady sine, times the given sign in the right channel, once it is settled.
std::array<double, 2> response(double frequency, float rightSign)
{
    auto stage = decorrelator();
    Buffer<float, 2> out(480);
    std::array<double, 2> power{};
    double input = 0.0;
    for (std::size_t b = 0; b < 12; ++b) {
        std::vector<float> left(480);
        for (std::size_t i = 0; i < 480; ++i)
            left[i] =
                static_cast<float>(std::sin(2.0 * std::numbers::pi * frequency * static_cast<double>(b * 480 + i) / 48000.0));
        std::vector<float> right = left;
        for (float& x : right)
            x *= rightSign;
        stage.process(block(left, right), out);
        if (b < 2)
            continue;
        for (std::size_t i = 0; i < 480; ++i) {
            input += static_cast<double>(left[i]) * static_cast<double>(left[i]);
            for (std::size_t c = 0; c < 2; ++c)
                power[c] += std::pow(static_cast<double>(out.channel(c)[i]), 2);
        }
    }
    return {std::sqrt(power[0] / input), std::sqrt(power[1] / input)};
}

std::string refusal(XCorrFreq<float>& stage, const Buffer<float, 2>& in, Buffer<float, 2>& out)
{
    try {
        stage.process(in, out);
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
    return "accepted";
}

// 50 Hz lies half-way between the tabled 0 and 100 Hz: H1 is there 0.87 to 0.8902 and H2 0.6924 to 0.6426, in phase.
TEST(XCorrFreq, EqualInputAt50HzLeavesEqualScaledByTheSumOfTheFilters)
{
    const auto [left, right] = response(50.0, 1.0F);
    EXPECT_NEAR(left, right, 1e-6);
    EXPECT_GT(left, 0.8902 + 0.6426);
    EXPECT_LT(left, 0.8700 + 0.6924);
}

TEST(XCorrFreq, OppositeInputAt50HzIsReducedToTheDifferenceOfTheFilters)
{
    const auto [left, right] = response(50.0, -1.0F);
    EXPECT_NEAR(left, right, 1e-6);
    EXPECT_GT(left, 0.8700 - 0.6924);
    EXPECT_LT(left, 0.8902 - 0.6426);
}

TEST(XCorrFreq, LeftInputAt8KilohertzStaysOnTheLeft)
{
    const auto [left, right] = response(8000.0, 0.0F);
    EXPECT_NEAR(left, 1.0888, 1e-3);
    EXPECT_LT(right, 0.001);
}

TEST(XCorrFreq, ConvolvesAcrossBlocksOfAnyLength)
{
    std::mt19937 random(8);
    std::uniform_real_distribution<float> level(-1.0F, 1.0F);
    std::uniform_int_distribution<std::size_t> blockLength(1, 880);
    auto stage = decorrelator();
    std::vector<float> x[2];
    std::vector<float> y[2];
    while (x[0].size() < 6000) {
        const std::size_t n = blockLength(random);
        std::vector<float> left(n);
        std::vector<float> right(n);
        std::generate(left.begin(), left.end(), [&] { return level(random); });
        std::generate(right.begin(), right.end(), [&] { return level(random); });
        Buffer<float, 2> out(880);
        stage.process(block(left, right), out);
        ASSERT_EQ(out.size(), n);
        x[0].insert(x[0].end(), left.begin(), left.end());
        x[1].insert(x[1].end(), right.begin(), right.end());
        for (std::size_t c = 0; c < 2; ++c)
            y[c].insert(y[c].end(), out.channel(c), out.channel(c) + n);
    }
    for (std::size_t c = 0; c < 2; ++c)
        for (std::size_t i = 0; i < y[c].size(); ++i) {
            double expected = 0.0;
            for (std::size_t t = 0; t < xcorrTaps && t <= i; ++t)
                expected += static_cast<double>(sameSideTaps[t]) * static_cast<double>(x[c][i - t]) +
                            static_cast<double>(crossSideTaps[t]) * static_cast<double>(x[1 - c][i - t]);
            // Transforms of 1024 floats with a root mean square of 0.6 err by some 1e-7 of it; six of these.
            ASSERT_NEAR(static_cast<double>(y[c][i]), expected, 4e-6) << "channel " << c << ", frame " << i;
        }
}

TEST(XCorrFreq, ABlockOf880FramesPassesAndOneOf881Fails)
{
    auto stage = decorrelator();
    Buffer<float, 2> in(881);
    Buffer<float, 2> out(881);
    in.setSize(880);
    EXPECT_EQ(refusal(stage, in, out), "accepted");
    in.setSize(881);
    EXPECT_EQ(refusal(stage, in, out), "PassThrough: out buffer too small");
}

TEST(XCorrFreq, AnOutputTooSmallIsRefused)
{
    auto stage = decorrelator();
    Buffer<float, 2> in(33);
    Buffer<float, 2> out(32);
    in.setSize(33);
    EXPECT_EQ(refusal(stage, in, out), "PassThrough: out buffer too small");
    EXPECT_EQ(out.size(), 0U);
}

TEST(XCorrFreq, AnEmptyBlockGivesAnEmptyBlock)
{
    auto stage = decorrelator();
    Buffer<float, 2> in(16);
    Buffer<float, 2> out(16);
    out.setSize(5);
    stage.process(in, out);
    EXPECT_EQ(out.size(), 0U);
}

TEST(XCorrFreq, AnEmptyBlockLeavesTheHistory)
{
    auto stage = decorrelator();
    auto twin = decorrelator();
    const auto first = block(std::vector<float>(100, 0.5F), std::vector<float>(100, -0.25F));
    const auto second = block(std::vector<float>(50, 0.1F), std::vector<float>(50, 0.2F));
    Buffer<float, 2> out(112);
    Buffer<float, 2> expected(112);
    stage.process(first, out);
    twin.process(first, expected);
    Buffer<float, 2> empty(16);
    stage.process(empty, out);
    stage.process(second, out);
    twin.process(second, expected);
    EXPECT_TRUE(std::equal(out.channel(0), out.channel(0) + 50, expected.channel(0)));
}

} // namespace
} // namespace quorel

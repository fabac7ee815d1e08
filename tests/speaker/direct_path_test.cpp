// SPDX-License-Identifier: MIT
#include "speaker/direct_path.h"

#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <type_traits>
#include <vector>

namespace quorel {
namespace {

// The packed spectrum of an impulse of the given level at tap 0.
std::vector<float> impulse(float level)
{
    std::vector<float> spectrum(1024);
    spectrum[0] = spectrum[1023] = level;
    for (std::size_t k = 1; k < 512; ++k)
        spectrum[2 * k - 1] = level;
    return spectrum;
}

std::vector<float> repeated(const std::vector<float>& spectrum, std::size_t times)
{
    std::vector<float> all;
    for (std::size_t i = 0; i < times; ++i)
        all.insert(all.end(), spectrum.begin(), spectrum.end());
    return all;
}

template <std::size_t N>
Buffer<float, N> spectra(unsigned seed)
{
    Buffer<float, N> buffer(1024);
    for (std::size_t c = 0; c < N; ++c) {
        const auto x = noise(1024, seed + static_cast<unsigned>(c));
        std::copy(x.begin(), x.end(), buffer.channel(c));
    }
    buffer.setSize(1024);
    return buffer;
}

SettingsRecord delivered(const std::vector<float>& set, std::uint32_t channels, std::uint32_t length = 1024)
{
    SettingsRecord record;
    record.hrtfId = 1;
    record.hrtfChannels = channels;
    record.hrtfLength = length;
    record.hrtfData = set.data();
    return record;
}

template <std::size_t N>
std::string refusal(DirectPath<N, float>& path, const SettingsRecord& record)
{
    try {
        path.set(record);
    } catch (const std::invalid_argument& error) {
        return error.what();
    } catch (const ipps::Error& error) {
        return error.what();
    }
    return "accepted";
}

// Element i of the packed product of two spectra.
double packedProduct(const float* a, const float* b, std::size_t i)
{
    const auto at = [](const float* x, std::size_t k) { return static_cast<double>(x[k]); };
    if (i == 0 || i == 1023)
        return at(a, i) * at(b, i);
    const std::size_t re = i - (i + 1) % 2;
    return i == re ? at(a, re) * at(b, re) - at(a, re + 1) * at(b, re + 1)
                   : at(a, re) * at(b, re + 1) + at(a, re + 1) * at(b, re);
}

template <std::size_t N>
void expectSumOfProducts()
{
    const auto left = noise(N * 1024, 100);
    const auto right = noise(N * 1024, 200);
    DirectPath<N, float> path(left.data(), right.data());
    const auto in = spectra<N>(300);
    Buffer<float, 2> sum(1024);
    path.process(in, sum);
    EXPECT_EQ(sum.size(), 1024U);
    for (std::size_t i = 0; i < 1024; ++i) {
        double expected[2] = {};
        for (std::size_t c = 0; c < N; ++c) {
            expected[0] += packedProduct(left.data() + c * 1024, in.channel(c), i);
            expected[1] += packedProduct(right.data() + c * 1024, in.channel(c), i);
        }
        // Four roundings a channel, of values below 2 N.
        for (std::size_t ear = 0; ear < 2; ++ear)
            ASSERT_NEAR(static_cast<double>(sum.channel(ear)[i]), expected[ear], 4.0 * N * 2.0 * N * 0x1p-24);
    }
}

TEST(DirectPath, SumsTheProductsOfAllChannels)
{
    expectSumOfProducts<1>();
    expectSumOfProducts<2>();
    expectSumOfProducts<3>();
    expectSumOfProducts<4>();
    expectSumOfProducts<5>();
    expectSumOfProducts<6>();
    expectSumOfProducts<7>();
    expectSumOfProducts<8>();
}

TEST(DirectPath, WithSilentLeftAndUnitRightResponsesTheRightEarCarriesTheSum)
{
    const auto silent = repeated(impulse(0.0F), 8);
    const auto unit = repeated(impulse(1.0F), 8);
    DirectPath<8, float> path(silent.data(), unit.data());
    const auto in = spectra<8>(1);
    Buffer<float, 2> sum(1024);
    path.process(in, sum);
    for (std::size_t i = 0; i < 1024; ++i) {
        float expected = 0.0F;
        for (std::size_t c = 0; c < 8; ++c)
            expected += in.channel(c)[i];
        ASSERT_EQ(sum.channel(0)[i], 0.0F);
        ASSERT_EQ(sum.channel(1)[i], expected) << "a product with 1 is exact, and channels are added in rising order";
    }
}

TEST(DirectPath, OfOneChannelAUnitResponseGivesTheInputInBothEars)
{
    const auto unit = impulse(1.0F);
    DirectPath<1, float> path(unit.data(), unit.data());
    const auto in = spectra<1>(2);
    Buffer<float, 2> sum(1024);
    path.process(in, sum);
    for (std::size_t ear = 0; ear < 2; ++ear)
        EXPECT_TRUE(std::equal(in.channel(0), in.channel(0) + 1024, sum.channel(ear)));
}

TEST(DirectPath, ADeliveredSetReplacesTheResponsesLeftOnesFirst)
{
    const auto unit = repeated(impulse(1.0F), 2);
    DirectPath<2, float> path(unit.data(), unit.data());
    std::vector<float> set;
    for (const float level : {2.0F, 4.0F, 8.0F, 16.0F}) { // left of channel 0 and 1, right of 0 and 1: products are exact
        const auto one = impulse(level);
        set.insert(set.end(), one.begin(), one.end());
    }
    path.set(delivered(set, 2));
    std::fill(set.begin(), set.end(), 0.0F); // the share may change afterwards

    const auto in = spectra<2>(3);
    Buffer<float, 2> sum(1024);
    path.process(in, sum);
    for (std::size_t i = 0; i < 1024; ++i) {
        ASSERT_EQ(sum.channel(0)[i], 2.0F * in.channel(0)[i] + 4.0F * in.channel(1)[i]);
        ASSERT_EQ(sum.channel(1)[i], 8.0F * in.channel(0)[i] + 16.0F * in.channel(1)[i]);
    }
}

TEST(DirectPath, ASetForAnotherNumberOfChannelsIsRefusedAndChangesNothing)
{
    const auto unit = repeated(impulse(1.0F), 2);
    DirectPath<2, float> path(unit.data(), unit.data());
    const auto set = repeated(impulse(9.0F), 16);
    EXPECT_EQ(refusal(path, delivered(set, 8)), "quorel::DirectPath<2,float>::set: channels must match");
    EXPECT_EQ(refusal(path, delivered(set, 0)), "quorel::DirectPath<2,float>::set: channels must match");

    const auto in = spectra<2>(4);
    Buffer<float, 2> sum(1024);
    path.process(in, sum);
    for (std::size_t i = 0; i < 1024; ++i)
        ASSERT_EQ(sum.channel(0)[i], in.channel(0)[i] + in.channel(1)[i]);
}

TEST(DirectPath, ASetOfAnotherLengthIsRefusedAndChangesNothing)
{
    const auto unit = impulse(1.0F);
    DirectPath<1, float> path(unit.data(), unit.data());
    const auto set = repeated(impulse(9.0F), 2);
    EXPECT_EQ(refusal(path, delivered(set, 1, 512)), "quorel::DirectPath<1,float>::set: size must match");
    EXPECT_EQ(refusal(path, delivered(set, 1, 1025)), "quorel::DirectPath<1,float>::set: size must match");

    const auto in = spectra<1>(5);
    Buffer<float, 2> sum(1024);
    path.process(in, sum);
    EXPECT_TRUE(std::equal(in.channel(0), in.channel(0) + 1024, sum.channel(0)));
}

TEST(DirectPath, TheTextsCarryTheInstantiationsDigit)
{
    const auto unit = repeated(impulse(1.0F), 8);
    DirectPath<8, float> eight(unit.data(), unit.data());
    DirectPath<5, float> five(unit.data(), unit.data());
    EXPECT_EQ(refusal(eight, delivered(unit, 2)), "quorel::DirectPath<8,float>::set: channels must match");
    EXPECT_EQ(refusal(eight, delivered(unit, 8, 512)), "quorel::DirectPath<8,float>::set: size must match");
    EXPECT_EQ(refusal(five, delivered(unit, 2)), "quorel::DirectPath<5,float>::set: channels must match");
    EXPECT_EQ(refusal(five, delivered(unit, 5, 512)), "quorel::DirectPath<5,float>::set: size must match");
}

TEST(DirectPath, ANullSetShowsInTheKernelsStatus)
{
    const auto unit = impulse(1.0F);
    DirectPath<1, float> path(unit.data(), unit.data());
    SettingsRecord record;
    record.hrtfChannels = 1;
    record.hrtfLength = 1024;
    EXPECT_EQ(refusal(path, record), "ippStsNullPtrErr");
}

TEST(DirectPath, MovesAndLeavesAnUninitializedStageBehind)
{
    static_assert(std::is_nothrow_move_constructible_v<DirectPath<8, float>>);
    static_assert(!std::is_copy_constructible_v<DirectPath<8, float>>);
    const auto unit = impulse(1.0F);
    DirectPath<1, float> path(unit.data(), unit.data());
    DirectPath<1, float> moved(std::move(path));
    const auto in = spectra<1>(6);
    Buffer<float, 2> sum(1024);
    EXPECT_NO_THROW(moved.process(in, sum));
    EXPECT_THROW(path.process(in, sum), UninitializedBuffer); // NOLINT(bugprone-use-after-move)
}

} // namespace
} // namespace quorel

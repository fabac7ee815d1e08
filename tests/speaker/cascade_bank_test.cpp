// SPDX-License-Identifier: MIT
#include "speaker/cascade_bank.h"

#include "speaker/fdn_tables.h"
#include "tests/speaker/cases.h"
#include "tests/support/failure.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

// Noise in blocks of several lengths, against the sections one after the other in double precision on the same taps.
TEST(CascadeBank, TheLineFiltersSignalToErrorIsAbove120dB)
{
    CascadeBank bank(fdnLineFilters);
    Noise noise(51);
    Buffer<float, lineCount> in(480), out(480);
    std::array<std::array<std::array<double, 4>, 2>, lineCount> past{}; // x[n-1], x[n-2], y[n-1], y[n-2] of each section
    std::array<double, lineCount> signal{}, error{};
    for (int block = 0; block < 40; ++block) {
        const std::uint64_t n = noise.between(1, 480);
        noise.fill(in, n);
        bank.process(in, out);
        ASSERT_EQ(out.size(), n);
        for (std::size_t l = 0; l < lineCount; ++l)
            for (std::size_t i = 0; i < n; ++i) {
                double v = static_cast<double>(in.channel(l)[i]);
                for (std::size_t s = 0; s < 2; ++s) {
                    const auto tap = [&](std::size_t k) { return static_cast<double>(fdnLineFilters[l][6 * s + k]); };
                    auto& p = past[l][s];
                    const double y = (tap(0) * v + tap(1) * p[0] + tap(2) * p[1] - tap(4) * p[2] - tap(5) * p[3]) / tap(3);
                    p = {v, p[0], y, p[2]};
                    v = y;
                }
                signal[l] += v * v;
                error[l] += std::pow(static_cast<double>(out.channel(l)[i]) - v, 2);
            }
    }
    for (std::size_t l = 0; l < lineCount; ++l)
        EXPECT_GT(10 * std::log10(signal[l] / error[l]), 120) << "line " << l;
}

TEST(CascadeBank, TapsThatTheKernelRefusesBuildNone)
{
    auto close = fdnLineFilters;
    close[11][4] = -1.99F;
    close[11][5] = 0.991F;
    EXPECT_EQ(failureStatus([&] { CascadeBank{close}; }), ippStsCoeffErr);
    auto zero = fdnLineFilters;
    zero[3][9] = 0.0F;
    EXPECT_EQ(failureStatus([&] { CascadeBank{zero}; }), ippStsDivByZeroErr);
}

TEST(CascadeBank, ABlockBeyondTheOutputsCapacityFails)
{
    CascadeBank bank(fdnLineFilters);
    Buffer<float, lineCount> in(32), out(16);
    fillWith(in, 17, 1.0F);
    EXPECT_EQ(failureText<std::invalid_argument>([&] { bank.process(in, out); }), "CascadeBank: out buffer too small");
    EXPECT_EQ(out.size(), 0U);
    in.setSize(16);
    bank.process(in, out);
    EXPECT_EQ(out.size(), 16U);
}

TEST(CascadeBank, AnEmptyBlockIsTheKernelsSizeError)
{
    CascadeBank bank(fdnLineFilters);
    const Buffer<float, lineCount> in(16);
    Buffer<float, lineCount> out(16);
    out.setSize(7);
    EXPECT_EQ(failureStatus([&] { bank.process(in, out); }), ippStsSizeErr);
    EXPECT_EQ(out.size(), 7U);
}

TEST(CascadeBank, AMovedOneRunsOnAndLeavesNothing)
{
    static_assert(std::is_nothrow_move_constructible_v<CascadeBank> && !std::is_copy_constructible_v<CascadeBank>);
    CascadeBank first(fdnLineFilters), whole(fdnLineFilters);
    Buffer<float, lineCount> in(16), out(16), wanted(16);
    fillWith(in, 16, 1.0F);
    first.process(in, out);
    whole.process(in, wanted);
    CascadeBank second(std::move(first));
    second.process(in, out);
    whole.process(in, wanted);
    for (std::size_t l = 0; l < lineCount; ++l)
        EXPECT_TRUE(std::equal(out.channel(l), out.channel(l) + 16, wanted.channel(l)));
    EXPECT_EQ(failureStatus([&] { first.process(in, out); }), ippStsNullPtrErr); // NOLINT(bugprone-use-after-move): the test
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
#include "core/kernels/filters.h"

#include "core/rt_alloc.h"
#include "tests/core/filter_cases.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace quorel {
namespace {

// --- A sparse filter and its truth -----------------------------------------------------------------------------------

class Sparse {
public:
    Sparse(const std::vector<float>& taps, const std::vector<std::int32_t>& positions, std::int32_t direct)
    {
        const auto recursive = static_cast<std::int32_t>(taps.size()) - direct;
        std::int32_t size = 0;
        EXPECT_EQ(ippsIIRSparseGetStateSize_32f(direct, recursive, positions[static_cast<std::size_t>(direct) - 1],
                                                positions.back(), &size),
                  ippStsNoErr);
        storage.reset(static_cast<std::byte*>(rt_alloc(static_cast<std::uint64_t>(size))));
        std::memset(storage.get(), 0xA5, static_cast<std::size_t>(size));
        EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps.data(), positions.data(), direct, recursive, storage.get()), ippStsNoErr);
    }

    void process(const float* src, float* dst, std::size_t n)
    {
        ASSERT_EQ(ippsIIRSparse_32f(src, dst, static_cast<std::int32_t>(n), state), ippStsNoErr);
    }

    std::vector<float> process(const std::vector<float>& x)
    {
        std::vector<float> y(x.size());
        process(x.data(), y.data(), x.size());
        return y;
    }

    Sparse_32f* state = nullptr;

private:
    RtPointer<std::byte> storage;
};

std::vector<double> truth(const std::vector<float>& taps, const std::vector<std::int32_t>& positions, std::int32_t direct,
                          const std::vector<float>& x)
{
    std::vector<double> y(x.size());
    for (std::size_t n = 0; n < x.size(); ++n)
        for (std::size_t k = 0; k < taps.size(); ++k)
            if (const auto p = static_cast<std::size_t>(positions[k]); p <= n)
                y[n] += static_cast<double>(taps[k]) *
                        (k < static_cast<std::size_t>(direct) ? static_cast<double>(x[n - p]) : y[n - p]);
    return y;
}

struct SparseCase {
    std::vector<float> taps;
    std::vector<std::int32_t> positions;
    std::int32_t direct;
};

// Allpasses of every delay that the reverberator has and of the shortest, and filters of other shapes, all of them stable: the
// magnitudes of the recursive taps sum to at most 0.75.
std::vector<SparseCase> sparseCases()
{
    std::vector<SparseCase> cases;
    for (const std::int32_t d : {1, 2, 3, 7, 8, 15, 16, 17, 19, 21, 26, 32, 34, 41, 45, 47, 52, 58, 65, 300, 2000})
        cases.push_back({{0.72F, 1.0F, -0.72F}, {0, d, d}, 2});
    cases.push_back({{1.0F, 0.5F}, {0, 1}, 1});
    cases.push_back({{0.5F, 0.25F}, {100, 1}, 1});
    cases.push_back({{0.3F, -0.2F, 0.1F, 0.4F, 0.2F, -0.1F}, {3, 5, 900, 2, 33, 700}, 3});
    cases.push_back({{0.3F, 0.7F, 0.1F, -0.4F, 0.2F, 0.1F, 0.05F}, {0, 1, 2, 1, 2, 3, 4}, 3});
    cases.push_back({{1.0F, 0.5F}, {0, 40}, 1});
    return cases;
}

// Every rounding to float is at most 2^-24 of a term, and the recursion sums them with a gain below 1 / (1 - 0.75) = 4; fewer
// than eight terms of at most a few times the peak.
void expectSparseTruth(const std::vector<float>& y, const std::vector<double>& wanted)
{
    const double allowed = 0x1p-24 * 4 * 8 * 4 * peak(wanted);
    ASSERT_EQ(y.size(), wanted.size());
    for (std::size_t i = 0; i < y.size(); ++i)
        ASSERT_TRUE(std::abs(static_cast<double>(y[i]) - wanted[i]) <= allowed)
            << "sample " << i << ": " << y[i] << " instead of " << wanted[i];
}

TEST_P(Filters, SparseFiltersGiveTheDefinitionAtEveryLength)
{
    for (const auto& [taps, positions, direct] : sparseCases()) {
        const auto x = noise(5000, 21);
        const auto wanted = truth(taps, positions, direct, x);
        for (const std::size_t n : {1, 2, 3, 7, 8, 14, 15, 16, 17, 31, 32, 33, 63, 64, 65, 66, 67, 480, 1000, 5000}) {
            const auto y = Sparse(taps, positions, direct).process({x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n)});
            ASSERT_NO_FATAL_FAILURE(expectSparseTruth(y, {wanted.begin(), wanted.begin() + static_cast<std::ptrdiff_t>(n)}))
                << "last position " << positions.back() << ", length " << n;
        }
    }
}

TEST_P(Filters, SparseHistoryCarriesOverAnyCut)
{
    for (const auto& [taps, positions, direct] : sparseCases()) {
        const auto x = noise(4100, 22);
        const auto wanted = truth(taps, positions, direct, x);
        for (std::size_t n = 1; n <= 67; n += n < 20 ? 1 : 5)
            ASSERT_NO_FATAL_FAILURE(expectSparseTruth(inBlocks(Sparse(taps, positions, direct), x, [n] { return n; }), wanted))
                << "last position " << positions.back() << ", blocks of " << n;
        std::mt19937 random(23);
        for (int trial = 0; trial < 6; ++trial) {
            const auto cut = [&] { return std::uniform_int_distribution<std::size_t>(1, trial % 2 == 0 ? 1100 : 70)(random); };
            ASSERT_NO_FATAL_FAILURE(expectSparseTruth(inBlocks(Sparse(taps, positions, direct), x, cut), wanted))
                << "last position " << positions.back() << ", random cuts";
        }
    }
}

TEST_P(Filters, ASparseFilterRunsInPlace)
{
    const auto x = noise(1000, 24);
    auto y = x;
    Sparse({0.72F, 1.0F, -0.72F}, {0, 19, 19}, 2).process(y.data(), y.data(), y.size());
    expectSparseTruth(y, truth({0.72F, 1.0F, -0.72F}, {0, 19, 19}, 2, x));
}

TEST_P(Filters, ASparseAllpassHasMagnitudeOneAtAllFrequencies)
{
    std::vector<float> impulse(400);
    impulse[0] = 1.0F;
    const auto h = Sparse({0.5F, 1.0F, -0.5F}, {0, 3, 3}, 2).process(impulse);
    for (int k = 0; k <= 100; ++k) {
        const double w = std::numbers::pi * k / 100;
        double re = 0, im = 0;
        for (std::size_t n = 0; n < h.size(); ++n) {
            re += static_cast<double>(h[n]) * std::cos(w * static_cast<double>(n));
            im -= static_cast<double>(h[n]) * std::sin(w * static_cast<double>(n));
        }
        // The response falls by half every 3 samples, so that its roundings of 2^-25 of a sample sum to less than 2^-21.
        EXPECT_NEAR(std::hypot(re, im), 1.0, 0x1p-21) << "at " << w;
    }
}

TEST_P(Filters, SparseFiltersSettleInSilence)
{
    const auto cases = sparseCases();
    for (const std::size_t which : {std::size_t{6}, std::size_t{18}, cases.size() - 4, cases.size() - 3}) {
        const auto& [taps, positions, direct] = cases[which]; // delays of 16 and 65, a short recursion, one of several taps
        Sparse filter(taps, positions, direct);
        const auto& state = *reinterpret_cast<const kernels::Sparse*>(filter.state);
        expectSilenceToSettle(filter, [&] { return subnormals(state.line, state.longest); });
    }
}

TEST_P(Filters, WhatIsNotFiniteGoesTheWayOfASparseFiltersFormula)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    for (const float bad : {infinity, -infinity, std::numeric_limits<float>::quiet_NaN()})
        for (const auto& [taps, positions, direct] : sparseCases())
            for (const std::size_t at : {0U, 15U, 100U, 127U, 128U, 300U}) {
                auto x = noise(1000, 25);
                x[at] = bad;
                const auto wanted = truth(taps, positions, direct, x);
                const auto y = inBlocks(Sparse(taps, positions, direct), x, [at] { return at % 2 == 0 ? 480 : 37; });
                for (std::size_t i = 0; i < x.size(); ++i)
                    ASSERT_EQ(std::isfinite(y[i]), std::isfinite(wanted[i])) << "sample " << i << " after " << at;
            }
}

TEST_P(Filters, SparseFiltersCheckTheirArguments)
{
    std::int32_t size = -1;
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(2, 1, 15, 15, nullptr), -8);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(0, 1, 15, 15, nullptr), -8);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(0, 1, 15, 15, &size), -25);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(1, -1, 15, 15, &size), -25);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(1, 1, -1, 15, &size), -194);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(1, 1, 15, -1, &size), -194);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(0, 1, -1, 15, &size), -25); // counts before orders
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(1, 1, std::numeric_limits<std::int32_t>::max(), 1, &size), -194);
    EXPECT_EQ(size, -1);
    EXPECT_EQ(ippsIIRSparseGetStateSize_32f(1, 0, 0, 0, &size), 0); // no recursive tap: a size, although none can be built
    ASSERT_EQ(ippsIIRSparseGetStateSize_32f(2, 2, 15, 20, &size), 0);

    std::vector<std::byte> storage(static_cast<std::size_t>(size));
    const float taps[] = {0.5F, 1.0F, -0.5F, 0.1F};
    const std::int32_t good[] = {0, 15, 15, 20};
    Sparse_32f* state = nullptr;
    EXPECT_EQ(ippsIIRSparseInit_32f(nullptr, taps, good, 2, 2, storage.data()), -8);
    EXPECT_EQ(ippsIIRSparseInit_32f(&state, nullptr, good, 2, 2, storage.data()), -8);
    EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps, nullptr, 2, 2, storage.data()), -8);
    EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps, good, 2, 2, nullptr), -8);
    EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps, nullptr, 0, 2, storage.data()), -8);
    EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps, good, 0, 2, storage.data()), -25);
    EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps, good, 2, 0, storage.data()), -25);
    const std::vector<std::vector<std::int32_t>> bad = {{15, 15, 15, 20}, {15, 0, 15, 20}, {-1, 15, 15, 20}, {0, 15, 15, 15},
                                                        {0, 15, 20, 15},  {0, 15, 0, 20},  {0, 15, -1, 20}};
    for (const auto& positions : bad)
        EXPECT_EQ(ippsIIRSparseInit_32f(&state, taps, positions.data(), 2, 2, storage.data()), -194);
    EXPECT_EQ(state, nullptr);
    ASSERT_EQ(ippsIIRSparseInit_32f(&state, taps, good, 2, 2, storage.data()), 0);

    float x[4] = {};
    EXPECT_EQ(ippsIIRSparse_32f(nullptr, x, 4, state), -8);
    EXPECT_EQ(ippsIIRSparse_32f(x, nullptr, 4, state), -8);
    EXPECT_EQ(ippsIIRSparse_32f(x, x, 4, nullptr), -8);
    EXPECT_EQ(ippsIIRSparse_32f(nullptr, x, 0, state), -8);
    EXPECT_EQ(ippsIIRSparse_32f(x, x, 0, state), -6);
    EXPECT_EQ(ippsIIRSparse_32f(x, x, -1, state), -6);
    EXPECT_EQ(ippsIIRSparse_32f(x, x, 4, state), 0);
}

} // namespace
} // namespace quorel

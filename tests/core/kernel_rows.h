// SPDX-License-Identifier: MIT
// Rows on which the kernels are swept over every length and several alignments.
#pragma once

#include "core/kernels.h"

#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

namespace quorel {

inline constexpr float infinity = std::numeric_limits<float>::infinity();
inline constexpr double ulp = 0x1p-24; // half a unit in the last place of a float in [0.5, 1), relative to 1

inline std::vector<std::int32_t> lengths()
{
    std::vector<std::int32_t> all;
    for (std::int32_t len = 1; len <= 67; ++len)
        all.push_back(len);
    all.insert(all.end(), {80, 255, 480, 1000, 1024, 4099});
    return all;
}

// A row of floats that starts `offset` floats behind a 64-byte boundary, with guards on both sides that must stay as they are.
class Row {
public:
    Row(std::size_t length, std::size_t offset, std::mt19937& random) : length(length), store(length + 16 + 2 * guard)
    {
        void* begin = store.data() + guard;
        std::size_t room = (length + 16) * sizeof(float);
        first = static_cast<float*>(std::align(64, sizeof(float), begin, room)) + offset;
        std::uniform_real_distribution<float> level(-1.0F, 1.0F);
        std::generate(store.begin(), store.end(), [&] { return level(random); });
        original = store;
    }

    float* data() { return first; }
    Complex* complex() { return reinterpret_cast<Complex*>(first); }
    double operator[](std::size_t i) const { return static_cast<double>(first[i]); }

    // The sample as it stood before the kernel ran.
    double before(std::size_t i) const { return static_cast<double>(original[index(i)]); }

    bool guardsIntact() const
    {
        for (std::size_t i = 0; i < store.size(); ++i)
            if ((i < index(0) || i >= index(length)) && store[i] != original[i])
                return false;
        return true;
    }

private:
    static constexpr std::size_t guard = 32;

    std::size_t index(std::size_t i) const { return static_cast<std::size_t>(first - store.data()) + i; }

    std::size_t length;
    std::vector<float> store;
    std::vector<float> original;
    float* first;
};

// Runs every test with one variant of the kernels in use.
class Kernels : public WithVariant {
protected:
    // Calls `run(a, b, dst, len)` on random rows of `floats * len` floats at every length and several alignments, and
    // compares dst with `expected(a, b, dst before, i)` within `tolerance(a, b, dst before, i)`.
    using Run = std::function<Status(Row&, Row&, Row&, std::int32_t)>;
    using Oracle = std::function<double(const Row&, const Row&, const Row&, std::size_t)>;

    void sweep(std::size_t floats, const Run& run, const Oracle& expected, const Oracle& tolerance = nullptr)
    {
        std::mt19937 random(20);
        for (const std::int32_t len : lengths()) {
            for (const auto& [offsetA, offsetB, offsetD] :
                 std::array<std::array<std::size_t, 3>, 5>{{{0, 0, 0}, {1, 0, 0}, {0, 3, 0}, {0, 0, 5}, {2, 7, 15}}}) {
                const std::size_t n = floats * static_cast<std::size_t>(len);
                Row a(n, offsetA, random);
                Row b(n, offsetB, random);
                Row dst(n, offsetD, random);
                ASSERT_EQ(run(a, b, dst, len), ippStsNoErr);
                for (std::size_t i = 0; i < n; ++i) {
                    const double wanted = expected(a, b, dst, i);
                    const double allowed = tolerance ? tolerance(a, b, dst, i) : 0.0;
                    ASSERT_TRUE(std::abs(dst[i] - wanted) <= allowed)
                        << "length " << len << ", element " << i << ": " << dst[i] << " instead of " << wanted;
                }
                ASSERT_TRUE(a.guardsIntact() && b.guardsIntact() && dst.guardsIntact()) << "length " << len;
            }
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Variant, Kernels, testing::ValuesIn(testedVariants()), variantName);

// The nearest float. Sums, products and quotients of two floats need no more than a double, so they are exact up to here.
inline double nearest(double x)
{
    return static_cast<double>(static_cast<float>(x));
}

} // namespace quorel

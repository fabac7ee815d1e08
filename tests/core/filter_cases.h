// SPDX-License-Identifier: MIT
// What the tests of the cascades and of the sparse filters share.
#pragma once

#include "core/kernels/filters.h"

#include "tests/core/variants.h"
#include "tests/support/noise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace quorel {

// Runs every test with one variant of the kernels in use.
class Filters : public WithVariant {};

INSTANTIATE_TEST_SUITE_P(Variant, Filters, testing::ValuesIn(testedVariants()), variantName);

template <class Sample>
double peak(const std::vector<Sample>& signal)
{
    double top = 0;
    for (const auto sample : signal)
        top = std::max(top, std::abs(static_cast<double>(sample)));
    return top;
}

// Feeds the stream in blocks, each from and to arrays of no alignment with guards around what may be written.
template <class Filter>
std::vector<float> inBlocks(Filter&& filter, const std::vector<float>& x, const std::function<std::size_t()>& nextLength)
{
    constexpr float guard = 12345.0F;
    std::vector<float> y;
    for (std::size_t at = 0, turn = 0; at < x.size(); ++turn) {
        const std::size_t n = std::min(nextLength(), x.size() - at);
        const std::size_t offsetIn = turn % 16, offsetOut = turn * 7 % 16;
        std::vector<float> in(n + 32, std::numeric_limits<float>::quiet_NaN()), out(n + 32, guard);
        std::copy_n(x.begin() + static_cast<std::ptrdiff_t>(at), n, in.begin() + static_cast<std::ptrdiff_t>(offsetIn));
        filter.process(in.data() + offsetIn, out.data() + offsetOut, n);
        for (std::size_t i = 0; i < out.size(); ++i)
            EXPECT_TRUE(out[i] == guard || (i >= offsetOut && i < offsetOut + n)) << "written outside at " << i;
        y.insert(y.end(), out.begin() + static_cast<std::ptrdiff_t>(offsetOut),
                 out.begin() + static_cast<std::ptrdiff_t>(offsetOut + n));
        at += n;
    }
    return y;
}

template <class Sample>
std::size_t subnormals(const Sample* x, std::size_t n)
{
    return static_cast<std::size_t>(std::count_if(x, x + n, [](Sample v) { return std::fpclassify(v) == FP_SUBNORMAL; }));
}

// Ten seconds of noise and a minute of silence. In all that time a decay passes through subnormal numbers once, if at all, and
// leaves them within the block in which it reaches 1e-30: `state` counts those that a filter still holds.
template <class Filter>
void expectSilenceToSettle(Filter&& filter, const std::function<std::size_t()>& state)
{
    constexpr std::size_t block = 480, second = 48000;
    const auto loud = noise(second, 30);
    const std::vector<float> silence(block);
    std::vector<float> y(block);
    std::size_t inOutput = 0, inState = 0, late = 0;
    for (std::size_t at = 0; at < 70 * second; at += block) {
        const float* x = at < 10 * second ? loud.data() + at % second : silence.data();
        filter.process(x, y.data(), block);
        inOutput += subnormals(y.data(), block);
        inState += state();
        if (at > 25 * second)
            late += static_cast<std::size_t>(std::count_if(y.begin(), y.end(), [](float v) { return v != 0.0F; }));
    }
    EXPECT_LT(inOutput, block);
    EXPECT_EQ(inState, 0U);
    EXPECT_EQ(late, 0U); // fifteen seconds into the silence
}

} // namespace quorel

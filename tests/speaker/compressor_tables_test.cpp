// SPDX-License-Identifier: MIT
#include "speaker/compressor_tables.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>

namespace quorel {
namespace {

TEST(CompressorTables, TheCurveIsTheNearestFloatsToPowersOfTenInStepsOf2dB)
{
    ASSERT_EQ(renderCurve.size(), 18U);
    for (std::size_t i = 0; i < renderCurve.size(); ++i) {
        const double db = 2.0 * static_cast<double>(i);
        EXPECT_EQ(renderCurve[i].level, static_cast<float>(std::pow(10.0, db / 20.0))) << db;
        EXPECT_EQ(renderCurve[i].gain, static_cast<float>(std::pow(10.0, -db / 20.0))) << db;
    }
}

TEST(CompressorTables, TheCoefficientsAreOfOneAndFourHundredMilliseconds)
{
    EXPECT_EQ(std::bit_cast<std::uint32_t>(renderAttack), 0x3CA8E6B3U);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(renderRelease), 0x385A7299U);
    EXPECT_EQ(renderAttack, static_cast<float>(-std::expm1(-1.0 / (48000.0 * 0.001))));
    EXPECT_EQ(renderRelease, static_cast<float>(-std::expm1(-1.0 / (48000.0 * 0.4))));
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
#include "speaker/compressor_tables.h"

#include "tests/speaker/cases.h"

#include <cmath>

namespace quorel {
namespace {

TEST(CompressorTables, TheCurveIsTheNearestFloatsToPowersOfTenInStepsOf2dB)
{
    ASSERT_EQ(renderCurve.size(), 18U);
    for (std::size_t i = 0; i < renderCurve.size(); ++i) {
        const double db = 2.0 * static_cast<double>(i);
        EXPECT_EQ(bits(renderCurve[i].level), bits(static_cast<float>(std::pow(10.0, db / 20.0)))) << db;
        EXPECT_EQ(bits(renderCurve[i].gain), bits(static_cast<float>(std::pow(10.0, -db / 20.0)))) << db;
    }
}

TEST(CompressorTables, TheCoefficientsAreOfOneAndFourHundredMilliseconds)
{
    EXPECT_EQ(bits(renderAttack), 0x3CA8E6B3U);
    EXPECT_EQ(bits(renderRelease), 0x385A7299U);
    EXPECT_EQ(renderAttack, static_cast<float>(-std::expm1(-1.0 / (48000.0 * 0.001))));
    EXPECT_EQ(renderRelease, static_cast<float>(-std::expm1(-1.0 / (48000.0 * 0.4))));
}

} // namespace
} // namespace quorel

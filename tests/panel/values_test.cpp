// SPDX-License-Identifier: MIT
#include "panel/values.h"

#include <gtest/gtest.h>

namespace quorel {
namespace {

const SettingsField& field(const char* name)
{
    return *settingsField(name);
}

// 27 dB over 255 steps from -18 dB: 0 dB is 18 / 27 * 255 = 170. 6 dB over 127 steps: 3 dB is 63.5, and -3.04 dB is nearest to -64.
TEST(TypedValue, IsDecibelsWhereTheFieldStandsForSome)
{
    EXPECT_EQ(typedValue(field("Reverb"), "0"), 170);
    EXPECT_EQ(typedValue(field("EQBand3"), "6"), 127);
    EXPECT_EQ(typedValue(field("EQBand3"), "-6 dB"), -127);
    EXPECT_EQ(typedValue(field("EQBand3"), "-3.04dB"), -64);
}

TEST(ShownText, IsInDecibelsWithASignOrTheWordOff)
{
    EXPECT_EQ(shownText(field("EQBand3"), 127), "+6.0 dB");
    EXPECT_EQ(shownText(field("EQBand3"), -64), "-3.0 dB");
    EXPECT_EQ(shownText(field("EQBand3"), 0), "0.0 dB");
    EXPECT_EQ(shownText(field("EQBand3"), -1), "0.0 dB"); // -0.05 dB, and no -0.0
    EXPECT_EQ(shownText(field("Reverb"), 170), "0.0 dB");
    EXPECT_EQ(shownText(field("Reverb"), 0), "off");
    EXPECT_EQ(shownText(field("micEq"), 2), "2");
}

TEST(TypedValue, TakesAPointAndACommaAndSpacesAround)
{
    EXPECT_EQ(typedValue(field("EQBand1"), "-3,04"), -64);
    EXPECT_EQ(typedValue(field("EQBand1"), "  -3.04 dB "), -64);
}

TEST(TypedValue, IsTheNumberItselfWhereTheFieldStandsForNoDecibels)
{
    EXPECT_EQ(typedValue(field("micEq"), "2"), 2);
}

TEST(TypedValue, TakesOffWhereZeroMeansOff)
{
    EXPECT_EQ(typedValue(field("Reverb"), "off"), 0);
    EXPECT_THROW(typedValue(field("EQBand1"), "off"), std::runtime_error);
}

TEST(TypedValue, RefusesWhatIsNoNumberOrOutOfRange)
{
    for (const char* text : {"", " ", "loud", "7", "-6.1", "1e9", "nan", "3 3", "0x", ",", "dB"})
        EXPECT_THROW(typedValue(field("EQBand5"), text), std::runtime_error) << text;
}

TEST(Decibels, AreToldButForOffAndForPlainNumbers)
{
    EXPECT_DOUBLE_EQ(decibelsAt(field("Reverb"), 255).value(), 9.0);
    EXPECT_DOUBLE_EQ(decibelsAt(field("EQBand1"), 0).value(), 0.0);
    EXPECT_FALSE(decibelsAt(field("Reverb"), 0).has_value());
    EXPECT_FALSE(decibelsAt(field("micEq"), 1).has_value());
}

} // namespace
} // namespace quorel

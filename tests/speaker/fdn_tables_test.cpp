// SPDX-License-Identifier: MIT
#include "speaker/fdn_tables.h"

#include "speaker/speaker_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <string>
#include <vector>

// The tables as compiled, against the formulas behind them, against what they must be for the room to be one, and against the
// sums of the design's columns, which were made from the design's decimals and not from these tables.

namespace quorel {
namespace {

constexpr std::size_t lines = lineCount;

// A column's sum, and its sum with each row weighted by its number from 1 on, so that rows that changed places are found too.
struct Sums {
    double plain, weighted;
};

// Each value may be off by its rounding to a float, half of 2^-23 of its magnitude; sums in double add less than 2^-40.
template <typename Column>
void expectSums(const Column& column, const Sums& expected)
{
    double plain = 0.0, weighted = 0.0, plainError = 0x1p-40, weightedError = 0x1p-40;
    for (std::size_t r = 0; r < column.size(); ++r) {
        const auto value = static_cast<double>(column[r]);
        plain += value;
        weighted += static_cast<double>(r + 1) * value;
        plainError += std::abs(value) * 0x1p-24;
        weightedError += static_cast<double>(r + 1) * std::abs(value) * 0x1p-24;
    }
    EXPECT_NEAR(plain, expected.plain, plainError);
    EXPECT_NEAR(weighted, expected.weighted, weightedError);
}

TEST(FdnTables, TheLinesColumnsHaveTheSumsOfTheDesign)
{
    expectSums(fdnColumn(&FdnLineRow::length), {28021, 223914});
    expectSums(fdnColumn(&FdnLineRow::tapLeft), {8052, 58945});
    expectSums(fdnColumn(&FdnLineRow::gainLeft), {5.615162135, 32.588375843});
    expectSums(fdnColumn(&FdnLineRow::tapRight), {8345, 50780});
    expectSums(fdnColumn(&FdnLineRow::gainRight), {5.449382485, 37.517882348});
    expectSums(fdnColumn(&FdnLineRow::allpassDelay), {455, 3592});
}

TEST(FdnTables, EveryAllpassHasTheSameCoefficient)
{
    for (const FdnLineRow& row : fdnLineTable)
        EXPECT_EQ(row.allpassCoefficient, 0.72F);
}

TEST(FdnTables, TheLinesGrowByAFactorOf112To115Hundredths)
{
    EXPECT_EQ(fdnLineTable[0].length, 1072U);
    for (std::size_t l = 1; l < lines; ++l) {
        const double factor = static_cast<double>(fdnLineTable[l].length) / static_cast<double>(fdnLineTable[l - 1].length);
        EXPECT_GE(std::round(factor * 100), 112) << l;
        EXPECT_LE(std::round(factor * 100), 115) << l;
    }
}

TEST(FdnTables, EveryTapGainFollowsTheDecay)
{
    for (const FdnLineRow& row : fdnLineTable)
        for (const auto& [tap, gain] : {std::pair(row.tapLeft, row.gainLeft), std::pair(row.tapRight, row.gainRight)}) {
            const auto frames = static_cast<double>(tap);
            // The last digit of 0.0012789 stands for half of itself either way, and the gain for its rounding to a float.
            const double law = std::exp(-0.0012789 * frames);
            EXPECT_NEAR(static_cast<double>(gain), law, law * frames * 0.5e-7 + 0x1p-25) << tap;
            EXPECT_EQ(gain, static_cast<float>(std::exp(-0.001278896568 * frames))) << tap;
        }
    EXPECT_EQ(std::round(20 * std::log10(std::numbers::e) * 0.0012789 * 1e4), 111); // 0.0111 dB a frame
    EXPECT_EQ(std::round(std::log(1000.0) / 0.0012789), 5401);                      // frames to -60 dB
}

// ---------------------------------------------------------------------------

TEST(FdnTables, ThePreDelaysAreThoseRequestedForEachSpeaker)
{
    const std::uint64_t requested[] = {44, 40, 48, 38, 51, 42, 48, 44}; // in the order of the mask's bits
    for (std::size_t s = 0; s < speakerTable.size(); ++s)
        EXPECT_EQ(speakerTable[s].preDelay, requested[s]) << s;
}

// ---------------------------------------------------------------------------

TEST(FdnTables, TheMixingTablesColumnsHaveTheSumsOfTheDesign)
{
    const Sums sums[] = {{126, 824}, {66, 423}, {66, 401}, {66, 280}, {66, 390}, {66, 379}};
    for (std::size_t p = 0; p < PairMix::pairs; ++p) {
        std::array<std::int8_t, lines> column{};
        for (std::size_t r = 0; r < lines; ++r)
            column[r] = fdnMixingMatrix[r][p];
        expectSums(column, sums[p]);
    }
}

TEST(FdnTables, TheMixingTableIsAHadamardMatrixWithAFirstColumnOfPlus)
{
    int expanded[lines][lines] = {};
    for (std::size_t r = 0; r < lines; ++r)
        for (std::size_t p = 0; p < PairMix::pairs; ++p) {
            const int entry = fdnMixingMatrix[r][p];
            ASSERT_TRUE(entry == 11 || entry == 10 || entry == 1 || entry == 0) << entry;
            expanded[r][2 * p] = entry / 10 == 1 ? 1 : -1;
            expanded[r][2 * p + 1] = entry % 10 == 1 ? 1 : -1;
        }
    for (std::size_t r = 0; r < lines; ++r) {
        EXPECT_EQ(expanded[r][0], 1);
        for (std::size_t s = 0; s < lines; ++s) {
            int product = 0;
            for (std::size_t c = 0; c < lines; ++c)
                product += expanded[r][c] * expanded[s][c];
            EXPECT_EQ(product, r == s ? 12 : 0) << "rows " << r << " and " << s;
        }
    }
}

// ---------------------------------------------------------------------------

TEST(FdnTables, TheLineFiltersColumnsHaveTheSumsOfTheDesign)
{
    const Sums sums[12] = {{2.6741901575, 11.9871616688},     // b0
                           {0.69725574092, 2.23947377314},    // b1
                           {-0.028298581893, 0.299924795142}, // b2
                           {12, 78},                          // a0: all 1
                           {-4.6141874915, -45.2286068935},   // a1
                           {-0.03704498426, 5.82470156818},   // a2
                           {12, 78},                          // b0 of the second section: all 1
                           {-6.791772635, -50.324345721},     // b1
                           {4.239953117, 31.824936345},       // b2
                           {12, 78},                          // a0: all 1
                           {-8.067058801, -57.827980211},     // a1
                           {4.700703056, 35.287810601}};      // a2
    for (std::size_t k = 0; k < 12; ++k) {
        SCOPED_TRACE("coefficient " + std::to_string(k));
        std::array<float, lines> column{};
        for (std::size_t l = 0; l < lines; ++l)
            column[l] = fdnLineFilters[l][k];
        expectSums(column, sums[k]);
    }
}

TEST(FdnTables, TheOutputFiltersColumnsHaveTheSumsOfTheDesign)
{
    const Sums sums[6] = {{3.427282631, 9.427282631},   // b0
                          {-1.811266307, -8.312014356}, // b1
                          {2.0623637063, 6.2439185593}, // b2
                          {4, 10},                      // a0: all 1
                          {-1.956126871, -8.485381584}, // a1
                          {1.681107879, 5.861658217}};  // a2
    for (std::size_t k = 0; k < 6; ++k) {
        SCOPED_TRACE("coefficient " + std::to_string(k));
        std::array<float, 4> column{};
        for (std::size_t s = 0; s < 4; ++s)
            column[s] = fdnOutputFilter[6 * s + k];
        expectSums(column, sums[k]);
    }
}

TEST(FdnTables, TheSectionsAreNormalised)
{
    for (const auto& filter : fdnLineFilters) {
        EXPECT_EQ(filter[3], 1.0F);
        EXPECT_EQ(filter[6], 1.0F); // b0 of the second section
        EXPECT_EQ(filter[9], 1.0F);
    }
    for (std::size_t s = 0; s < 4; ++s) {
        EXPECT_EQ(fdnOutputFilter[6 * s + 3], 1.0F);
        if (s > 0) {
            EXPECT_EQ(fdnOutputFilter[6 * s], 1.0F);
        }
    }
}

// The gain of a cascade at a frequency in radians a frame.
template <typename Taps>
double gainOf(const Taps& taps, double frequency)
{
    const auto z = std::polar(1.0, -frequency);
    std::complex<double> gain = 1.0;
    for (std::size_t s = 0; s < taps.size(); s += 6) {
        const auto polynomial = [&](std::size_t k) {
            return static_cast<double>(taps[k]) + static_cast<double>(taps[k + 1]) * z + static_cast<double>(taps[k + 2]) * z * z;
        };
        gain *= polynomial(s) / polynomial(s + 3);
    }
    return std::abs(gain);
}

// Both poles of a section with an a0 of 1 lie within the unit circle when |a2| < 1 and |a1| < 1 + a2.
template <typename Taps>
void expectStable(const Taps& taps)
{
    for (std::size_t s = 0; s < taps.size(); s += 6) {
        EXPECT_LT(std::abs(taps[s + 5]), 1.0F) << s;
        EXPECT_LT(std::abs(taps[s + 4]), 1.0F + taps[s + 5]) << s;
    }
}

TEST(FdnTables, EveryFilterIsStable)
{
    for (const auto& filter : fdnLineFilters)
        expectStable(filter);
    expectStable(fdnOutputFilter);
}

TEST(FdnTables, EveryLineDecaysAndSlowestAt0Hz)
{
    for (std::size_t l = 0; l < lines; ++l) {
        const double at0 = gainOf(fdnLineFilters[l], 0.0);
        EXPECT_LT(at0, 1.0);
        for (int k = 1; k <= 1000; ++k)
            EXPECT_LT(gainOf(fdnLineFilters[l], k * std::numbers::pi / 1000), at0) << l << ", " << k;
    }
}

TEST(FdnTables, EveryLineDecaysBy60DbIn386To389MillisecondsAt0Hz)
{
    for (std::size_t l = 0; l < lines; ++l) {
        const double lapDb = -20 * std::log10(gainOf(fdnLineFilters[l], 0.0));
        const double milliseconds = 60 / lapDb * static_cast<double>(fdnLineTable[l].length) / 48;
        EXPECT_GE(std::round(milliseconds), 386) << l;
        EXPECT_LE(std::round(milliseconds), 389) << l;
    }
}

TEST(FdnTables, TheFirstCoefficientFallsAsTheLinesGrow)
{
    for (std::size_t l = 1; l < lines; ++l)
        EXPECT_LT(fdnLineFilters[l][0], fdnLineFilters[l - 1][0]) << l;
}

} // namespace
} // namespace quorel

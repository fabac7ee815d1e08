// SPDX-License-Identifier: MIT
#include "speaker/hrtf_tables.h"
#include "speaker/xcorr_tables.h"

#include "speaker/speaker_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

// The tables as compiled, against the figures that they were designed for. Transforms are plain sums in double.

namespace quorel {
namespace {

constexpr std::size_t size = 1024; // of the transform in which the path uses the responses
constexpr double pi = std::numbers::pi;

using Spectrum = std::vector<std::complex<double>>;

// X[k] = sum x[n] * exp(-2*pi*i*n*k/1024), k from 0 to 512.
template <typename Taps>
Spectrum transform(const Taps& taps, std::size_t onset = 0)
{
    Spectrum bins(size / 2 + 1);
    for (std::size_t k = 0; k < bins.size(); ++k)
        for (std::size_t n = 0; n < taps.size(); ++n)
            bins[k] +=
                static_cast<double>(taps[n]) * std::polar(1.0, -2 * pi * static_cast<double>((onset + n) * k % size) / size);
    return bins;
}

// The frames of a spectrum whose real and imaginary parts are rounded to floats, as a path holds it.
std::vector<double> framesOfRounded(const Spectrum& bins)
{
    std::vector<double> frames(size);
    for (std::size_t n = 0; n < size; ++n)
        for (std::size_t k = 0; k <= size / 2; ++k) {
            const std::complex<double> held(static_cast<float>(bins[k].real()), static_cast<float>(bins[k].imag()));
            const double angle = 2 * pi * static_cast<double>(n * k % size) / size;
            const double twice = k == 0 || k == size / 2 ? 1.0 : 2.0; // every other bin has a conjugate
            frames[n] += twice * (held * std::polar(1.0, angle)).real() / size;
        }
    return frames;
}

double decibels(double power)
{
    return 10 * std::log10(power);
}

// ---------------------------------------------------------------------------

struct HrtfRow {
    const char* name;
    std::size_t speaker; // index in speakerTable
    EarResponse SpeakerResponses::*ear;
    std::size_t firstTap, lastTap;
    double largest, element0, element1023, energy;
};

// clang-format off
const HrtfRow hrtfRows[] = {
    //                          index  ear                       first last  largest element 0 element 1023 energy
    {"front left, left",        0, &SpeakerResponses::left,   6,  145, 0.8105, 0.7228,  0.6295, 0.990},
    {"front left, right",       0, &SpeakerResponses::right, 16,  155, 0.2440, 0.6299,  0.1635, 0.119},
    {"front right, left",       1, &SpeakerResponses::left,  16,  155, 0.2006, 0.6710,  0.0705, 0.100},
    {"front right, right",      1, &SpeakerResponses::right,  6,  145, 0.9835, 0.7348,  0.7234, 1.430},
    {"front centre, left",      2, &SpeakerResponses::left,  10,  149, 0.6052, 0.7176,  0.3060, 0.489},
    {"front centre, right",     2, &SpeakerResponses::right, 11,  150, 0.4768, 0.6874, -0.2770, 0.366},
    {"low frequency, left",     3, &SpeakerResponses::left,  11,   11, 0.7070, 0.7070, -0.7070, 0.500},
    {"low frequency, right",    3, &SpeakerResponses::right, 11,   11, 0.7070, 0.7070, -0.7070, 0.500},
    {"back left, left",         4, &SpeakerResponses::left,   7,  146, 0.6196, 0.6768, -0.3257, 0.529},
    {"back left, right",        4, &SpeakerResponses::right, 19,  158, 0.2696, 0.5128, -0.1316, 0.117},
    {"back right, left",        5, &SpeakerResponses::left,  20,  159, 0.2218, 0.5239,  0.0567, 0.113},
    {"back right, right",       5, &SpeakerResponses::right,  6,  145, 0.7301, 0.7056,  0.3378, 0.716},
    {"side left, left",         6, &SpeakerResponses::left,   0,  139, 1.4336, 0.8016,  0.8171, 2.733},
    {"side left, right",        6, &SpeakerResponses::right, 24,  162, 0.0782, 0.5065,  0.0334, 0.022},
    {"side right, left",        7, &SpeakerResponses::left,  29,  168, 0.0779, 0.5777, -0.0313, 0.030},
    {"side right, right",       7, &SpeakerResponses::right,  2,  141, 1.4887, 0.8345,  0.7965, 3.021},
};
// clang-format on

// A figure printed with four or three decimals names every value within half of its last place.
constexpr double fourDecimals = 0.5e-4;
constexpr double threeDecimals = 0.5e-3;

const EarResponse& responseOf(const HrtfRow& row)
{
    return speakerResponses[row.speaker].*row.ear;
}

double energy(const EarResponse& response)
{
    return std::accumulate(response.taps.begin(), response.taps.end(), 0.0, [](double sum, double x) { return sum + x * x; });
}

TEST(HrtfTables, EveryResponseBeginsAndEndsAtTheTapsOfItsRow)
{
    for (const HrtfRow& row : hrtfRows) {
        SCOPED_TRACE(row.name);
        const EarResponse& response = responseOf(row);
        EXPECT_EQ(response.onset, row.firstTap);
        const auto length = row.lastTap - row.firstTap + 1;
        ASSERT_LE(length, response.taps.size());
        EXPECT_NE(response.taps[0], 0.0F);
        EXPECT_NE(response.taps[length - 1], 0.0F);
        for (std::size_t n = length; n < response.taps.size(); ++n)
            EXPECT_EQ(response.taps[n], 0.0F) << n;
    }
}

TEST(HrtfTables, NoResponseReachesBeyondTap168)
{
    std::size_t highest = 0;
    for (const HrtfRow& row : hrtfRows)
        for (std::size_t n = 0; n < responseTaps; ++n)
            if (responseOf(row).taps[n] != 0.0F)
                highest = std::max(highest, responseOf(row).onset + n);
    EXPECT_EQ(highest, 168U);
}

TEST(HrtfTables, TheFirstTapIsTheLargestAndHasTheValueOfItsRow)
{
    for (const HrtfRow& row : hrtfRows) {
        SCOPED_TRACE(row.name);
        const auto& taps = responseOf(row).taps;
        EXPECT_NEAR(taps[0], row.largest, fourDecimals);
        for (std::size_t n = 1; n < taps.size(); ++n)
            EXPECT_LT(std::abs(taps[n]), 0.96F * taps[0]) << n;
    }
}

TEST(HrtfTables, TheSpectraHaveTheEndElementsOfTheirRows)
{
    for (const HrtfRow& row : hrtfRows) {
        SCOPED_TRACE(row.name);
        const Spectrum bins = transform(responseOf(row).taps, responseOf(row).onset);
        EXPECT_NEAR(bins[0].real(), row.element0, fourDecimals);
        EXPECT_NEAR(bins[size / 2].real(), row.element1023, fourDecimals);
    }
}

TEST(HrtfTables, EveryResponseHasTheEnergyOfItsRow)
{
    for (const HrtfRow& row : hrtfRows) {
        SCOPED_TRACE(row.name);
        EXPECT_NEAR(energy(responseOf(row)), row.energy, threeDecimals);
    }
}

TEST(HrtfTables, TheWooferReachesBothEarsAsOneTapOfTheFloatNearest0707)
{
    for (const EarResponse& response : {speakerResponses[3].left, speakerResponses[3].right}) {
        EXPECT_EQ(response.onset, 11U);
        EXPECT_EQ(response.taps[0], 0.707F);
        EXPECT_TRUE(std::all_of(response.taps.begin() + 1, response.taps.end(), [](float x) { return x == 0.0F; }));
    }
}

TEST(HrtfTables, TheRowsStandInTheOrderOfTheSpeakerTable)
{
    const std::uint32_t bits[] = {0x1, 0x2, 0x4, 0x8, 0x10, 0x20, 0x200, 0x400};
    ASSERT_EQ(speakerResponses.size(), speakerTable.size());
    for (std::size_t s = 0; s < speakerTable.size(); ++s)
        EXPECT_EQ(speakerTable[s].bit, bits[s]) << s;
}

// The parts of a spectrum are below 4, so each is off by half a unit of 2^-22 at most, and a frame of its inverse by
// (511 * 4 + 2) / 1024 as much: 2.4e-7. The first and last taps stand a tenfold above that.
TEST(HrtfTables, ASpectrumOfFloatsIsSilentOutsideItsResponse)
{
    for (const HrtfRow& row : hrtfRows) {
        SCOPED_TRACE(row.name);
        const auto frames = framesOfRounded(transform(responseOf(row).taps, responseOf(row).onset));
        for (std::size_t n = 0; n < size; ++n)
            if (n < row.firstTap || n > row.lastTap) {
                EXPECT_LT(std::abs(frames[n]), 2.4e-7) << n;
            }
        EXPECT_GT(std::abs(frames[row.firstTap]), 2.4e-6);
        EXPECT_GT(std::abs(frames[row.lastTap]), 2.4e-6);
    }
}

TEST(HrtfTables, AtMostAThousandthOfTheEnergyComes100FramesPastTheOnset)
{
    for (const HrtfRow& row : hrtfRows) {
        SCOPED_TRACE(row.name);
        const auto& taps = responseOf(row).taps;
        const double late =
            std::accumulate(taps.begin() + 101, taps.end(), 0.0, [](double sum, double x) { return sum + x * x; });
        EXPECT_LT(late, 1e-3 * energy(responseOf(row)));
    }
}

TEST(HrtfTables, TheNearEarsAdvantageRisesWithFrequency)
{
    for (const std::size_t speaker : {0U, 1U, 4U, 5U, 6U, 7U}) {
        SCOPED_TRACE(speaker);
        const bool onTheLeft = speaker % 2 == 0;
        const SpeakerResponses& pair = speakerResponses[speaker];
        const Spectrum nearEar = transform((onTheLeft ? pair.left : pair.right).taps);
        const Spectrum farEar = transform((onTheLeft ? pair.right : pair.left).taps);
        const auto advantage = [&](double low, double high) {
            double atNear = 0.0;
            double atFar = 0.0;
            for (std::size_t k = 0; k < nearEar.size(); ++k) {
                const double frequency = static_cast<double>(k) * 48000 / size;
                if (frequency >= low && frequency < high) {
                    atNear += std::norm(nearEar[k]);
                    atFar += std::norm(farEar[k]);
                }
            }
            return decibels(atNear / atFar);
        };
        EXPECT_GT(advantage(0, 1000), 0.0);
        EXPECT_GT(advantage(1000, 4000), advantage(0, 1000));
        EXPECT_GT(advantage(4000, 16000), advantage(1000, 4000));
    }
}

// The figures above leave a tap its freedom; the design does not. CRC-32 of the taps as little-endian floats, by zlib's crc32
// over what the design programs write.
template <typename Taps>
std::uint32_t checkSum(const Taps& taps)
{
    std::uint32_t sum = ~0U;
    for (const float tap : taps)
        for (int bit = 0; bit < 32; ++bit)
            sum = sum >> 1U ^ (((sum ^ std::bit_cast<std::uint32_t>(tap) >> bit) & 1U) != 0 ? 0xEDB88320U : 0U);
    return ~sum;
}

// clang-format off
constexpr std::uint32_t checkSums[][2] = { // left ear, right ear
    {0x5AD91A54, 0xAB5E1B35},
    {0xC8F1C36B, 0xE5B38C78},
    {0x12873ACC, 0xEE4B7736},
    {0x8E080E62, 0x8E080E62},
    {0x1EB5CA14, 0x7A545C93},
    {0xEA3F0DAE, 0xDE70C61B},
    {0x9B136EF5, 0x11598CB5},
    {0xBF6FA4BC, 0xEBFDD33F},
};
// clang-format on

TEST(HrtfTables, EveryTapIsTheDesigns)
{
    for (std::size_t s = 0; s < std::size(checkSums); ++s) {
        EXPECT_EQ(checkSum(speakerResponses[s].left.taps), checkSums[s][0]) << s;
        EXPECT_EQ(checkSum(speakerResponses[s].right.taps), checkSums[s][1]) << s;
    }
}

TEST(XcorrTaps, EveryTapIsTheDesigns)
{
    EXPECT_EQ(checkSum(sameSideTaps), 0xE29A1562U);
    EXPECT_EQ(checkSum(crossSideTaps), 0xD5823EA7U);
}

// ---------------------------------------------------------------------------

enum class Phase { same, opposite, free };

struct XcorrRow {
    std::size_t bin;
    double h1, h2;
    Phase phase; // of H2 against H1
    double correlation;
};

// H2 at bin 427 is only asked to be below 0.0001 and has a test of its own.
// clang-format off
const XcorrRow xcorrRows[] = {
    // bin  H1      H2      phase            correlation
    {  0, 0.8700, 0.6924, Phase::same,     0.9745},
    {  2, 0.8902, 0.6426, Phase::same,     0.9491},
    {  4, 0.9431, 0.5067, Phase::same,     0.8339},
    {  6, 1.0094, 0.3214, Phase::same,     0.5782},
    { 11, 1.1067, 0.0674, Phase::opposite, 0.1213},
    { 15, 1.0870, 0.1121, Phase::opposite, 0.2041},
    { 21, 1.0795, 0.0255, Phase::same,     0.0471},
    { 43, 1.0927, 0.0093, Phase::same,     0.0170},
    { 85, 1.0909, 0.0012, Phase::free,     0.0022},
    {171, 1.0888, 0.0006, Phase::free,     0.0011},
    {341, 1.0868, 0.0002, Phase::free,     0.0004},
    {427, 0.9862, 0.0000, Phase::free,     0.0001},
    {512, 0.1084, 0.0001, Phase::free,     0.0025},
};
// clang-format on

constexpr std::size_t bin1kHz = 21;
constexpr std::size_t bin2kHz = 43;
constexpr std::size_t bin16kHz = 341;

std::complex<double> responseAt(const std::array<float, xcorrTaps>& taps, double hertz)
{
    std::complex<double> sum;
    for (std::size_t n = 0; n < xcorrTaps; ++n)
        sum += static_cast<double>(taps[n]) * std::polar(1.0, -2 * pi * hertz / 48000 * static_cast<double>(n));
    return sum;
}

struct XcorrTables : testing::Test {
    const Spectrum h1 = transform(sameSideTaps);
    const Spectrum h2 = transform(crossSideTaps);
};

TEST_F(XcorrTables, TheMagnitudesHaveEveryDigitOfTheirRows)
{
    for (const XcorrRow& row : xcorrRows) {
        SCOPED_TRACE(row.bin);
        EXPECT_NEAR(std::abs(h1[row.bin]), row.h1, fourDecimals);
        if (row.bin != 427) {
            EXPECT_NEAR(std::abs(h2[row.bin]), row.h2, fourDecimals);
        }
    }
}

TEST_F(XcorrTables, TheCrossSideIsBelowATenThousandthAt20kHz)
{
    EXPECT_LT(std::abs(h2[427]), 1e-4);
}

TEST_F(XcorrTables, TheFiltersAreInPhaseOrOppositeWithinThreeDegrees)
{
    for (const XcorrRow& row : xcorrRows) {
        if (row.phase == Phase::free)
            continue;
        SCOPED_TRACE(row.bin);
        const double sign = row.phase == Phase::same ? 1.0 : -1.0;
        EXPECT_LT(std::abs(std::arg(sign * h2[row.bin] / h1[row.bin])), 3.0 * pi / 180);
    }
}

TEST_F(XcorrTables, TheCorrelationOfTheOutputsHasEveryDigitOfItsRows)
{
    for (const XcorrRow& row : xcorrRows) {
        SCOPED_TRACE(row.bin);
        const double a = std::abs(h1[row.bin]);
        const double b = std::abs(h2[row.bin]);
        EXPECT_NEAR(2 * a * b / (a * a + b * b), row.correlation, fourDecimals);
    }
}

TEST_F(XcorrTables, TheFirstPackedElementsHaveEveryDigit)
{
    const double first[] = {0.8700, 0.7963, -0.3631, 0.5838, -0.6720, 0.2592, -0.8760, -0.1314};
    const double second[] = {0.6924, 0.6186, -0.2817, 0.4218, -0.4847, 0.1662, -0.5594, -0.0700};
    for (std::size_t i = 0; i < std::size(first); ++i) {
        SCOPED_TRACE(i);
        const auto element = [i](const Spectrum& h) { // real bin 0, then real and imaginary of 1, 2, ...
            return i == 0 || i % 2 == 1 ? h[(i + 1) / 2].real() : h[i / 2].imag();
        };
        EXPECT_NEAR(element(h1), first[i], fourDecimals);
        EXPECT_NEAR(element(h2), second[i], fourDecimals);
    }
}

TEST_F(XcorrTables, TheSameSidesMainTapsAre69And70)
{
    EXPECT_NEAR(sameSideTaps[70], 0.8430, fourDecimals);
    EXPECT_NEAR(sameSideTaps[69], 0.4899, fourDecimals);
    for (std::size_t n = 0; n < xcorrTaps; ++n)
        if (n != 69 && n != 70) {
            EXPECT_LT(std::abs(sameSideTaps[n]), 0.5F * sameSideTaps[69]) << n;
        }
}

// "About 0.0066" is taken for that within an eighth.
TEST_F(XcorrTables, TheCrossSideIsABroadPulseOfAbout00066)
{
    EXPECT_NEAR(std::accumulate(crossSideTaps.begin(), crossSideTaps.end(), 0.0), 0.6924, fourDecimals);
    for (std::size_t n = 35; n <= 105; ++n)
        EXPECT_NEAR(crossSideTaps[n], 0.0066, 0.0066 / 8) << n;
    EXPECT_GE(*std::min_element(crossSideTaps.begin(), crossSideTaps.end()), -0.0066F / 6) << "what it swings before the pulse";
}

TEST_F(XcorrTables, TheSameSideIsADelayOf6966FramesWithAFlatGainFrom2To16kHz)
{
    for (std::size_t k = bin2kHz; k <= bin16kHz; ++k) {
        SCOPED_TRACE(k);
        EXPECT_GT(std::abs(h1[k]), 1.084);
        EXPECT_LT(std::abs(h1[k]), 1.095);
        const auto undelayed = h1[k] * std::polar(1.0, 2 * pi * static_cast<double>(k) * 69.66 / size);
        EXPECT_LT(std::abs(std::arg(undelayed)), 3.0 * pi / 180);
    }
}

TEST_F(XcorrTables, TheCrossSideFallsToHalfNear270Hz)
{
    EXPECT_NEAR(std::abs(responseAt(crossSideTaps, 270)), 0.5 * 0.6924, 0.01);
}

// No 140 taps that meet the rows stay below 0.0353 from 1 kHz on, which design/xcorr_bound.py proves; 0.041 leaves them what
// they need to be a low-pass at all. At the rows' own frequencies, and from 2.5 kHz on everywhere, they are under 0.03.
TEST_F(XcorrTables, TheCrossSideStaysAtOrBelow0041From1kHzOn)
{
    for (const XcorrRow& row : xcorrRows)
        if (row.bin >= bin1kHz) {
            EXPECT_LT(std::abs(h2[row.bin]), 0.03) << row.bin;
        }
    // Steps of 4 Hz: 140 taps turn their response by at most 140 * 2 pi * 2 / 48000 = 0.04 from the nearest one.
    for (int hertz = 1000; hertz <= 24000; hertz += 4)
        EXPECT_LE(std::abs(responseAt(crossSideTaps, hertz)), hertz < 2500 ? 0.041 : 0.03) << hertz;
}

} // namespace
} // namespace quorel

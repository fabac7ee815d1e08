// SPDX-License-Identifier: MIT
#include "microphone/window_tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <span>
#include <string>
#include <vector>

// The windows as compiled, against the figures that they were designed for. Everything is computed in double from the floats.

namespace quorel {
namespace {

struct Pin {
    std::size_t index;
    float value;
};

struct Window {
    std::string name;
    std::span<const float> entries;
    std::vector<Pin> pins; // each stands at its mirror image too
    float peak;            // the largest entry
    double edge;           // bins, where the stop band begins
    double beta;           // of the Kaiser window that it is close to
};

struct Rate {
    std::size_t fftLength;
    std::size_t hop;
    std::size_t latency; // samples
    double stopBand;     // dB over the value at 0, which nothing from the edge on reaches
    Window analysis;
    Window synthesis;
};

const std::vector<Rate> rates = {
    {512,
     80,
     431,
     -80.0,
     {"analysis at 16000",
      analysisWindow16000,
      {{0, 3.99019314e-07F},
       {1, 5.24563575e-07F},
       {2, 5.95081758e-07F},
       {140, 0.000499323418F},
       {279, 0.00195312733F},
       {280, 0.001953125F}},
      0.00195312733F,
      3.25,
      10.7},
     {"synthesis at 16000",
      synthesisWindow16000,
      {{0, 0.000149485975F},
       {1, 0.000180729185F},
       {2, 0.000213784704F},
       {115, 0.146991923F},
       {229, 0.586934149F},
       {230, 0.586988568F}},
      0.586988568F,
      4.0,
      10.9}},
    {1024,
     240,
     782,
     -70.0,
     {"analysis at 48000",
      analysisWindow48000,
      {{0, 7.33999968e-06F},
       {1, 7.76250545e-06F},
       {2, 7.94047901e-06F},
       {256, 0.000423024816F},
       {511, 0.00101598108F},
       {512, 0.0010157543F},
       {513, 0.0009765625F}},
      0.00101598108F,
      4.25,
      7.05},
     {"synthesis at 48000",
      synthesisWindow48000,
      {{0, 0.00398179749F},
       {1, 0.00417028228F},
       {2, 0.00432822667F},
       {254, 0.272381157F},
       {507, 0.678178668F},
       {508, 0.678155839F}},
      0.678178668F,
      4.25,
      7.3}},
};

std::vector<Window> windows()
{
    std::vector<Window> all;
    for (const Rate& rate : rates) {
        all.push_back(rate.analysis);
        all.push_back(rate.synthesis);
    }
    return all;
}

std::vector<double> widened(std::span<const float> entries)
{
    return {entries.begin(), entries.end()};
}

// The spectrum of a symmetric window without its delay:  W(f) = w[centre] + 2 * sum of w[centre + k] * cos(2 * pi * f * k).
double response(const std::vector<double>& window, double cyclesPerSample)
{
    const auto centre = window.size() / 2;
    double sum = window[centre];
    for (std::size_t k = 1; k <= centre; ++k)
        sum += 2 * window[centre + k] * std::cos(2 * std::numbers::pi * cyclesPerSample * static_cast<double>(k));
    return sum;
}

// The largest level in dB over the value at 0 between two bins, on a grid of a sixteenth of a bin. A side lobe is about a bin
// wide, so its top lies at most 1/32 from the grid, where a half wave is less than 0.05 dB lower.
double largestLevel(const Window& window, std::size_t fftLength, double from, double to)
{
    const auto w = widened(window.entries);
    double largest = 0.0;
    for (double bin = from; bin <= to; bin += 1.0 / 16)
        largest = std::max(largest, std::abs(response(w, bin / static_cast<double>(fftLength))));
    return 20 * std::log10(largest / response(w, 0.0)) + 0.05;
}

// I0(x) = sum over k of ((x / 2)^k / k!)^2
double besselI0(double x)
{
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; k < 60; ++k) {
        term *= x / (2.0 * k);
        sum += term * term;
    }
    return sum;
}

// How far the window lies from its Kaiser window, in parts of the peak, at a distance from the centre.
double apartFromKaiser(const Window& window, std::size_t distance)
{
    const auto centre = window.entries.size() / 2;
    const double u = static_cast<double>(distance) / static_cast<double>(centre);
    const double kaiser = besselI0(window.beta * std::sqrt(1 - u * u)) / besselI0(window.beta);
    return std::abs(static_cast<double>(window.entries[centre + distance]) / static_cast<double>(window.peak) - kaiser);
}

// ---------------------------------------------------------------------------

TEST(WindowTables, EveryPinnedEntryAndItsMirrorImageIsExact)
{
    for (const Window& window : windows())
        for (const Pin& pin : window.pins) {
            EXPECT_EQ(window.entries[pin.index], pin.value) << window.name << " " << pin.index;
            EXPECT_EQ(window.entries[window.entries.size() - 1 - pin.index], pin.value) << window.name << " " << pin.index;
        }
}

TEST(WindowTables, EveryWindowIsSymmetricToTheBit)
{
    for (const Window& window : windows())
        for (std::size_t i = 0; i < window.entries.size(); ++i)
            EXPECT_EQ(window.entries[i], window.entries[window.entries.size() - 1 - i]) << window.name << " " << i;
}

TEST(WindowTables, EveryEntryIsAboveZeroAndAtMostThePeak)
{
    for (const Window& window : windows()) {
        EXPECT_GT(*std::ranges::min_element(window.entries), 0.0F) << window.name;
        EXPECT_EQ(*std::ranges::max_element(window.entries), window.peak) << window.name;
    }
}

TEST(WindowTables, TheAnalysisWindowAt48000DipsAtItsCentreByFourPercent)
{
    const auto& w = analysisWindow48000;
    for (const std::size_t i : {511U, 515U})
        EXPECT_EQ(w[i], 0.00101598108F);
    EXPECT_NEAR(1.0 - static_cast<double>(w[513]) / static_cast<double>(w[511]), 0.04, 0.005);
    // The entries beside the dip stay level with its rim.
    for (std::size_t i = 501; i < 511; ++i)
        EXPECT_GT(w[i], 0.996F * w[511]) << i;
}

// Rounding to floats alone moves a sum of products by at most 2 * 2^-24 = 1.2e-7 of it.
TEST(WindowTables, ThePairOfARateIsComplementaryWithinAMillionth)
{
    for (const Rate& rate : rates) {
        const auto a = widened(rate.analysis.entries);
        const auto s = widened(rate.synthesis.entries);
        for (std::size_t t = 0; t < rate.hop; ++t) {
            double sum = 0.0;
            // a(x) is entry x + 280 or x + 513; every t + m * hop at which both windows have entries.
            for (auto x = static_cast<std::ptrdiff_t>(t) - 3 * static_cast<std::ptrdiff_t>(rate.hop); x <= 508;
                 x += static_cast<std::ptrdiff_t>(rate.hop)) {
                const auto inA = static_cast<std::size_t>(x + static_cast<std::ptrdiff_t>(a.size() / 2));
                const auto inS = static_cast<std::size_t>(x + static_cast<std::ptrdiff_t>(s.size() / 2));
                if (inA < a.size() && inS < s.size()) // a negative index wraps to a large one
                    sum += a[inA] * s[inS];
            }
            EXPECT_LT(std::abs(static_cast<double>(rate.fftLength) * sum - 1), 1e-6) << rate.analysis.name << " t " << t;
        }
    }
}

TEST(WindowTables, FromTheEdgeOnAllIs80DecibelsBelowAt16000And70At48000)
{
    for (const Rate& rate : rates)
        for (const Window& window : {rate.analysis, rate.synthesis})
            EXPECT_LT(largestLevel(window, rate.fftLength, window.edge, static_cast<double>(rate.fftLength) / 2), rate.stopBand)
                << window.name;
}

// The price of the stop band at 48000: the two lobes between the first zero, near 2.4 bins, and the edge.
TEST(WindowTables, TheFirstSideLobesAt48000Stay40DecibelsBelow)
{
    EXPECT_LT(largestLevel(rates[1].analysis, 1024, 2.4, 4.25), -40.0);
    EXPECT_LT(largestLevel(rates[1].synthesis, 1024, 2.4, 4.25), -40.0);
}

TEST(WindowTables, TheWindowsAt16000LieWithinAFifthOfAPercentOfKaiserWindows)
{
    for (const Window& window : {rates[0].analysis, rates[0].synthesis})
        for (std::size_t k = 0; k <= window.entries.size() / 2; ++k)
            EXPECT_LT(apartFromKaiser(window, k), 0.002) << window.name << " " << k;
}

// Those at 48000 are Kaiser windows but for the dip, the entries one hop from the centre that make up for it, and skirts that
// are lower by up to 1.4 % of the peak, as the stop band wants them.
TEST(WindowTables, TheWindowsAt48000LieCloseToKaiserWindows)
{
    for (const Window& window : {rates[1].analysis, rates[1].synthesis})
        for (std::size_t k = 1; k <= window.entries.size() / 2; ++k)
            EXPECT_LT(apartFromKaiser(window, k), k == 240 ? 0.02 : 0.014) << window.name << " " << k;
}

// Weighted overlap-add in its plainest form. Two unscaled inverse transforms in a row are fftLength times the frame with its
// time reversed, so none is needed where the spectrum stays as it is.
class Chain {
public:
    explicit Chain(const Rate& rate)
        : fftLength(rate.fftLength),
          hop(rate.hop),
          a(widened(rate.analysis.entries)),
          s(widened(rate.synthesis.entries)),
          history(a.size()),
          overlap(s.size())
    {
    }

    std::vector<double> process(const std::vector<double>& in)
    {
        // The history is newest first.
        std::shift_right(history.begin(), history.end(), static_cast<std::ptrdiff_t>(hop));
        std::ranges::reverse_copy(in, history.begin());

        // The window's centre lands at index 0 of the folded frame.
        std::vector<double> folded(fftLength);
        for (std::size_t k = 0; k < a.size(); ++k)
            folded[(k + fftLength - a.size() / 2) % fftLength] += a[k] * history[k];

        // Sample k of the windowed frame is sample k - centre of the frame, which repeats every fftLength.
        for (std::size_t k = 0; k < s.size(); ++k) {
            const auto n = (k + fftLength - s.size() / 2) % fftLength;
            overlap[k] += s[k] * static_cast<double>(fftLength) * folded[(fftLength - n) % fftLength];
        }
        const auto next = overlap.begin() + static_cast<std::ptrdiff_t>(hop);
        std::vector<double> out(overlap.begin(), next);
        std::shift_left(overlap.begin(), overlap.end(), static_cast<std::ptrdiff_t>(hop));
        std::fill(overlap.end() - static_cast<std::ptrdiff_t>(hop), overlap.end(), 0.0);
        return out;
    }

private:
    std::size_t fftLength;
    std::size_t hop;
    std::vector<double> a;
    std::vector<double> s;
    std::vector<double> history;
    std::vector<double> overlap;
};

// The amplitude differs from 1 by what the windows' sum differs. All else is silence: the folded ends of the analysis window
// lie outside the synthesis window.
TEST(WindowTables, AnImpulseAnywhereInTheHopComesOutAloneBehindTheLatency)
{
    for (const Rate& rate : rates)
        for (std::size_t position = 0; position < rate.hop; ++position) {
            Chain chain(rate);
            std::vector<double> in(rate.hop);
            in[position] = 1.0;
            std::vector<double> out;
            for (std::size_t frame = 0; frame < 16; ++frame) {
                const auto frameOut = chain.process(in);
                out.insert(out.end(), frameOut.begin(), frameOut.end());
                in[position] = 0.0;
            }
            // Through all positions of the analysis window, and out of the synthesis window behind the last.
            ASSERT_GE(out.size(), rate.analysis.entries.size() + rate.synthesis.entries.size());
            for (std::size_t i = 0; i < out.size(); ++i)
                if (i == position + rate.latency)
                    EXPECT_NEAR(out[i], 1.0, 1e-6) << rate.analysis.name << " position " << position;
                else
                    EXPECT_EQ(out[i], 0.0) << rate.analysis.name << " position " << position << " sample " << i;
        }
}

} // namespace
} // namespace quorel

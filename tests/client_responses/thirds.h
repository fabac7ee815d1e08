// SPDX-License-Identifier: MIT
// Levels in third octaves from 62.5 Hz to 16 kHz, 1000 Hz * 2^(k/3): what a set of responses sounds like.
#pragma once

#include "client/hrtf_set.h"
#include "speaker/hrtf_tables.h"

#include <cmath>
#include <numbers>
#include <span>

namespace quorel {

constexpr std::size_t thirdCount = 25;
using Thirds = std::array<double, thirdCount>; // mean power in each band, or dB
constexpr std::size_t lowestThird = 0;         // 62.5 Hz
constexpr std::size_t thirdAt250Hz = 6;
constexpr std::size_t thirdAt8kHz = 21;
constexpr std::size_t thirdAt12kHz = 23; // 12.7 kHz
constexpr std::size_t highestThird = 24; // 16 kHz

// The mean over a band of |X(f)|^2 = r(0) + 2 * sum over k of r(k) * cos(2 pi f k), of taps padded to 32768: by the taps'
// autocorrelation r and the band's mean of each cosine.
class ThirdOctaves {
public:
    static constexpr std::size_t most = 2600; // taps

    Thirds of(std::span<const float> taps) const
    {
        Thirds power{};
        for (std::size_t lag = 0; lag < taps.size(); ++lag) {
            double r = 0;
            for (std::size_t i = lag; i < taps.size(); ++i)
                r += static_cast<double>(taps[i]) * static_cast<double>(taps[i - lag]);
            for (std::size_t band = 0; band < thirdCount; ++band)
                power.at(band) += (lag == 0 ? 1 : 2) * r * cosines.at(band).at(lag);
        }
        return power;
    }

private:
    std::vector<std::vector<double>> cosines = [] {
        constexpr double length = 32768;
        std::vector<std::vector<double>> means(thirdCount, std::vector<double>(most));
        for (std::size_t band = 0; band < thirdCount; ++band) {
            const double centre = 1000 * std::exp2((static_cast<double>(band) - 12) / 3) * length / 48000;
            const double first = std::ceil(centre * std::exp2(-1. / 6));
            const double last = std::ceil(centre * std::exp2(1. / 6)) - 1;
            // The sum of cos(w m) from m = first to last is that of a geometric series.
            for (std::size_t k = 0; k < most; ++k) {
                const double w = 2 * std::numbers::pi * static_cast<double>(k) / length;
                const double count = last - first + 1;
                means[band][k] =
                    k == 0 ? 1 : std::cos(w * (first + last) / 2) * std::sin(w * count / 2) / std::sin(w / 2) / count;
            }
        }
        return means;
    }();
};

inline const ThirdOctaves& thirdOctaves()
{
    static const ThirdOctaves octaves;
    return octaves;
}

using SetTaps = std::array<std::array<std::vector<float>, 2>, 8>;

inline SetTaps tapsOf(const FittedSet& set)
{
    SetTaps taps;
    for (std::size_t row = 0; row < 8; ++row)
        for (std::size_t ear = 0; ear < 2; ++ear)
            taps[row][ear].assign(set.taps[row][ear].begin(), set.taps[row][ear].end());
    return taps;
}

inline SetTaps tapsOf(const MeasuredSet& set)
{
    SetTaps taps;
    for (std::size_t row = 0; row < 8; ++row)
        taps[row] = {set.speakers[row].left, set.speakers[row].right};
    return taps;
}

inline SetTaps builtInTaps()
{
    SetTaps taps;
    for (std::size_t row = 0; row < 8; ++row)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            const EarResponse& response = ear == 0 ? speakerResponses[row].left : speakerResponses[row].right;
            taps[row][ear].assign(response.onset, 0.0F);
            taps[row][ear].insert(taps[row][ear].end(), response.taps.begin(), response.taps.end());
        }
    return taps;
}

// Levels of each response, in power.
using SetThirds = std::array<std::array<Thirds, 2>, 8>;

inline SetThirds thirdsOf(const SetTaps& taps)
{
    SetThirds thirds;
    for (std::size_t row = 0; row < 8; ++row)
        for (std::size_t ear = 0; ear < 2; ++ear)
            thirds[row][ear] = thirdOctaves().of(taps[row][ear]);
    return thirds;
}

// The power over all speakers but the woofer, of the ears named.
inline Thirds summed(const SetThirds& set, std::initializer_list<std::size_t> ears = {0, 1})
{
    Thirds sum{};
    for (std::size_t row = 0; row < 8; ++row)
        for (const std::size_t ear : ears)
            for (std::size_t band = 0; band < thirdCount && row != woofer; ++band)
                sum[band] += set[row][ear][band];
    return sum;
}

inline Thirds ratioDb(const Thirds& a, const Thirds& b)
{
    Thirds ratio;
    for (std::size_t band = 0; band < thirdCount; ++band)
        ratio[band] = 10 * std::log10(a[band] / b[band]);
    return ratio;
}

inline double largest(const Thirds& values, std::size_t first, std::size_t last)
{
    double most = 0;
    for (std::size_t band = first; band <= last; ++band)
        most = std::isnan(values.at(band)) ? values.at(band) : std::max(most, std::abs(values.at(band)));
    return most;
}

} // namespace quorel

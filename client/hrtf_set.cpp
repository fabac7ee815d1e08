// SPDX-License-Identifier: MIT
#include "client/hrtf_set.h"

#include "speaker/hrtf_tables.h"
#include "speaker/response_spectrum.h"
#include "speaker/speaker_tables.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <numbers>
#include <sstream>
#include <stdexcept>

namespace quorel {

const std::array<const char*, 8> speakerNames = std::to_array<const char*>(
    {"front left", "front right", "front centre", "low frequency", "back left", "back right", "side left", "side right"});

namespace {

using Taps = std::array<float, fittedTaps>;

constexpr std::size_t fadeTaps = 24;    // at the end, as in the built-in set
constexpr double silentHead = 1e-6;     // a first frame is as good as the best if no response loses this much more
constexpr float wooferGain = 0.707F;    // -3.012 dB
constexpr std::size_t lowestBin = 2;    // 94 Hz; levels are compared from here
constexpr std::size_t highestBin = 341; // to 16 kHz

std::string earOf(std::size_t row, std::size_t ear)
{
    return std::string(speakerNames.at(row)) + (ear == 0 ? ", left ear" : ", right ear");
}

const std::vector<float>& responseOf(const MeasuredSet& measured, std::size_t row, std::size_t ear)
{
    const MeasuredPair& pair = measured.speakers.at(row);
    return ear == 0 ? pair.left : pair.right;
}

// 1, and down to 0 with half a cosine over the last taps.
std::array<double, fittedTaps> window()
{
    std::array<double, fittedTaps> w{};
    w.fill(1.0);
    for (std::size_t i = 0; i < fadeTaps; ++i)
        w[fittedTaps - fadeTaps + i] =
            0.5 + 0.5 * std::cos(std::numbers::pi * (static_cast<double>(i) + 0.5) / static_cast<double>(fadeTaps));
    return w;
}

double squared(float x)
{
    return static_cast<double>(x) * static_cast<double>(x);
}

double energyOf(const std::vector<float>& x)
{
    double sum = 0;
    for (const float value : x)
        sum += squared(value);
    return sum;
}

// Share of the energy that is lost when the taps from `start` are taken.
double lossOf(const std::vector<float>& x, double energy, std::size_t start, const std::array<double, fittedTaps>& w)
{
    double kept = 0;
    for (std::size_t i = 0; i < fittedTaps && start + i < x.size(); ++i)
        kept += squared(x[start + i]) * w[i] * w[i];
    return std::max(0.0, 1.0 - kept / energy);
}

// Raises each of `losses` to lossOf from there on, but for roundings: where the window is 1, sums of the energy from the
// response's beginning tell what is kept.
void addLosses(std::vector<double>& losses, const std::vector<float>& x, double energy, const std::array<double, fittedTaps>& w)
{
    constexpr std::size_t flat = fittedTaps - fadeTaps;
    std::vector<double> before(losses.size() + flat + 1); // the energy before each frame
    for (std::size_t i = 0; i + 1 < before.size(); ++i)
        before[i + 1] = before[i] + (i < x.size() ? squared(x[i]) : 0.0);
    for (std::size_t start = 0; start < losses.size(); ++start) {
        double kept = before[start + flat] - before[start];
        for (std::size_t i = flat; i < fittedTaps && start + i < x.size(); ++i)
            kept += squared(x[start + i]) * w[i] * w[i];
        losses[start] = std::max(losses[start], 1.0 - kept / energy);
    }
}

struct Loss {
    double share = 0;
    std::size_t row = 0;
    std::size_t ear = 0;
};

// The worst of all responses.
template <typename EachLoss>
Loss worst(const EachLoss& lossAt)
{
    Loss most;
    for (std::size_t row = 0; row < speakerTable.size(); ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear)
            if (const double share = lossAt(row, ear); share > most.share)
                most = {share, row, ear};
    return most;
}

// Sum over the responses of power over frequency: what pink noise brings to the ears.
double pinkPower(const std::vector<float>& spectra)
{
    double sum = 0;
    for (std::size_t first = 0; first < spectra.size(); first += spectrumFloats)
        for (std::size_t k = lowestBin; k <= highestBin; ++k)
            sum += (squared(spectra[first + 2 * k - 1]) + squared(spectra[first + 2 * k])) / static_cast<double>(k);
    return sum;
}

constexpr std::uint32_t withoutWoofer = everySpeaker & ~0x8U;

} // namespace

std::vector<std::size_t> rowsOf(std::uint32_t channelMask)
{
    std::vector<std::size_t> rows;
    for (std::size_t row = 0; row < speakerTable.size(); ++row)
        if ((channelMask & speakerTable[row].bit) != 0)
            rows.push_back(row);
    return rows;
}

FittedSet fitSet(const MeasuredSet& measured, double gainDb)
{
    std::array<std::array<double, 2>, 8> energies{};
    std::size_t longest = 0;
    for (std::size_t row = 0; row < speakerTable.size(); ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear) {
            const std::vector<float>& x = responseOf(measured, row, ear);
            if (!std::all_of(x.begin(), x.end(), [](float value) { return std::isfinite(value); }))
                throw std::runtime_error("the response of " + earOf(row, ear) + " holds a value that is no number");
            energies[row][ear] = energyOf(x);
            if (!(energies[row][ear] > 0) || !std::isfinite(energies[row][ear]))
                throw std::runtime_error("the response of " + earOf(row, ear) + " is silent");
            longest = std::max(longest, x.size());
        }

    // The latest first frame among those at which the worst response loses least.
    const std::array<double, fittedTaps> w = window();
    const auto worstFrom = [&](std::size_t start) {
        return worst([&](std::size_t row, std::size_t ear) {
            return lossOf(responseOf(measured, row, ear), energies[row][ear], start, w);
        });
    };
    std::vector<double> losses(longest);
    for (std::size_t row = 0; row < speakerTable.size(); ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear)
            addLosses(losses, responseOf(measured, row, ear), energies[row][ear], w);
    const double least = *std::min_element(losses.begin(), losses.end());

    FittedSet set;
    for (std::size_t start = 0; start < longest; ++start)
        if (losses[start] <= least + silentHead)
            set.skipped = start;
    const Loss loss = worstFrom(set.skipped);
    for (std::size_t row = 0; row < speakerTable.size(); ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear)
            set.cut[row][ear] = lossOf(responseOf(measured, row, ear), energies[row][ear], set.skipped, w);
    set.worstCut = loss.share;
    set.worstName = earOf(loss.row, loss.ear);
    if (set.worstCut > mostCut) {
        std::ostringstream text;
        text << std::fixed << std::setprecision(1) << "the convolver takes " << fittedTaps << " taps, and of " << set.worstName
             << " they hold too little: " << 100 * set.worstCut << " % of its energy would be cut, more than " << 100 * mostCut
             << " %";
        throw std::runtime_error(text.str());
    }

    for (std::size_t row = 0; row < speakerTable.size(); ++row)
        for (std::size_t ear = 0; ear < 2; ++ear) {
            Taps& taps = set.taps.at(row).at(ear);
            taps.fill(0.0F);
            if (row == woofer)
                continue;
            const std::vector<float>& x = responseOf(measured, row, ear);
            for (std::size_t i = 0; i < fittedTaps && set.skipped + i < x.size(); ++i)
                taps.at(i) = static_cast<float>(static_cast<double>(x[set.skipped + i]) * w.at(i));
        }

    const double level = std::sqrt(pinkPower(packBuiltInSet(withoutWoofer)) / pinkPower(packSet(set, withoutWoofer)));
    set.gainDb = 20 * std::log10(level) + gainDb;
    const auto gain = static_cast<float>(std::pow(10.0, set.gainDb / 20));
    for (auto& pair : set.taps)
        for (Taps& taps : pair)
            for (float& tap : taps)
                tap *= gain;

    const auto mainTap = [](const Taps& taps) {
        return std::max_element(taps.begin(), taps.end(), [](float a, float b) { return std::abs(a) < std::abs(b); }) -
               taps.begin();
    };
    constexpr std::size_t centre = 2;
    const auto place = static_cast<std::size_t>(mainTap(set.taps[centre][0]) + mainTap(set.taps[centre][1]) + 1) / 2;
    for (Taps& taps : set.taps[woofer])
        taps.at(place) = wooferGain * static_cast<float>(std::pow(10.0, gainDb / 20));
    return set;
}

double arrivalMs(std::span<const float> taps)
{
    float most = 0;
    for (const float tap : taps)
        most = std::max(most, std::abs(tap));
    std::size_t first = 0;
    while (first + 1 < taps.size() && std::abs(taps[first]) <= most / 10)
        ++first;
    return 1000.0 * static_cast<double>(first) / hrtfRate;
}

// The mean power of bins that lie 1.5 Hz apart, by the autocorrelation r of the taps:
//   |X(k)|^2 = r[0] + 2 * sum over l > 0 of r[l] * cos(2 pi k l / bins)
// The cosines of a row of bins have a sum: (sin((end - 1/2) a) - sin((first - 1/2) a)) / (2 sin(a / 2)), a = 2 pi l / bins.
std::array<double, 9> octavePowers(std::span<const float> taps)
{
    constexpr double bins = 32768;
    std::vector<double> r(taps.size());
    for (std::size_t l = 0; l < taps.size(); ++l)
        for (std::size_t i = l; i < taps.size(); ++i)
            r[l] += static_cast<double>(taps[i]) * static_cast<double>(taps[i - l]);

    std::array<double, 9> powers{};
    for (std::size_t band = 0; band < powers.size(); ++band) {
        const double centre = 1000 * std::exp2(static_cast<double>(band) - 4) * bins / hrtfRate;
        const double first = std::ceil(centre * std::exp2(-1. / 6));
        const double end = std::ceil(centre * std::exp2(1. / 6));
        double sum = 0;
        for (std::size_t l = 1; l < r.size(); ++l) {
            const double a = 2 * std::numbers::pi * static_cast<double>(l) / bins;
            sum += r[l] * (std::sin((end - 0.5) * a) - std::sin((first - 0.5) * a)) / std::sin(a / 2);
        }
        powers.at(band) = r.at(0) + sum / (end - first);
    }
    return powers;
}

std::array<double, 9> colourOf(const FittedSet& set)
{
    std::array<double, 9> own{};
    std::array<double, 9> builtIn{};
    const auto add = [](std::array<double, 9>& sum, std::span<const float> taps) {
        const auto powers = octavePowers(taps);
        for (std::size_t band = 0; band < sum.size(); ++band)
            sum.at(band) += powers.at(band);
    };
    for (const std::size_t row : rowsOf(withoutWoofer)) {
        for (const Taps& taps : set.taps.at(row))
            add(own, taps);
        add(builtIn, speakerResponses.at(row).left.taps); // an onset changes no level
        add(builtIn, speakerResponses.at(row).right.taps);
    }
    for (std::size_t band = 0; band < own.size(); ++band)
        own.at(band) = 10 * std::log10(own.at(band) / builtIn.at(band));
    return own;
}

std::vector<float> packSet(const FittedSet& set, std::uint32_t channelMask)
{
    std::vector<float> spectra;
    for (std::size_t ear = 0; ear < 2; ++ear)
        for (const std::size_t row : rowsOf(channelMask))
            appendSpectrum(spectra, set.taps.at(row).at(ear));
    if (!std::all_of(spectra.begin(), spectra.end(), [](float value) { return std::isfinite(value); }))
        throw std::runtime_error("the set's values are too large");
    return spectra;
}

std::vector<float> packBuiltInSet(std::uint32_t channelMask)
{
    std::vector<float> spectra;
    for (const auto ear : {&SpeakerResponses::left, &SpeakerResponses::right})
        for (const std::size_t row : rowsOf(channelMask)) {
            const EarResponse& response = speakerResponses.at(row).*ear;
            appendSpectrum(spectra, response.taps, response.onset);
        }
    return spectra;
}

} // namespace quorel

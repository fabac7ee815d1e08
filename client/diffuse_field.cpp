// SPDX-License-Identifier: MIT
#include "client/diffuse_field.h"

#include "core/fft.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <span>

namespace quorel {

namespace {

using Spectrum = std::vector<std::complex<double>>; // 0 Hz to half the rate, both counted

constexpr double flatBelowField = 200;    // Hz
constexpr double flatBelowResponse = 220; // Hz; the smoothed field is held from 200 Hz down, and bends just above
constexpr double flatAbove = 20000;       // Hz
constexpr double bandOfRate = 0.4535;     // share of the measurement's rate that its filters pass: 20 kHz of 44100
constexpr double meanTo = 12000;          // Hz
constexpr double mostDb = 15;
constexpr double neper = 20 / std::numbers::ln10; // dB

double frequencyOf(std::size_t bin, std::size_t bins)
{
    return static_cast<double>(bin) * hrtfRate / 2 / static_cast<double>(bins - 1);
}

// ---- The sphere -----------------------------------------------------------------------------------------------------

constexpr std::size_t spherePoints = 20000;

// Evenly on the sphere: on a spiral that turns by the golden angle between equal steps of height.
Direction spherePoint(std::size_t i)
{
    const double z = 1 - (2 * static_cast<double>(i) + 1) / static_cast<double>(spherePoints);
    const double angle = static_cast<double>(i) * std::numbers::pi * (3 - std::sqrt(5.0));
    const double r = std::sqrt(1 - z * z);
    return {r * std::cos(angle), r * std::sin(angle), z};
}

struct Nearest {
    std::size_t index;
    double cosine; // of the angle to it
};

Nearest nearestTo(const Direction& wanted, const std::vector<Direction>& directions)
{
    Nearest nearest{0, -2};
    for (std::size_t i = 0; i < directions.size(); ++i) {
        const Direction& d = directions[i];
        const double cosine = d.x * wanted.x + d.y * wanted.y + d.z * wanted.z;
        if (cosine > nearest.cosine)
            nearest = {i, cosine};
    }
    return nearest;
}

double degreesOf(double cosine)
{
    return std::acos(std::clamp(cosine, -1.0, 1.0)) * 180 / std::numbers::pi;
}

// A place may be so much farther from a measured direction than its mirror image, in degrees.
constexpr double mostUnlike = 15;

// ---- Transforms -----------------------------------------------------------------------------------------------------

class Transform {
public:
    explicit Transform(int order) : fft(static_cast<std::uint64_t>(order)), samples(fft.length()), packed(fft.length()) {}

    std::size_t bins() const { return static_cast<std::size_t>(fft.length() / 2 + 1); }

    template <typename Taps>
    Spectrum spectrum(const Taps& taps)
    {
        std::fill(samples.begin(), samples.end(), 0.0F);
        std::copy(taps.begin(), taps.end(), samples.begin());
        fft.Fwd(samples.data(), packed.data());
        const float* from = packed.data();
        Spectrum result(bins());
        result.front() = from[0];
        for (std::size_t k = 1; k + 1 < result.size(); ++k)
            result[k] = {static_cast<double>(from[2 * k - 1]), static_cast<double>(from[2 * k])};
        result.back() = from[fft.length() - 1];
        return result;
    }

    // Of a spectrum that may be shorter: there is nothing above it. Valid until the next transform.
    std::span<const float> response(const Spectrum& spectrum)
    {
        std::fill(packed.begin(), packed.end(), 0.0F);
        float* to = packed.data();
        to[0] = static_cast<float>(spectrum.front().real());
        for (std::size_t k = 1; k + 1 < bins() && k < spectrum.size(); ++k) {
            to[2 * k - 1] = static_cast<float>(spectrum[k].real());
            to[2 * k] = static_cast<float>(spectrum[k].imag());
        }
        if (spectrum.size() == bins())
            to[fft.length() - 1] = static_cast<float>(spectrum.back().real());
        fft.Inv(packed.data(), samples.data());
        return samples;
    }

private:
    FFT<float> fft;
    std::vector<float> samples;
    std::vector<float> packed;
};

// Through the cepstrum, whose later half is folded onto its earlier one.
Spectrum minimumPhase(const std::vector<double>& logMagnitude, Transform& transform)
{
    const Spectrum real(logMagnitude.begin(), logMagnitude.end());
    const auto symmetric = transform.response(real);
    const std::size_t half = symmetric.size() / 2;
    std::vector<float> cepstrum(symmetric.data(), symmetric.data() + half + 1);
    for (std::size_t i = 1; i < half; ++i)
        cepstrum[i] *= 2;
    Spectrum spectrum = transform.spectrum(cepstrum);
    for (auto& value : spectrum)
        value = std::exp(value);
    return spectrum;
}

void delayBy(Spectrum& spectrum, double frames)
{
    const double turn = -std::numbers::pi * frames / static_cast<double>(spectrum.size() - 1);
    for (std::size_t k = 0; k < spectrum.size(); ++k)
        spectrum[k] *= std::polar(1.0, turn * static_cast<double>(k));
}

constexpr int finerOrder = 3;      // onsets are told on a grid eight times as fine
constexpr double onsetShare = 0.1; // of the largest value
constexpr double room = 32;        // frames ahead, for what rings before the onset

// Frames to where the magnitude first rises beyond a tenth of the largest one, on a straight line between two values.
double onsetOf(Spectrum spectrum, Transform& finer)
{
    delayBy(spectrum, room);
    const auto fine = finer.response(spectrum);
    const auto value = fine.first(fine.size() / 4 * 3); // what rings ahead of the beginning stands at the end
    float most = 0;
    for (const float x : value)
        most = std::max(most, std::abs(x));
    const float share = static_cast<float>(onsetShare) * most;
    const auto first = std::find_if(value.begin(), value.end(), [&](float x) { return std::abs(x) > share; });
    double place = static_cast<double>(first - value.begin());
    if (first != value.begin() && first != value.end()) {
        const float below = std::abs(*(first - 1));
        place -= static_cast<double>((std::abs(*first) - share) / (std::abs(*first) - below));
    }
    return place / (1 << finerOrder) - room;
}

// ---- Smoothing ------------------------------------------------------------------------------------------------------

constexpr std::size_t gridPoints = 3000;
constexpr double gridFrom = 20;      // Hz
constexpr double gridTo = 24000;     // Hz
constexpr double smoothing = 1. / 6; // octave: the window's area, half of its width

double gridStep()
{
    return std::log(gridTo / gridFrom) / static_cast<double>(gridPoints - 1);
}

double gridFrequency(std::size_t i)
{
    return gridFrom * std::exp(gridStep() * static_cast<double>(i));
}

// The value at a place between those of a row, held at its ends.
double between(const std::vector<double>& row, double place)
{
    const double held = std::clamp(place, 0.0, static_cast<double>(row.size() - 1));
    const auto i = std::min(static_cast<std::size_t>(held), row.size() - 2);
    const double part = held - static_cast<double>(i);
    return row[i] + part * (row[i + 1] - row[i]);
}

// Log magnitude, in nepers, on a grid of log frequency.
std::vector<double> smoothed(const std::vector<double>& power)
{
    const auto half = static_cast<std::ptrdiff_t>(std::lround(smoothing * std::numbers::ln2 / gridStep()));
    std::vector<double> window;
    double area = 0;
    for (std::ptrdiff_t i = -half; i <= half; ++i) {
        window.push_back(0.5 + 0.5 * std::cos(std::numbers::pi * static_cast<double>(i) / static_cast<double>(half)));
        area += window.back();
    }
    const double bins = static_cast<double>(power.size() - 1) / (hrtfRate / 2.0); // per Hz
    std::vector<double> onGrid(gridPoints);
    for (std::size_t i = 0; i < gridPoints; ++i)
        onGrid[i] = between(power, gridFrequency(i) * bins);

    std::vector<double> result(gridPoints);
    for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(gridPoints); ++i) {
        double sum = 0;
        for (std::ptrdiff_t j = -half; j <= half; ++j) {
            const auto k = std::clamp<std::ptrdiff_t>(i + j, 0, gridPoints - 1);
            sum += window[static_cast<std::size_t>(j + half)] * onGrid[static_cast<std::size_t>(k)];
        }
        result[static_cast<std::size_t>(i)] = std::log(std::max(sum / area, std::numeric_limits<double>::min())) / 2;
    }
    return result;
}

// A row of the grid on the bins of a transform, held below and above.
std::vector<double> onBins(const std::vector<double>& grid, std::size_t bins, double below, double above)
{
    std::vector<double> result(bins);
    for (std::size_t k = 0; k < bins; ++k)
        result[k] = between(grid, std::log(std::clamp(frequencyOf(k, bins), below, above) / gridFrom) / gridStep());
    return result;
}

std::vector<double> powerOf(const Spectrum& spectrum)
{
    std::vector<double> power;
    for (const auto& value : spectrum)
        power.push_back(std::norm(value));
    return power;
}

constexpr int leastOrder = 14; // 2.9 Hz between the bins

} // namespace

double degreesBetween(const Direction& a, const Direction& b)
{
    return degreesOf(a.x * b.x + a.y * b.y + a.z * b.z);
}

// Half of a transform stays empty, for what the filter adds.
DiffuseField::DiffuseField(const std::vector<Direction>& directions, std::size_t frames, double rate)
    : order(std::max(leastOrder, static_cast<int>(std::bit_width(2 * frames)))),
      top(std::min(flatAbove, bandOfRate * rate)),
      shares(directions.size())
{
    for (std::size_t i = 0; i < spherePoints; ++i) {
        const Direction point = spherePoint(i);
        const Nearest nearest = nearestTo(point, directions);
        const Nearest mirrored = nearestTo({point.x, -point.y, point.z}, directions);
        shares[nearest.index] += 1.0 / spherePoints;
        apart = apart && std::abs(degreesOf(nearest.cosine) - degreesOf(mirrored.cosine)) <= mostUnlike;
    }
    for (auto& ear : power)
        ear.assign((std::size_t{1} << order) / 2 + 1, 0.0);
}

void DiffuseField::add(std::size_t direction, const MeasuredPair& pair)
{
    const double share = shares.at(direction);
    if (share == 0)
        return;
    Transform transform(order);
    for (std::size_t ear = 0; ear < 2; ++ear) {
        const Spectrum spectrum = transform.spectrum(ear == 0 ? pair.left : pair.right);
        for (std::size_t k = 0; k < spectrum.size(); ++k)
            power[ear][k] += share * std::norm(spectrum[k]);
    }
}

// Log magnitudes of the ears' filters, on the bins, in nepers.
std::array<std::vector<double>, 2> DiffuseField::logFilters() const
{
    auto field = power;
    if (!apart)
        for (std::size_t k = 0; k < field[0].size(); ++k)
            field[0][k] = field[1][k] = (power[0][k] + power[1][k]) / 2;
    const std::array<std::vector<double>, 2> level = {smoothed(field[0]), smoothed(field[1])};

    double sum = 0;
    double count = 0;
    for (std::size_t i = 0; i < gridPoints; ++i)
        if (gridFrequency(i) >= flatBelowField && gridFrequency(i) <= std::min(meanTo, top)) {
            sum += level[0][i] + level[1][i];
            count += 2;
        }
    const double mean = sum / count;

    std::array<std::vector<double>, 2> filters;
    for (std::size_t ear = 0; ear < 2; ++ear) {
        filters[ear] = onBins(level[ear], power[ear].size(), flatBelowField, top);
        for (double& value : filters[ear])
            value = std::clamp(mean - value, -mostDb / neper, mostDb / neper);
    }
    return filters;
}

DiffuseField::Range DiffuseField::filterRange() const
{
    const auto filters = logFilters();
    Range range{mostDb, -mostDb};
    for (const auto& filter : filters)
        for (const double value : filter)
            range = {std::min(range.least, value * neper), std::max(range.most, value * neper)};
    return range;
}

void DiffuseField::equalize(MeasuredSet& set) const
{
    Transform transform(order);
    Transform finer(order + finerOrder);
    const auto filters = logFilters();
    const std::array<Spectrum, 2> filter = {minimumPhase(filters[0], transform), minimumPhase(filters[1], transform)};

    struct Equalized {
        std::vector<float>* taps;
        Spectrum spectrum;
        double delay;
    };
    std::vector<Equalized> responses;
    double earliest = std::numeric_limits<double>::max();
    double latest = -earliest;
    for (std::size_t row = 0; row < set.speakers.size(); ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear) {
            auto& taps = ear == 0 ? set.speakers.at(row).left : set.speakers.at(row).right;
            const Spectrum measured = transform.spectrum(taps);
            Spectrum behind = measured;
            for (std::size_t k = 0; k < behind.size(); ++k)
                behind[k] *= filter[ear][k];
            Spectrum least = minimumPhase(onBins(smoothed(powerOf(behind)), behind.size(), flatBelowResponse, top), transform);
            const double delay = onsetOf(measured, finer) - onsetOf(least, finer);
            earliest = std::min(earliest, delay);
            latest = std::max(latest, delay);
            responses.push_back({&taps, std::move(least), delay});
        }

    constexpr double longestTail = 2048; // frames; the smoothed magnitudes ring for less
    const auto frames = std::min(static_cast<std::size_t>(room + latest - earliest + longestTail), std::size_t{1} << order);
    for (auto& [taps, spectrum, delay] : responses) {
        delayBy(spectrum, room + delay - earliest);
        const auto all = transform.response(spectrum);
        taps->assign(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(frames));
    }
}

} // namespace quorel

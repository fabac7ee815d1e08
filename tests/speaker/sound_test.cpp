// SPDX-License-Identifier: MIT
// Whether the effect sounds right: what is heard of each speaker, of the equaliser and of the room, through the whole path.
#include "core/signal_path.h"
#include "speaker/equalizer_tables.h"
#include "speaker/fdn_tables.h"
#include "tests/model/microphone_model.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <random>
#include <span>
#include <vector>

namespace quorel {
namespace {

constexpr double rate = 48000.0;
constexpr std::size_t block = 480; // frames
constexpr double outputGain = 0.8;
constexpr float level = 0.125F; // of impulses: far below the limiters, and exact in every product with a response

using Signal = std::vector<double>;

// What both ears hear of an impulse on one speaker of 7.1, or of the stereo down-mix of it, without the output gain.
std::array<Signal, 2> heard(std::size_t speaker, std::size_t blocks, std::uint32_t reverb = 0,
                            const std::array<std::int32_t, 9>& bands = {}, bool surround = true)
{
    constexpr std::size_t channels = 8;
    const SignalPath path(SignalPath::Speaker{}, channels, 0x63F, block, 48000);
    SettingsRecord& record = *path->settings();
    record.Settings = surround;
    record.Reverb = reverb;
    record.EQBand = bands;

    std::array<Signal, 2> ears;
    std::vector<float> in(block * channels);
    std::vector<float> out(block * 8);
    for (std::size_t b = 0; b < 2 + blocks; ++b) { // the first two fade to the settings
        in[speaker] = b == 2 ? level : 0.0F;
        path->process(in.data(), block, out.data(), block);
        for (std::size_t i = 0; b >= 2 && i < block; ++i)
            for (std::size_t ear = 0; ear < 2; ++ear)
                ears[ear].push_back(static_cast<double>(out[8 * i + ear]) / (outputGain * static_cast<double>(level)));
    }
    return ears;
}

double energy(const Signal& x)
{
    double sum = 0.0;
    for (const double sample : x)
        sum += sample * sample;
    return sum;
}

// --- Speakers --------------------------------------------------------------------------------------------------------

struct SpeakerRow {
    const char* name;
    std::size_t onsetLeft, onsetRight; // frames
    double energyLeft, energyRight;    // to three decimals
};

constexpr SpeakerRow speakerRows[] = {
    {"front left", 6, 16, 0.990, 0.119},     {"front right", 16, 6, 0.100, 1.430}, {"front centre", 10, 11, 0.489, 0.366},
    {"low frequency", 11, 11, 0.500, 0.500}, {"back left", 7, 19, 0.529, 0.117},   {"back right", 20, 6, 0.113, 0.716},
    {"side left", 0, 24, 2.733, 0.022},      {"side right", 29, 2, 0.030, 3.021},
};

// The first sample that is more than the noise of the transforms. A response's first tap is its largest, at least 0.078.
std::size_t onset(const Signal& x)
{
    const auto sounds = [](double sample) { return std::abs(sample) > 1e-3; };
    return static_cast<std::size_t>(std::find_if(x.begin(), x.end(), sounds) - x.begin());
}

TEST(Sound, AnImpulseOnEachSpeakerArrivesAtTheTimesOfItsRow)
{
    for (std::size_t s = 0; s < std::size(speakerRows); ++s) {
        SCOPED_TRACE(speakerRows[s].name);
        const auto ears = heard(s, 1);
        EXPECT_EQ(onset(ears[0]), speakerRows[s].onsetLeft);
        EXPECT_EQ(onset(ears[1]), speakerRows[s].onsetRight);
    }
}

TEST(Sound, AnImpulseOnEachSpeakerArrivesAtTheLevelsOfItsRow)
{
    constexpr double half = 0.0005; // of the last decimal
    for (std::size_t s = 0; s < std::size(speakerRows); ++s) {
        SCOPED_TRACE(speakerRows[s].name);
        const SpeakerRow& row = speakerRows[s];
        const auto ears = heard(s, 1);
        EXPECT_NEAR(energy(ears[0]), row.energyLeft, half * 1.001);
        EXPECT_NEAR(energy(ears[1]), row.energyRight, half * 1.001);

        const double wanted = 10.0 * std::log10(row.energyLeft / row.energyRight);
        const double allowed = 10.0 / std::log(10.0) * half * (1.0 / row.energyLeft + 1.0 / row.energyRight);
        EXPECT_NEAR(10.0 * std::log10(energy(ears[0]) / energy(ears[1])), wanted, allowed * 1.05) << "difference in dB";
    }
}

// --- The equaliser ---------------------------------------------------------------------------------------------------

std::complex<double> response(const Signal& impulse, double frequency)
{
    const std::complex<double> turn = std::polar(1.0, -2.0 * std::numbers::pi * frequency / rate);
    std::complex<double> sum = 0.0;
    for (std::size_t i = impulse.size(); i > 0; --i)
        sum = sum * turn + impulse[i - 1];
    return sum;
}

// A second-order section's response.
std::complex<double> section(const double* b, const double* a, double frequency)
{
    const std::complex<double> z = std::polar(1.0, -2.0 * std::numbers::pi * frequency / rate);
    return (b[0] + z * (b[1] + z * b[2])) / (a[0] + z * (a[1] + z * a[2]));
}

// The closed form of the nine bands in dB: a low shelf, seven peaks, a high shelf, their gains corrected for the neighbours.
double closedForm(const std::array<double, 9>& gains, double frequency)
{
    std::array<double, 9> inOrder = gains;
    std::sort(inOrder.begin(), inOrder.end());
    const double median = inOrder[4];
    const SquareMatrix interaction = equalizerInteraction();
    std::complex<double> total = 1.0;
    for (std::size_t band = 0; band < 9; ++band) {
        double gain = median;
        for (std::size_t other = 0; other < 9; ++other)
            gain += (gains[other] - median) * interaction(other, band); // the transpose
        const double centre = std::array{63.0, 125.0, 250.0, 500.0, 1000.0, 2000.0, 4000.0, 8000.0, 16000.0}[band];
        const double A = std::pow(10.0, gain / 40.0);
        const double w = 2.0 * std::numbers::pi * (band == 0 ? centre * 1.5 : band == 8 ? centre / 1.5 : centre) / rate;
        const double alpha = std::sin(w / (2.0 * 0.95));
        const double c = std::cos(w);
        const double t = 2.0 * std::sqrt(A) * alpha;
        const double s = band == 0 ? -1.0 : 1.0;
        std::array<double, 3> b = {1 + A * alpha, -2 * c, 1 - A * alpha};
        std::array<double, 3> a = {1 + alpha / A, -2 * c, 1 - alpha / A};
        if (band == 0 || band == 8) {
            b = {A * (A + 1 + s * (A - 1) * c + t), -2 * s * A * (A - 1 + s * (A + 1) * c), A * (A + 1 + s * (A - 1) * c - t)};
            a = {A + 1 - s * (A - 1) * c + t, 2 * s * (A - 1 - s * (A + 1) * c), A + 1 - s * (A - 1) * c - t};
        }
        total *= section(b.data(), a.data(), frequency);
    }
    return 20.0 * std::log10(std::abs(total));
}

TEST(Sound, TheEqualizersResponseIsTheClosedFormToAHundredthDecibel)
{
    std::mt19937 random(3);
    std::uniform_int_distribution<std::int32_t> any(-127, 127);
    for (const bool surround : {true, false})
        for (int round = 0; round < 5; ++round) {
            std::array<std::int32_t, 9> bands{};
            std::array<double, 9> gains{};
            for (std::size_t b = 0; b < 9; ++b) {
                bands[b] = any(random);
                gains[b] = bands[b] / 127.0 * 6.0;
            }
            // Half a second: the slowest pole, of the low shelf at 94.5 Hz, has then died away.
            const auto flat = heard(2, 50, 0, {}, surround);
            const auto equalized = heard(2, 50, 0, bands, surround);
            for (double frequency = 20.0; frequency < 23900.0; frequency *= 1.06)
                for (std::size_t ear = 0; ear < 2; ++ear) {
                    const double measured =
                        20.0 * std::log10(std::abs(response(equalized[ear], frequency) / response(flat[ear], frequency)));
                    ASSERT_NEAR(measured, closedForm(gains, frequency), 0.01)
                        << frequency << " Hz, surround " << surround << ", round " << round;
                }
        }
}

// --- The room --------------------------------------------------------------------------------------------------------

constexpr std::array<double, 9> octaves = {63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000}; // Hz

// The room's part of what is heard of each speaker, at 0 dB: left and right in turn.
const std::vector<Signal>& tails()
{
    static const std::vector<Signal> all = [] {
        std::vector<Signal> made;
        for (std::size_t s = 0; s < 8; ++s) {
            auto with = heard(s, 100, 170);
            const auto without = heard(s, 100, 0);
            for (std::size_t ear = 0; ear < 2; ++ear) {
                for (std::size_t i = 0; i < with[ear].size(); ++i)
                    with[ear][i] -= without[ear][i];
                made.push_back(std::move(with[ear]));
            }
        }
        return made;
    }();
    return all;
}

constexpr std::size_t length = 1 << 16; // of transforms; what a band rings ahead of time 0 lies in the last quarter

// For each speaker the spectrum of the tails from a frame on, the left ear's as real, the right ear's as imaginary numbers.
std::vector<model::Spectrum> spectra(std::size_t from)
{
    const model::Fourier fourier(length);
    std::vector<model::Spectrum> all;
    for (std::size_t s = 0; s < tails().size(); s += 2) {
        model::Spectrum& spectrum = all.emplace_back(length);
        for (std::size_t i = from; i < tails()[s].size(); ++i)
            spectrum[i - from] = {tails()[s][i], tails()[s + 1][i]};
        fourier.transform(spectrum);
    }
    return all;
}

// Of bin k, which stands for the same frequency below zero when it lies in the upper half.
double frequencyOf(std::size_t k)
{
    return static_cast<double>(std::min(k, length - k)) * rate / length;
}

// Around a centre, the squared cosine of a quarter turn per octave, nothing beyond: all octaves add up to 1.
double inOctave(double frequency, double centre)
{
    const double away = frequency > 0 ? std::log2(frequency / centre) : 9.0;
    return std::abs(away) < 1.0 ? std::pow(std::cos(std::numbers::pi / 2.0 * away), 2) : 0.0;
}

// Seconds in which the energy still to come, of all speakers at both ears, falls by 60 dB, from the slope between 5 and 35 dB.
double reverberationTime(double centre)
{
    static const std::vector<model::Spectrum> all = spectra(0);
    const model::Fourier fourier(length);
    Signal left(length); // the energy to come, the last quarter first
    for (const model::Spectrum& spectrum : all) {
        model::Spectrum band(length);
        for (std::size_t k = 0; k < length; ++k)
            band[k] = spectrum[k] * inOctave(frequencyOf(k), centre);
        fourier.transform(band); // with the turns of the forward transform: time runs backwards
        for (std::size_t i = 0; i < length; ++i)
            left[(length - i + length / 4) % length] += std::norm(band[i]);
    }
    for (std::size_t i = length - 1; i > 0; --i)
        left[i - 1] += left[i];

    double n = 0, t = 0, d = 0, tt = 0, td = 0;
    const double whole = left[length / 4];
    for (std::size_t i = length / 4; left[i] > whole * std::pow(10.0, -3.5); ++i) {
        const double time = static_cast<double>(i) / rate;
        const double db = 10.0 * std::log10(left[i] / whole);
        if (db > -5.0)
            continue;
        n += 1;
        t += time;
        d += db;
        tt += time * time;
        td += time * db;
    }
    return -60.0 * (n * tt - t * t) / (n * td - t * d);
}

// The same when every turn of a line takes what the line's filters take, and nothing else happens; mean of the lines.
double designedTime(double frequency)
{
    double sum = 0.0;
    for (std::size_t l = 0; l < fdnLineFilters.size(); ++l) {
        const std::vector<double> taps(fdnLineFilters[l].begin(), fdnLineFilters[l].end());
        const double gain = std::abs(section(&taps[0], &taps[3], frequency) * section(&taps[6], &taps[9], frequency));
        const auto frames = static_cast<double>(fdnLineTable[l].length + fdnLineTable[l].allpassDelay);
        sum += -60.0 * frames / rate / (20.0 * std::log10(gain));
    }
    return sum / static_cast<double>(fdnLineFilters.size());
}

TEST(Sound, TheRoomDecaysInEveryOctaveAsItsPageTells)
{
    constexpr std::array<double, 9> told = {0.37, 0.40, 0.40, 0.41, 0.39, 0.38, 0.34, 0.26, 0.17}; // s
    for (std::size_t o = 0; o < octaves.size(); ++o)
        EXPECT_NEAR(reverberationTime(octaves[o]), told[o], 0.0051) << octaves[o] << " Hz";
}

TEST(Sound, TheRoomDecaysAsItsLineFiltersAreDesigned)
{
    // Up to 4 kHz the designed time is nearly the same all over an octave. Modes are few in the lowest octave, and each decays a
    // little differently: a tenth is allowed.
    for (std::size_t o = 0; o < 7; ++o)
        EXPECT_NEAR(reverberationTime(octaves[o]) / designedTime(octaves[o]), 1.0, 0.1) << octaves[o] << " Hz";
}

TEST(Sound, TheTailIsAlikeAtBothEarsAtLowFrequenciesAlone)
{
    constexpr std::array<double, 9> told = {0.95, 0.89, 0.53, 0.01, -0.08, 0.03, 0.00, -0.01, -0.04};
    const auto all = spectra(2400); // behind the single echoes of the first 50 ms
    for (std::size_t o = 0; o < octaves.size(); ++o) {
        double cross = 0, left = 0, right = 0;
        for (std::size_t k = 1; k < length / 2; ++k) {
            if (!(std::abs(std::log2(frequencyOf(k) / octaves[o])) < 0.5))
                continue;
            for (const model::Spectrum& both : all) {
                const auto ofLeft = (both[k] + std::conj(both[length - k])) / 2.0;
                const auto ofRight = (both[k] - std::conj(both[length - k])) / std::complex<double>(0.0, 2.0);
                cross += (ofLeft * std::conj(ofRight)).real();
                left += std::norm(ofLeft);
                right += std::norm(ofRight);
            }
        }
        EXPECT_NEAR(cross / std::sqrt(left * right), told[o], 0.0051) << octaves[o] << " Hz";
    }
}

TEST(Sound, TheRoomIsHeardOfEverySpeakerAlikeAndAtTheLeftEarALittleMore)
{
    using testing::AllOf, testing::Ge, testing::Le;
    for (std::size_t s = 0; s < 8; ++s) {
        SCOPED_TRACE(speakerRows[s].name);
        EXPECT_THAT(10.0 * std::log10(energy(tails()[2 * s])), AllOf(Ge(-17.0), Le(-16.5)));
        EXPECT_THAT(10.0 * std::log10(energy(tails()[2 * s + 1])), AllOf(Ge(-18.9), Le(-18.3)));
    }
}

} // namespace
} // namespace quorel

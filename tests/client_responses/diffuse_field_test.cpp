// SPDX-License-Identifier: MIT
#include "client/diffuse_field.h"

#include "client/hrtf_file.h"
#include "core/fft.h"
#include "tests/client_responses/thirds.h"

#include <complex>
#include <functional>
#include <gtest/gtest.h>
#include <random>

namespace quorel {
namespace {

// ---- A head whose responses are known: two points on a rigid sphere ---------------------------------------------------

constexpr std::size_t sphereFrames = 512;

Direction directionAt(double azimuth, double elevation)
{
    const double a = azimuth * std::numbers::pi / 180;
    const double e = elevation * std::numbers::pi / 180;
    return {std::cos(e) * std::cos(a), std::cos(e) * std::sin(a), std::sin(e)};
}

// Pressure on a rigid sphere of 8.75 cm in a plane wave, against that without the sphere (J. W. Strutt; in the form of Duda and
// Martens): the sum over m of i^m (2m + 1) P_m(cosine) / h'_m(ka), times i / (ka)^2, with h the spherical Hankel function of the
// second kind. In time as an impulse response whose wave passes the sphere's centre at frame 100.
class Sphere {
public:
    Sphere()
    {
        for (std::size_t k = 1; k <= sphereFrames / 2; ++k) {
            const double ka = waveNumber(k) * radius;
            std::vector<std::complex<double>> terms;
            std::complex<double> turn(0, 1 / (ka * ka));
            const auto count = static_cast<unsigned>(1.5 * ka + 10); // beyond, the terms fall faster than 4^-m
            for (unsigned m = 0; m < count; ++m, turn *= std::complex<double>(0, 1)) {
                const auto h = [ka](unsigned n) {
                    return std::complex<double>(std::sph_bessel(n, ka), -std::sph_neumann(n, ka));
                };
                const auto slope = m == 0 ? -h(1) : h(m - 1) - (m + 1) / ka * h(m);
                terms.push_back(turn * (2.0 * m + 1) / slope);
            }
            series.push_back(std::move(terms));
        }
    }

    std::vector<float> response(const Direction& source, const Direction& ear) const
    {
        const double cosine = source.x * ear.x + source.y * ear.y + source.z * ear.z;
        std::vector<double> legendre = {1, cosine};
        while (legendre.size() < series.back().size()) {
            const auto m = static_cast<double>(legendre.size());
            legendre.push_back(((2 * m - 1) * cosine * legendre.back() - (m - 1) * legendre[legendre.size() - 2]) / m);
        }
        FFT<float> fft(9);
        std::vector<float> spectrum(sphereFrames);
        std::vector<float> samples(sphereFrames);
        spectrum[0] = 1;
        for (std::size_t k = 1; k <= sphereFrames / 2; ++k) {
            std::complex<double> pressure;
            for (std::size_t m = 0; m < series[k - 1].size(); ++m)
                pressure += series[k - 1][m] * legendre[m];
            pressure *= std::polar(1.0, -2 * std::numbers::pi * 100 * static_cast<double>(k) / sphereFrames);
            spectrum[2 * k - 1] = static_cast<float>(pressure.real());
            if (k < sphereFrames / 2)
                spectrum[2 * k] = static_cast<float>(pressure.imag());
        }
        fft.Inv(spectrum.data(), samples.data());
        return samples;
    }

private:
    static constexpr double radius = 0.0875; // metres

    static double waveNumber(std::size_t k)
    {
        constexpr double speed = 343; // of sound, metres per second
        return 2 * std::numbers::pi * static_cast<double>(k) * 48000 / sphereFrames / speed;
    }

    std::vector<std::vector<std::complex<double>>> series; // of each bin from 1, the factors of the Legendre polynomials
};

struct Measurement {
    std::vector<Direction> directions;
    std::vector<MeasuredPair> pairs;
    double rate = 48000;
};

// The ears stand at 100 degrees to either side.
Measurement sphereFrom(const std::vector<Direction>& directions)
{
    static const Sphere sphere;
    Measurement measurement{directions, {}};
    for (const Direction& direction : directions)
        measurement.pairs.push_back(
            {sphere.response(direction, directionAt(100, 0)), sphere.response(direction, directionAt(260, 0))});
    return measurement;
}

std::vector<Direction> ring(std::size_t count, double elevation)
{
    std::vector<Direction> directions;
    for (std::size_t i = 0; i < count; ++i)
        directions.push_back(directionAt(360.0 * static_cast<double>(i) / static_cast<double>(count), elevation));
    return directions;
}

// In rings from below to the top, as a head is often measured.
Measurement ringsOf(std::initializer_list<std::size_t> counts, double lowest, double step)
{
    std::vector<Direction> directions;
    double elevation = lowest;
    for (const std::size_t count : counts) {
        const auto level = ring(count, elevation);
        directions.insert(directions.end(), level.begin(), level.end());
        elevation += step;
    }
    return sphereFrom(directions);
}

const Measurement& coarse()
{
    static const Measurement measurement = ringsOf({24, 24, 24, 12, 1}, -30, 30);
    return measurement;
}

// ---- Its import -----------------------------------------------------------------------------------------------------

std::size_t nearestTo(const Direction& wanted, const std::vector<Direction>& directions)
{
    std::size_t best = 0;
    for (std::size_t i = 1; i < directions.size(); ++i)
        if (degreesBetween(wanted, directions[i]) < degreesBetween(wanted, directions[best]))
            best = i;
    return best;
}

MeasuredSet taken(const Measurement& from)
{
    MeasuredSet set;
    for (std::size_t row = 0; row < 8; ++row)
        if (row != woofer)
            set.speakers[row] = from.pairs[nearestTo(directionAt(speakerAzimuths[row], 0), from.directions)];
    return set;
}

DiffuseField fieldOf(const Measurement& from)
{
    DiffuseField field(from.directions, from.pairs[0].left.size(), from.rate);
    for (std::size_t i = 0; i < from.pairs.size(); ++i)
        field.add(i, from.pairs[i]);
    return field;
}

FittedSet imported(const Measurement& from)
{
    MeasuredSet set = taken(from);
    fieldOf(from).equalize(set);
    return fitSet(set, 0);
}

// What the import did to the seven speakers' power, put onto the diffuse field of the measurement itself, is flat. The field is
// worked out here on a grid of degrees.
double ripple(const Measurement& from)
{
    std::vector<double> share(from.directions.size());
    for (int elevation = -88; elevation <= 88; elevation += 4)
        for (int azimuth = 2; azimuth < 360; azimuth += 4)
            share[nearestTo(directionAt(azimuth, elevation), from.directions)] += std::cos(elevation * std::numbers::pi / 180);
    Thirds field{};
    for (std::size_t i = 0; i < share.size(); ++i)
        if (share[i] > 0)
            for (const auto* taps : {&from.pairs[i].left, &from.pairs[i].right}) {
                const Thirds thirds = thirdOctaves().of(*taps);
                for (std::size_t band = 0; band < thirdCount; ++band)
                    field[band] += share[i] * thirds[band];
            }
    const Thirds after = summed(thirdsOf(tapsOf(imported(from))));
    const Thirds before = summed(thirdsOf(tapsOf(taken(from))));
    Thirds level{};
    double mean = 0;
    for (std::size_t band = 0; band < thirdCount; ++band)
        level[band] = 10 * std::log10(field[band] * after[band] / before[band]);
    for (std::size_t band = thirdAt250Hz; band <= thirdAt8kHz; ++band)
        mean += level[band] / (thirdAt8kHz - thirdAt250Hz + 1);
    for (double& value : level)
        value -= mean;
    return largest(level, thirdAt250Hz, thirdAt8kHz);
}

// The largest difference of any response between two imports.
double apart(const FittedSet& a, const FittedSet& b)
{
    const SetThirds one = thirdsOf(tapsOf(a));
    const SetThirds other = thirdsOf(tapsOf(b));
    double most = 0;
    for (std::size_t row = 0; row < 8; ++row)
        for (std::size_t ear = 0; ear < 2 && row != woofer; ++ear)
            most = std::max(most, largest(ratioDb(one[row][ear], other[row][ear]), lowestThird, highestThird));
    return most;
}

Measurement changed(const Measurement& from, const std::function<std::vector<float>(std::size_t ear, std::vector<float>)>& change)
{
    Measurement result = from;
    for (MeasuredPair& pair : result.pairs) {
        pair.left = change(0, pair.left);
        pair.right = change(1, pair.right);
    }
    return result;
}

struct Section { // y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2]
    double b0, b1, b2, a1, a2;
};

std::vector<float> filtered(std::vector<float> x, const Section& s)
{
    x.resize(2 * x.size()); // for what rings
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    for (float& value : x) {
        const auto now = static_cast<double>(value);
        const double y = s.b0 * now + s.b1 * x1 + s.b2 * x2 - s.a1 * y1 - s.a2 * y2;
        x2 = std::exchange(x1, now);
        y2 = std::exchange(y1, y);
        value = static_cast<float>(y);
    }
    return x;
}

// By the bilinear transform with a = tan(pi f / 48000): a Butterworth high-pass.
Section highPass(double frequency)
{
    const double a = std::tan(std::numbers::pi * frequency / 48000);
    const double d = 1 + std::numbers::sqrt2 * a + a * a;
    return {1 / d, -2 / d, 1 / d, 2 * (a * a - 1) / d, (1 - std::numbers::sqrt2 * a + a * a) / d};
}

// Likewise the bell (s^2 + g s / q + 1) / (s^2 + s / (g q) + 1), of g^2 at its centre.
Section bell(double frequency, double gainDb)
{
    constexpr double q = 1.4;
    const double g = std::pow(10, gainDb / 40);
    const double a = std::tan(std::numbers::pi * frequency / 48000);
    const double d = 1 + a / (g * q) + a * a;
    return {(1 + g * a / q + a * a) / d, 2 * (a * a - 1) / d, (1 - g * a / q + a * a) / d, 2 * (a * a - 1) / d,
            (1 - a / (g * q) + a * a) / d};
}

// Of the sphere alone it nearly is, so all responses have a peak of 12 dB besides.
TEST(DiffuseField, TheFieldIsFlatBehindTheImport)
{
    const auto peaked = [](const Measurement& from) {
        return changed(from, [](std::size_t, const std::vector<float>& x) {
            std::vector<float> y = filtered(x, bell(3000, 12));
            y.resize(x.size()); // it rings for less
            return y;
        });
    };
    EXPECT_LE(ripple(peaked(ringsOf({56, 60, 72, 72, 72, 72, 72, 60, 56, 45, 36, 24, 12, 1}, -40, 10))), 1.5); // 710
    EXPECT_LE(ripple(peaked(sphereFrom(ring(72, 0)))), 1.5);
    EXPECT_LE(ripple(peaked(sphereFrom(ring(8, 0)))), 1.5);
}

// Nothing above 0.4535 * 44100 Hz, 20 kHz: a cosine from there to the end of the band, 22.05 kHz.
TEST(DiffuseField, AMeasurementAt44100HzIsEqualizedInItsBand)
{
    Measurement narrow = changed(coarse(), [](std::size_t, const std::vector<float>& x) {
        FFT<float> fft(9);
        std::vector<float> samples = x;
        samples.resize(sphereFrames);
        std::vector<float> spectrum(sphereFrames);
        fft.Fwd(samples.data(), spectrum.data());
        for (std::size_t k = 1; k < sphereFrames; ++k) {
            const double frequency = static_cast<double>((k + 1) / 2) * 48000 / sphereFrames;
            const double part = std::clamp((frequency - 20000) / 2050, 0.0, 1.0);
            spectrum[k] *= static_cast<float>(0.5 + 0.5 * std::cos(std::numbers::pi * part));
        }
        fft.Inv(spectrum.data(), samples.data());
        return samples;
    });
    narrow.rate = 44100;
    EXPECT_LE(ripple(narrow), 1.5);
    EXPECT_LE(apart(imported(narrow), imported(coarse())), 0.5);
}

// The cone before the head, twenty times more.
TEST(DiffuseField, RepeatedDirectionsCountOnce)
{
    Measurement repeated = coarse();
    for (std::size_t i = 0; i < coarse().directions.size(); ++i)
        if (degreesBetween(coarse().directions[i], directionAt(0, 0)) < 25)
            for (int copy = 0; copy < 20; ++copy) {
                repeated.directions.push_back(coarse().directions[i]);
                repeated.pairs.push_back(coarse().pairs[i]);
            }
    EXPECT_LE(apart(imported(repeated), imported(coarse())), 0.01); // the transforms' noise
}

TEST(DiffuseField, NoiseOf60DbBelowThePeakIsTaken)
{
    float peak = 0;
    for (const MeasuredPair& pair : coarse().pairs)
        for (const float value : pair.left)
            peak = std::max(peak, std::abs(value));
    std::mt19937 random(1); // NOLINT: the same in every run
    std::normal_distribution<float> noise(0, peak / 1000);
    const Measurement noisy = changed(coarse(), [&](std::size_t, std::vector<float> x) {
        for (float& value : x)
            value += noise(random);
        return x;
    });
    EXPECT_LE(ripple(noisy), 1.5);
    EXPECT_LE(imported(noisy).worstCut, 0.01);
}

// Whatever stands in all responses alike falls out.
TEST(DiffuseField, AColouredMeasurementComesOutAsTheOriginal)
{
    const FittedSet original = imported(coarse());
    constexpr Section tilt = {1, -0.5, 0, 0, 0}; // 9.5 dB from 0 Hz to half the rate
    for (const Section& section : {highPass(120), tilt, bell(3000, 12)})
        EXPECT_LE(apart(imported(changed(coarse(), [&](std::size_t, auto x) { return filtered(x, section); })), original), 0.5);
}

// With the measured phase goes its sign: with the other one the low end would cancel against the woofer's.
TEST(DiffuseField, AnInvertedMeasurementComesOutAsTheOriginal)
{
    const FittedSet original = imported(coarse());
    const FittedSet inverted = imported(changed(coarse(), [](std::size_t, std::vector<float> x) {
        for (float& value : x)
            value = -value;
        return x;
    }));
    EXPECT_EQ(inverted.taps, original.taps);
}

Measurement unequalEars(const Measurement& from)
{
    constexpr Section weaker = {0.7, -0.2, 0, 0, 0}; // -6 to -0.9 dB
    return changed(from, [&](std::size_t ear, auto x) { return ear == 0 ? filtered(x, {1, 0, 0, 0, 0}) : filtered(x, weaker); });
}

TEST(DiffuseField, EarsOfUnequalMicrophonesComeOutAlike)
{
    EXPECT_TRUE(fieldOf(coarse()).earsApart());
    EXPECT_LE(apart(imported(unequalEars(coarse())), imported(coarse())), 0.5);
}

// From the left half and what the speakers need, an ear's own mean would tell of its side.
TEST(DiffuseField, EarsAreEqualizedAlikeWhereOneSideIsMissing)
{
    Measurement half;
    for (std::size_t i = 0; i < coarse().directions.size(); ++i) {
        const Direction& d = coarse().directions[i];
        const auto needed = [&](double azimuth) { return degreesBetween(d, directionAt(azimuth, 0)) < 0.1; };
        if (d.y >= -1e-9 || needed(330) || needed(215) || needed(255)) {
            half.directions.push_back(d);
            half.pairs.push_back(coarse().pairs[i]);
        }
    }
    EXPECT_FALSE(fieldOf(half).earsApart());
    const SetThirds thirds = thirdsOf(tapsOf(imported(half)));
    EXPECT_LE(largest(ratioDb(thirds[2][0], thirds[2][1]), lowestThird, highestThird), 0.3);
}

TEST(DiffuseField, AMirrorImageOfAHeadIsHeardAlikeOnBothSides)
{
    const SetThirds thirds = thirdsOf(tapsOf(imported(coarse())));
    EXPECT_LE(largest(ratioDb(thirds[2][0], thirds[2][1]), lowestThird, highestThird), 0.3);
    for (const auto& [left, right] : {std::pair{0, 1}, {4, 5}, {6, 7}}) {
        EXPECT_LE(largest(ratioDb(thirds[left][0], thirds[right][1]), lowestThird, highestThird), 0.3);
        EXPECT_LE(largest(ratioDb(thirds[left][1], thirds[right][0]), lowestThird, highestThird), 0.3);
    }
}

} // namespace
} // namespace quorel

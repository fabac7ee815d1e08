// SPDX-License-Identifier: MIT
// Equalizer is the nine-band equaliser of the stereo bus: a low shelf, seven peaks and a high shelf in double precision.
//
// design() turns nine band gains in dB into the nine sections. Neighbouring bands overlap, so their gains are corrected first:
// with m the median of the gains, band r gets  G[r] = m + sum over c of (gains[c] - m) * interaction(r, c)  decibels. Taking the
// median out leaves nine equal gains as they are. A design restarts both channels from silence, so that the path crossfades
// across it; it allocates nothing.
#pragma once

#include "speaker/square_matrix.h"
#include "stages/biquad.h"

#include <cmath>
#include <numbers>

namespace quorel {

class Equalizer {
public:
    static constexpr std::size_t bands = 9;
    using Gains = std::array<double, bands>; // dB

    // Frequencies in Hz. The shelves stand at centres[0] * shelfFactor and centres[8] / shelfFactor. Keeps the transpose of
    // `interaction`. design() needs as many sections as there are bands.
    Equalizer(const SquareMatrix& interaction, const std::array<double, bands>& centres, double q, double sampleRate,
              double shelfFactor, std::uint64_t sections = bands);

    void design(const Gains& gains);

    // Fails with the texts of Biquad, also before the first design.
    template <std::size_t C>
    void process(const Buffer<float, C>& in, Buffer<float, C>& out) requires(C == 2)
    {
        filter.process(in, out);
    }
    void process(const std::array<const float*, 2>& in, const std::array<float*, 2>& out, std::uint64_t n)
    {
        filter.process(in, out, n);
    }

    // The taps in force.
    const std::vector<double>& coefficients() const { return filter.coefficients(0); }

private:
    using Taps = std::array<double, 6>; // b0, b1, b2, a0, a1, a2

    double median(const Gains& gains);
    double frequency(std::size_t band) const;
    static Taps peak(double A, double alpha, double c);
    static Taps shelf(double A, double alpha, double c, double s);

    Biquad<2, double> filter;
    SquareMatrix interaction;
    std::array<double, bands> centres; // Hz
    double q;                          // width of every band
    double sampleRate;                 // Hz
    double shelfFactor;                // how far the shelves' frequencies stand inside the outer bands

    // Scratch
    Gains bandGains{}; // dB over the median
    std::array<double, 6 * bands> bandTaps{};
};

// ---------------------------------------------------------------------------------------------------------------------

inline Equalizer::Equalizer(const SquareMatrix& matrix, const std::array<double, bands>& centres, double q, double sampleRate,
                            double shelfFactor, std::uint64_t sections)
    : filter(sections), interaction(matrix), centres(centres), q(q), sampleRate(sampleRate), shelfFactor(shelfFactor)
{
    for (std::size_t row = 0; row < bands; ++row)
        for (std::size_t column = 0; column < bands; ++column)
            interaction(row, column) = matrix(column, row); // a matrix of lower order fails in its first column
}

inline void Equalizer::design(const Gains& gains)
{
    const double m = median(gains);
    for (std::size_t r = 0; r < bands; ++r) {
        bandGains[r] = 0.0;
        for (std::size_t c = 0; c < bands; ++c)
            bandGains[r] += (gains[c] - m) * interaction(r, c);
    }
    for (std::size_t r = 0; r < bands; ++r) {
        const double A = std::pow(10.0, (m + bandGains[r]) / 40.0);
        const double w0 = 2.0 * std::numbers::pi * frequency(r) / sampleRate;
        const double c = std::cos(w0);
        const double alpha = std::sin(w0 / (2.0 * q)); // Required: the sine of the scaled angle, not sin(w0) / (2 * q)
        const Taps taps = r == 0 ? shelf(A, alpha, c, -1.0) : r == bands - 1 ? shelf(A, alpha, c, +1.0) : peak(A, alpha, c);
        std::copy(taps.begin(), taps.end(), bandTaps.begin() + static_cast<std::ptrdiff_t>(6 * r));
    }
    filter.setCoefficients(std::span<const double>(bandTaps));
}

// The fifth smallest of the nine. Sorted by hand: gains that are no numbers must not lead a library sort astray.
inline double Equalizer::median(const Gains& gains)
{
    bandGains = gains;
    for (std::size_t i = 1; i < bands; ++i)
        for (std::size_t k = i; k > 0 && bandGains[k] < bandGains[k - 1]; --k)
            std::swap(bandGains[k], bandGains[k - 1]);
    return bandGains[bands / 2];
}

inline double Equalizer::frequency(std::size_t band) const
{
    if (band == 0)
        return centres[band] * shelfFactor;
    return band == bands - 1 ? centres[band] / shelfFactor : centres[band];
}

inline Equalizer::Taps Equalizer::peak(double A, double alpha, double c)
{
    return {1 + A * alpha, -2 * c, 1 - A * alpha, 1 + alpha / A, -2 * c, 1 - alpha / A};
}

// A low shelf with s = -1, a high shelf with s = +1.
inline Equalizer::Taps Equalizer::shelf(double A, double alpha, double c, double s)
{
    const double t = 2 * std::sqrt(A) * alpha;
    return {A * ((A + 1) + s * (A - 1) * c + t), -2 * s * A * ((A - 1) + s * (A + 1) * c), A * ((A + 1) + s * (A - 1) * c - t),
            (A + 1) - s * (A - 1) * c + t,       2 * s * ((A - 1) - s * (A + 1) * c),      (A + 1) - s * (A - 1) * c - t};
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// BandSum reduces a spectrum to one complex value per band, the mean of the band's bins:  out[j] = sum over band j / width
//
// Bins are added as complex numbers, so that a band is a short band-pass filter: neighbouring bins of opposite phase cancel.
// Only the lower half of a spectrum is read. Nothing persists between calls.
#pragma once

#include "core/buffer.h"

#include <numeric>
#include <span>
#include <vector>

namespace quorel {

template <std::size_t N>
class BandSum {
public:
    // widths: bins of each band from bin 0 on, half a spectrum in all. normalize: deliver means, else sums.
    // Required: a band of width 0 takes no sum, so that the bands behind it would shift down by one: it may stand only last,
    // and its value stays 0.
    BandSum(std::span<const std::uint64_t> widths, bool normalize);

    // `in` holds whole spectra, `out` one value per band and spectrum. No spectrum at all is accepted.
    void process(const SpectrumBuffer<N>& in, SpectrumBuffer<N>& out);

private:
    // Configuration
    std::vector<std::uint64_t> widths; // bins of each band
    std::uint64_t binCount;            // half a spectrum
    SpectrumBuffer<1> scale;           // what each band's sum is multiplied by

    // Scratch
    SpectrumBuffer<1> sums;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
BandSum<N>::BandSum(std::span<const std::uint64_t> widths, bool normalize)
    : widths(widths.begin(), widths.end()),
      binCount(std::accumulate(widths.begin(), widths.end(), std::uint64_t{0})),
      scale(widths.size()),
      sums(widths.size())
{
    Complex* factor = scale.channel(0);
    for (const std::uint64_t width : widths) {
        const double mean = width == 0 ? 0.0 : 1.0 / static_cast<double>(width);
        *factor++ = normalize ? static_cast<float>(mean) : 1.0F;
    }
}

template <std::size_t N>
void BandSum<N>::process(const SpectrumBuffer<N>& in, SpectrumBuffer<N>& out)
{
    const auto frames = in.size() / (2 * binCount);
    if (widths.size() * frames > out.capacity())
        throw std::invalid_argument("BandSum: out buffer too small");

    for (std::size_t c = 0; c < N; ++c) {
        const Complex* x = in.channel(c);
        for (std::uint64_t f = 0; f < frames; ++f) {
            Complex* sum = sums.channel(0);
            for (const std::uint64_t width : widths) {
                if (width != 0)
                    check(ippsSum_32fc(x, length32(width), sum++, 0));
                x += width;
            }
            check(ippsMul_32fc(sums.channel(0), scale.channel(0), out.channel(c) + widths.size() * f, length32(widths.size())));
            x += binCount; // the upper half
        }
    }
    out.setSize(widths.size() * frames);
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// BandDist spreads one complex value per band over all bins of a spectrum, the reverse of BandSum in form though not in value.
//
// Bin k of the lower half takes its band's value, bin 2 * binCount - k the conjugate: the symmetry of a real signal's
// spectrum. The bin at half the sample rate is always 0. Nothing persists between calls.
#pragma once

#include "core/buffer.h"

#include <algorithm>
#include <numeric>
#include <span>
#include <vector>

namespace quorel {

template <std::size_t N>
class BandDist {
public:
    // widths: bins of each band from bin 0 on, half a spectrum in all and at least 2.
    explicit BandDist(std::span<const std::uint64_t> widths);

    // `in` holds whole frames of one value per band, `out` whole spectra. No frame at all is accepted.
    void process(const SpectrumBuffer<N>& in, SpectrumBuffer<N>& out);

    // What the product with such a spectrum makes of bins 0 to binCount of another one, the values of one frame being real.
    void scaleLowerHalf(const Complex* values, Complex* bins) const;

private:
    std::vector<std::uint64_t> widths; // bins of each band
    std::uint64_t binCount;            // half a spectrum
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
BandDist<N>::BandDist(std::span<const std::uint64_t> widths)
    : widths(widths.begin(), widths.end()), binCount(std::accumulate(widths.begin(), widths.end(), std::uint64_t{0}))
{
}

template <std::size_t N>
void BandDist<N>::process(const SpectrumBuffer<N>& in, SpectrumBuffer<N>& out)
{
    const auto frames = in.size() / widths.size();
    if (frames * binCount * 2 > out.capacity())
        throw std::invalid_argument("BandDist: out buffer too small");

    const auto mirrored = length32(binCount - 1);
    for (std::size_t c = 0; c < N; ++c) {
        const Complex* value = in.channel(c);
        for (std::uint64_t f = 0; f < frames; ++f) {
            Complex* bins = out.channel(c) + f * binCount * 2;
            Complex* bin = bins;
            for (const std::uint64_t width : widths)
                bin = std::fill_n(bin, width, *value++);
            bins[binCount] = 0.0F; // Required: the one bin at half the sample rate is cut, whatever the last band's value
            check(ippsConjFlip_32fc(bins + 1, bins + binCount + 1, mirrored));
        }
    }
    out.setSize(frames * binCount * 2);
}

template <std::size_t N>
void BandDist<N>::scaleLowerHalf(const Complex* values, Complex* bins) const
{
    auto* parts = reinterpret_cast<float*>(bins);
    for (const std::uint64_t width : widths) {
        if (width != 0)
            check(ippsMulC_32f_I(values->real(), parts, length32(2 * width)));
        parts += 2 * width;
        ++values;
    }
    bins[binCount] = 0.0F; // Required: see above
}

} // namespace quorel

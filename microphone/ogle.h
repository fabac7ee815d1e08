// SPDX-License-Identifier: MIT
// Ogle follows the level of each band in two steps: a fast envelope E of the magnitude, and a slow estimate O that holds
// still while E stays near it and is drawn to E once E has moved decisively away:
//
//   E += a * (max(|x|, floor) - E)    a is `rise` when the magnitude stands above E, else `fall`
//   O += r * (E - O)                  r is `dropRate` when O * lowRatio > E, else `catchUpRate` when E * highRatio >= O,
//                                     else `holdRate`
//
// O, the output, is the level of a band's signal, steady through short gaps and ripples. E and O of every channel persist.
#pragma once

#include "core/buffer.h"
#include "microphone/stage_tables.h"

#include <vector>

namespace quorel {

template <std::size_t N>
class Ogle {
public:
    // All tables have the length of `floor`, the number of bands.
    explicit Ogle(const OgleTables& tables);

    // `in` and `out` hold whole frames of one value per band; what is left of `in` stays unread. No frame at all is accepted.
    void process(const SpectrumBuffer<N>& in, Buffer<float, N>& out);

private:
    void follow(const Complex* x, std::size_t c);

    // Configuration, a value of each band; the tables tell what each is.
    std::uint64_t bandCount;
    Buffer<float, 1> floor;
    Buffer<float, 1> rise;
    Buffer<float, 1> fall;
    Buffer<float, 1> highRatio;
    Buffer<float, 1> lowRatio;
    Buffer<float, 1> catchUpRate;
    Buffer<float, 1> dropRate;
    Buffer<float, 1> holdRate;

    // State
    Buffer<float, N> envelope; // E
    Buffer<float, N> estimate; // O

    // Scratch
    Buffer<float, 1> envelopeRow; // coefficients of E in this frame
    Buffer<float, 1> estimateRow; // coefficients of O in this frame
    Buffer<float, 1> magnitude;
    Buffer<float, 1> difference;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
Ogle<N>::Ogle(const OgleTables& tables)
    : bandCount(tables.floor.size()),
      floor(tables.floor),
      rise(tables.rise),
      fall(tables.fall),
      highRatio(tables.highRatio),
      lowRatio(tables.lowRatio),
      catchUpRate(tables.catchUpRate),
      dropRate(tables.dropRate),
      holdRate(tables.holdRate),
      envelope(bandCount),
      estimate(bandCount),
      envelopeRow(bandCount),
      estimateRow(bandCount),
      magnitude(bandCount),
      difference(bandCount)
{
}

template <std::size_t N>
void Ogle<N>::process(const SpectrumBuffer<N>& in, Buffer<float, N>& out)
{
    const auto frames = in.size() / bandCount;
    if (frames * bandCount > out.capacity())
        throw std::invalid_argument("Ogle: out buffer too small");

    for (std::size_t c = 0; c < N; ++c) {
        for (std::uint64_t f = 0; f < frames; ++f) {
            follow(in.channel(c) + f * bandCount, c);
            check(ippsCopy_32f(estimate.channel(c), out.channel(c) + f * bandCount, length32(bandCount)));
        }
    }
    out.setSize(bandCount * frames);
}

// One frame of channel c.
template <std::size_t N>
void Ogle<N>::follow(const Complex* x, std::size_t c)
{
    const auto bands = length32(bandCount);
    const float* least = floor.channel(0);
    const float* up = rise.channel(0);
    const float* above = catchUpRate.channel(0);
    const float* below = dropRate.channel(0);
    float* e = envelope.channel(c);
    float* o = estimate.channel(c);
    float* a = envelopeRow.channel(0);
    float* r = estimateRow.channel(0);
    float* m = magnitude.channel(0);
    float* t = difference.channel(0);

    // Not-a-number compares false and so enters as the floor.
    check(ippsMagnitude_32fc(x, m, bands));
    check(ippsCopy_32f(fall.channel(0), a, bands));
    for (std::uint64_t b = 0; b < bandCount; ++b) {
        m[b] = m[b] > least[b] ? m[b] : least[b];
        if (m[b] > e[b])
            a[b] = up[b];
    }
    check(ippsSub_32f(e, m, t, bands));
    check(ippsMul_32f_I(a, t, bands));
    check(ippsAdd_32f_I(t, e, bands));

    check(ippsMul_32f(e, highRatio.channel(0), t, bands));
    check(ippsMul_32f(o, lowRatio.channel(0), m, bands));
    check(ippsCopy_32f(holdRate.channel(0), r, bands));
    for (std::uint64_t b = 0; b < bandCount; ++b) {
        if (t[b] >= o[b])
            r[b] = above[b];
        if (m[b] > e[b])
            r[b] = below[b];
    }
    check(ippsSub_32f(o, e, t, bands));
    check(ippsMul_32f_I(r, t, bands));
    check(ippsAdd_32f_I(t, o, bands));
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// SuppressionGain turns the noise floor and the signal level of each band into the gain of that band:
//
//   target       = clamp(ratioScale * noise / max(signal, epsilon) + noiseScale * noise + offset, 0, maxSuppression)
//   suppression += smoothing * (target - suppression)
//   gain         = 1 - suppression
//
// The suppression of every channel persists; it starts at 1, so that a stream starts silent. Whatever the two levels hold,
// infinity and not-a-number included, the gain is finite: both end as the full suppression of their band.
#pragma once

#include "core/buffer.h"
#include "microphone/stage_tables.h"

#include <cmath>
#include <limits>
#include <vector>

namespace quorel {

template <std::size_t N>
class SuppressionGain {
public:
    // All tables have the length of `ratioScale`, the number of bands.
    explicit SuppressionGain(const SuppressionGainTables& tables);

    // `noise` and `signal` hold whole frames of one level per band, linear; the three buffers have one size.
    void process(const Buffer<float, N>& noise, const Buffer<float, N>& signal, SpectrumBuffer<N>& gains);

private:
    void follow(const float* noise, const float* signal, std::size_t c);

    // Configuration, a value of each band; the tables tell what each is.
    std::uint64_t bandCount;
    float epsilon;
    Buffer<float, 1> ratioScale;
    Buffer<float, 1> maxSuppression;
    Buffer<float, 1> smoothing;
    Buffer<float, 1> noiseScale;
    Buffer<float, 1> offset;

    // State
    Buffer<float, N> suppression;

    // Scratch
    Buffer<float, 1> level; // the bounded signal level, then 1 - suppression
    Buffer<float, 1> ratio;
    Buffer<float, 1> sum; // the target
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
SuppressionGain<N>::SuppressionGain(const SuppressionGainTables& tables)
    : bandCount(tables.ratioScale.size()),
      epsilon(tables.epsilon),
      ratioScale(tables.ratioScale),
      maxSuppression(tables.maxSuppression),
      smoothing(tables.smoothing),
      noiseScale(tables.noiseScale),
      offset(tables.offset),
      suppression(bandCount),
      level(bandCount),
      ratio(bandCount),
      sum(bandCount)
{
    for (std::size_t c = 0; c < N; ++c)
        check(ippsSet_32f(1.0F, suppression.channel(c), length32(bandCount)));
}

template <std::size_t N>
void SuppressionGain<N>::process(const Buffer<float, N>& noise, const Buffer<float, N>& signal, SpectrumBuffer<N>& gains)
{
    const auto bands = length32(bandCount);
    const auto frames = noise.size() / bandCount;
    for (std::uint64_t f = 0; f < frames; ++f) {
        for (std::size_t c = 0; c < N; ++c) {
            follow(noise.channel(c) + f * bandCount, signal.channel(c) + f * bandCount, c);
            check(ippsSubCRev_32f(suppression.channel(c), 1.0F, level.channel(0), bands));
            check(ippsRealToCplx_32f(level.channel(0), nullptr, gains.channel(c) + f * bandCount, bands));
        }
    }
    gains.setSize(frames * bandCount);
}

// One frame of channel c.
template <std::size_t N>
void SuppressionGain<N>::follow(const float* noise, const float* signal, std::size_t c)
{
    const auto bands = length32(bandCount);
    const float* most = maxSuppression.channel(0);
    float* held = suppression.channel(c);
    float* a = level.channel(0);
    float* r = ratio.channel(0);
    float* target = sum.channel(0);

    check(ippsThreshold_LT_32f(signal, a, bands, epsilon));
    check(ippsMul_32f(noise, ratioScale.channel(0), r, bands));
    check(ippsMul_32f(noise, noiseScale.channel(0), target, bands));
    check(ippsDiv_32f_I(a, r, bands));
    check(ippsAdd_32f_I(r, target, bands));
    check(ippsAdd_32f_I(offset.channel(0), target, bands));
    for (std::uint64_t b = 0; b < bandCount; ++b) {
        target[b] = target[b] < most[b] ? target[b] : most[b];      // not-a-number ends here
        if (std::fabs(held[b]) < std::numeric_limits<float>::min()) // 1 - held is 1: spare the processor the subnormal tail
            held[b] = 0.0F;
    }
    check(ippsThreshold_LT_32f_I(target, bands, 0.0F));

    check(ippsSub_32f_I(held, target, bands));
    check(ippsMul_32f_I(smoothing.channel(0), target, bands));
    check(ippsAdd_32f_I(target, held, bands));
}

} // namespace quorel

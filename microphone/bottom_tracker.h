// SPDX-License-Identifier: MIT
// BottomTracker estimates the noise floor T of each band: the level below which the band's magnitude p does not go.
//
//   x += smoothing * (p - x)                            the smoothed magnitude
//   T above x:             T = max(T * fallFactor - epsilon, lowerLimit)
//   x > onsetRatio * p:    T = max(T + T * riseStep, T + epsilon)               a steady frame
//   otherwise:             T stays                                              an onset: bursts do not lift the floor
//
// `fallFactor` remembers what happened last: an onset arms `fastFall`, a falling frame arms `slowFall`, and the armed factor
// comes into use with the next steady frame. x, T and both factors of every channel persist.
#pragma once

#include "core/buffer.h"
#include "microphone/stage_tables.h"

#include <limits>
#include <vector>

namespace quorel {

template <std::size_t N>
class BottomTracker {
public:
    // All tables have the length of `riseStep`, the number of bands.
    explicit BottomTracker(const BottomTrackerTables& tables);

    // `in` and `out` hold whole frames of one value per band; what is left of `in` stays unread. No frame at all is accepted.
    void process(const SpectrumBuffer<N>& in, Buffer<float, N>& out);

private:
    void track(const Complex* x, std::size_t c);
    void spread(const Buffer<float, 1>& row, Buffer<float, N>& state);

    // Configuration, a value of each band; the tables tell what each is.
    std::uint64_t bandCount;
    Buffer<float, 1> riseStep;
    Buffer<float, 1> slowFall;
    Buffer<float, 1> fastFall;
    Buffer<float, 1> smoothing;
    Buffer<float, 1> lowerLimit;
    Buffer<float, 1> onsetRatio;
    Buffer<float, 1> epsilonRow;

    // State
    Buffer<float, N> fallFactor; // the factor in use
    Buffer<float, N> nextFall;   // the armed factor
    Buffer<float, N> bottom;     // T
    Buffer<float, N> smoothed;   // x

    // Scratch
    Buffer<float, 1> magnitude;
    Buffer<float, 1> step;   // the smoothing's difference, the rising step, the least risen floor
    Buffer<float, 1> fallen; // candidate of the falling floor
    Buffer<float, 1> risen;  // candidate of the rising floor
    Buffer<float, 1> limit;  // x of a steady frame lies above
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
BottomTracker<N>::BottomTracker(const BottomTrackerTables& tables)
    : bandCount(tables.riseStep.size()),
      riseStep(tables.riseStep),
      slowFall(tables.slowFall),
      fastFall(tables.fastFall),
      smoothing(tables.smoothing),
      lowerLimit(tables.lowerLimit),
      onsetRatio(tables.onsetRatio),
      epsilonRow(bandCount),
      fallFactor(bandCount),
      nextFall(bandCount),
      bottom(bandCount),
      smoothed(bandCount),
      magnitude(bandCount),
      step(bandCount),
      fallen(bandCount),
      risen(bandCount),
      limit(bandCount)
{
    const Buffer<float, 1> initialFloor(tables.initialFloor);
    spread(fastFall, fallFactor);
    spread(slowFall, nextFall);
    spread(initialFloor, bottom);
    check(ippsSet_32f(tables.epsilon, epsilonRow.channel(0), length32(bandCount)));
}

template <std::size_t N>
void BottomTracker<N>::process(const SpectrumBuffer<N>& in, Buffer<float, N>& out)
{
    const auto frames = in.size() / bandCount;
    if (frames * bandCount > out.capacity())
        throw std::invalid_argument("BottomTracker: out buffer too small");

    for (std::size_t c = 0; c < N; ++c) {
        for (std::uint64_t f = 0; f < frames; ++f) {
            track(in.channel(c) + f * bandCount, c);
            check(ippsCopy_32f(bottom.channel(c), out.channel(c) + f * bandCount, length32(bandCount)));
        }
    }
    out.setSize(bandCount * frames);
}

// One frame of channel c.
template <std::size_t N>
void BottomTracker<N>::track(const Complex* x, std::size_t c)
{
    const auto bands = length32(bandCount);
    const float* least = lowerLimit.channel(0);
    const float* slow = slowFall.channel(0);
    const float* fast = fastFall.channel(0);
    float* floor = bottom.channel(c);
    float* smooth = smoothed.channel(c);
    float* factor = fallFactor.channel(c);
    float* armed = nextFall.channel(c);
    float* p = magnitude.channel(0);
    float* difference = step.channel(0);
    float* leastRisen = difference;
    float* down = fallen.channel(0);
    float* up = risen.channel(0);
    float* steady = limit.channel(0);

    check(ippsMagnitude_32fc(x, p, bands));
    check(ippsSub_32f(smooth, p, difference, bands));
    check(ippsMul_32f_I(smoothing.channel(0), difference, bands));
    check(ippsAdd_32f_I(difference, smooth, bands));

    check(ippsMul_32f(floor, factor, down, bands));
    check(ippsSub_32f_I(epsilonRow.channel(0), down, bands));
    check(ippsMul_32f(floor, riseStep.channel(0), difference, bands));
    check(ippsAdd_32f(floor, difference, up, bands));
    check(ippsAdd_32f(floor, epsilonRow.channel(0), leastRisen, bands));
    check(ippsMul_32f(onsetRatio.channel(0), p, steady, bands));

    for (std::uint64_t b = 0; b < bandCount; ++b) {
        if (smooth[b] < std::numeric_limits<float>::min()) // no floor lies as low: spare the processor the subnormal tail
            smooth[b] = 0.0F;
        if (floor[b] > smooth[b]) {
            // Required: a factor above 1 lets the floor grow here, where the smoothed magnitude cannot overtake it again,
            // and so climb to infinity for good.
            floor[b] = down[b] > least[b] ? down[b] : least[b];
            armed[b] = slow[b];
        } else if (smooth[b] > steady[b]) {
            floor[b] = up[b] > leastRisen[b] ? up[b] : leastRisen[b];
            factor[b] = armed[b];
        } else {
            armed[b] = fast[b];
        }
    }
}

template <std::size_t N>
void BottomTracker<N>::spread(const Buffer<float, 1>& row, Buffer<float, N>& state)
{
    for (std::size_t c = 0; c < N; ++c)
        check(ippsCopy_32f(row.channel(0), state.channel(c), length32(bandCount)));
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// Compressor turns all channels down by one gain that follows the loudest of them.
//
//   envelope[c] += k * (|in[c][i]| - envelope[c])     k = release while the envelope lies above the sample, else attack
//   out[c][i] = g(largest envelope) * in[c][i]
//
// g is piecewise linear in gain against level, both linear, and is held constant outside its points: a curve of 1 / level
// from level 1.0 on makes a limiter, a curve that rises from a small gain makes a noise gate. No look-ahead: the start of
// a transient passes. The coefficients come from the path, worked out for the stream's rate: 1 - exp(-1 / (rate * tau)).
// The envelopes persist, so a stream may be cut into blocks of any length; what lies below -600 dB at a block's end is silence.
#pragma once

#include "core/buffer_names.h"
#include "core/kernels.h"
#include "stages/gain_point.h"

#include <algorithm>
#include <array>
#include <span>
#include <stdexcept>
#include <vector>

namespace quorel {

template <std::size_t C>
class Compressor {
    static_assert(C <= Dynamics::maxChannels);

public:
    // attack, release: share of the distance to the sample that the envelope goes in one frame. curve: at least one point,
    // in any order; of points at one level the first holds.
    Compressor(float attack, float release, std::span<const GainPoint> curve);

    Compressor(Compressor&&) noexcept = default;
    Compressor& operator=(Compressor&&) noexcept = default;

    // An empty block is accepted; `in` and `out` may be one object.
    void process(const Buffer<float, C>& in, Buffer<float, C>& out) { run(in, 0, in.size(), out); }

    // Takes the frames behind the history.
    void process(const PaddedBuffer<C>& in, Buffer<float, C>& out) requires(C == 2)
    {
        run(in, in.overlap(), in.validFrames(), out);
    }

    // Rows of n frames; those of `out` may be those of `in`.
    void process(const std::array<const float*, C>& in, const std::array<float*, C>& out, std::uint64_t n);

    // This one and another beside each other, on rows of their own, with the results of each by itself and hardly in more time
    // than one takes: envelopes wait for themselves from frame to frame, and these two wait together.
    void processBeside(Compressor& other, const std::array<const float*, 2>& in, const std::array<float*, 2>& out,
                       const std::array<const float*, 2>& otherIn, const std::array<float*, 2>& otherOut,
                       std::uint64_t n) requires(C == 2);

    // The gain at an envelope level.
    float gainFor(float level) const;

private:
    Dynamics dynamics() const { return {attack, release, gainCurve.data(), gainCurve.size()}; }
    void run(const Buffer<float, C>& in, std::uint64_t first, std::uint64_t n, Buffer<float, C>& out);

    float attack;                       // 0 < attack <= 1, for a level that rises or holds
    float release;                      // 0 < release <= 1, for a level that falls
    std::array<float, C> envelope{};    // level of each channel, linear
    std::vector<GainSegment> gainCurve; // in rising order of level, ahead of them the gain below the first
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t C>
Compressor<C>::Compressor(float attack, float release, std::span<const GainPoint> curve) : attack(attack), release(release)
{
    if (curve.empty())
        throw std::invalid_argument("Compressor: gain curve is empty");

    gainCurve.reserve(curve.size() + 1);
    for (const GainPoint& point : curve)
        gainCurve.push_back({point.level, point.gain, 0.0F});
    std::stable_sort(gainCurve.begin(), gainCurve.end(), [](const auto& a, const auto& b) { return a.level < b.level; });
    gainCurve.erase(
        std::unique(gainCurve.begin(), gainCurve.end(), [](const auto& a, const auto& b) { return a.level == b.level; }),
        gainCurve.end());
    for (auto next = gainCurve.begin() + 1; next != gainCurve.end(); ++next) {
        auto& segment = *(next - 1);
        segment.slope = (next->gain - segment.gain) / (next->level - segment.level);
    }
    gainCurve.insert(gainCurve.begin(), {0.0F, gainCurve.front().gain, 0.0F});
}

template <std::size_t C>
void Compressor<C>::run(const Buffer<float, C>& in, std::uint64_t first, std::uint64_t n, Buffer<float, C>& out)
{
    if (n > out.capacity())
        throw std::invalid_argument("Compressor: out buffer too small");

    process(rows(in, first), rows(out), n);
    out.setSize(n);
}

template <std::size_t C>
void Compressor<C>::process(const std::array<const float*, C>& in, const std::array<float*, C>& out, std::uint64_t n)
{
    const Dynamics set = dynamics();
    if (n > 0)
        check(compress(&set, envelope.data(), in.data(), out.data(), C, length32(n)));
}

template <std::size_t C>
void Compressor<C>::processBeside(Compressor& other, const std::array<const float*, 2>& in, const std::array<float*, 2>& out,
                                  const std::array<const float*, 2>& otherIn, const std::array<float*, 2>& otherOut,
                                  std::uint64_t n) requires(C == 2)
{
    const Dynamics set = dynamics();
    const Dynamics otherSet = other.dynamics();
    const std::array<const float*, 4> x = {in[0], in[1], otherIn[0], otherIn[1]};
    const std::array<float*, 4> y = {out[0], out[1], otherOut[0], otherOut[1]};
    std::array<float, 4> levels = {envelope[0], envelope[1], other.envelope[0], other.envelope[1]};
    if (n > 0)
        check(compressTwo(&set, &otherSet, levels.data(), x.data(), y.data(), length32(n)));
    envelope = {levels[0], levels[1]};
    other.envelope = {levels[2], levels[3]};
}

template <std::size_t C>
float Compressor<C>::gainFor(float level) const
{
    // The first segment but the front one that starts above the level, past which not-a-number goes to the end.
    const auto above = std::find_if(gainCurve.begin() + 1, gainCurve.end(), [&](const auto& s) { return level < s.level; });
    const auto& segment = *(above - 1);
    return segment.slope == 0.0F ? segment.gain : (level - segment.level) * segment.slope + segment.gain;
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// Compressor turns all channels down by one gain that follows the loudest of them.
//
//   envelope[c] += k * (|in[c][i]| - envelope[c])     k = release while the envelope lies above the sample, else attack
//   out[c][i] = g(largest envelope) * in[c][i]
//
// g is piecewise linear in gain against level, both linear, and is held constant outside its points: a curve of 1 / level
// from level 1.0 on makes a limiter, a curve that rises from a small gain makes a noise gate. No look-ahead: the start of
// a transient passes. The coefficients come from the path, worked out for the stream's rate: 1 - exp(-1 / (rate * tau)).
// The envelopes persist, so a stream may be cut into blocks of any length.
#pragma once

#include "core/buffer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <vector>

namespace quorel {

// A point of a gain curve: the gain at an envelope level, both linear.
struct GainPoint {
    float level;
    float gain;
};

template <std::size_t C>
class Compressor {
public:
    // attack, release: share of the distance to the sample that the envelope goes in one frame. curve: at least one point,
    // in any order; of points at one level the first holds.
    Compressor(float attack, float release, std::span<const GainPoint> curve);

    Compressor(Compressor&&) noexcept = default;
    Compressor& operator=(Compressor&&) noexcept = default;

    // An empty block is accepted; `in` and `out` may be one object.
    void process(const Buffer<float, C>& in, Buffer<float, C>& out) { run(in, 0, in.size(), out); }

    // Takes the frames behind the history.
    void process(const PaddedBuffer<2>& in, Buffer<float, 2>& out) requires(C == 2)
    {
        run(in, in.overlap(), in.validFrames(), out);
    }

    // The gain at an envelope level.
    float gainFor(float level) const
    {
        const Segment* from = gainCurve.data();
        return gainFrom(from, level);
    }

private:
    // From one point of the curve to the next.
    struct Segment {
        float level; // linear
        float gain;  // at `level`
        float slope; // gain per level, 0 in the last
    };

    // A value of each of four channels side by side in a register: the recursion is serial in time, but not across channels.
    using Lanes = float __attribute__((vector_size(16)));
    using LaneBits = std::int32_t __attribute__((vector_size(16)));
    static constexpr std::size_t groups = (C + 3) / 4;

    // Levels are never negative, so their bits are in the order of the levels, and are compared in less time.
    static LaneBits bits(Lanes levels) { return reinterpret_cast<LaneBits>(levels); }

    // Value c of each channel c of a group, 0 in lanes beyond the channels.
    template <typename Value>
    static Lanes gather(std::size_t group, Value value)
    {
        const auto lane = [&](std::size_t c) { return c < C ? value(c) : 0.0F; };
        return Lanes{lane(4 * group), lane(4 * group + 1), lane(4 * group + 2), lane(4 * group + 3)};
    }

    void run(const Buffer<float, C>& in, std::uint64_t first, std::uint64_t n, Buffer<float, C>& out);
    float gainFrom(const Segment*& segment, float level) const;

    float attack;                    // 0 < attack <= 1, for a level that rises or holds
    float release;                   // 0 < release <= 1, for a level that falls
    std::array<float, C> envelope{}; // level of each channel, linear
    std::vector<Segment> gainCurve;  // in rising order of level
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t C>
Compressor<C>::Compressor(float attack, float release, std::span<const GainPoint> curve) : attack(attack), release(release)
{
    if (curve.empty())
        throw std::invalid_argument("Compressor: gain curve is empty");

    gainCurve.reserve(curve.size());
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
}

template <std::size_t C>
void Compressor<C>::run(const Buffer<float, C>& in, std::uint64_t first, std::uint64_t n, Buffer<float, C>& out)
{
    if (n > out.capacity())
        throw std::invalid_argument("Compressor: out buffer too small");

    const auto x = rows(in, first);
    const auto y = rows(out);
    const Lanes rising = Lanes{} + attack;
    const Lanes falling = Lanes{} + release;
    std::array<Lanes, groups> held;
    for (std::size_t g = 0; g < groups; ++g)
        held[g] = gather(g, [&](std::size_t c) { return envelope[c]; });
    const Segment* segment = gainCurve.data();
    for (std::uint64_t i = 0; i < n; ++i) {
        float peak = 0.0F;
        for (std::size_t g = 0; g < groups; ++g) {
            const Lanes level = gather(g, [&](std::size_t c) { return std::fabs(x[c][i]); });
            const Lanes k = bits(held[g]) > bits(level) ? falling : rising;
            const Lanes next = held[g] + k * (level - held[g]);
            for (std::size_t c = 4 * g; c < std::min(C, 4 * g + 4); ++c)
                peak = next[c % 4] > peak ? next[c % 4] : peak; // not-a-number is not above it
            held[g] = next;
        }

        const float gain = gainFrom(segment, peak);
        for (std::size_t c = 0; c < C; ++c)
            y[c][i] = gain * x[c][i];
    }

    // In silence an envelope would stay among the denormal numbers for ever, which some processors take a hundred times
    // longer to add and multiply. What lies below -600 dB is silence.
    for (std::size_t c = 0; c < C; ++c) {
        const float level = held[c / 4][c % 4];
        envelope[c] = level < 1e-30F ? 0.0F : level;
    }
    out.setSize(n);
}

// Levels move slowly, so the search goes out from the segment of the frame before.
template <std::size_t C>
float Compressor<C>::gainFrom(const Segment*& segment, float level) const
{
    const Segment* const last = &gainCurve.back();
    if (level < gainCurve.front().level)
        return gainCurve.front().gain;
    while (segment != last && !(level < segment[1].level))
        ++segment;
    while (level < segment->level)
        --segment;
    return segment == last ? last->gain : (level - segment->level) * segment->slope + segment->gain;
}

} // namespace quorel

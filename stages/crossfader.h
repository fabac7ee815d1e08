// SPDX-License-Identifier: MIT
// Crossfader goes from one signal to another over one block, without a click, along a raised cosine.
//
//   rising[i] = 1 - (cos(i * pi / L) + 1) / 2      falling[i] = 1 - rising[i]      i = 0 ... L-1, L the block's frames
//
// The rise starts at 0 and stops one step short of 1: the next block stands at 1. The ramps persist and are computed anew
// only by a crossfade whose block has another length than the last one.
#pragma once

#include "core/buffer_arithmetic.h"
#include "stages/pending_value.h"

#include <cmath>

namespace quorel {

template <std::size_t C>
class Crossfader {
public:
    // maxFrames: the most frames of one block; the ramps are prepared for blocks of that length.
    explicit Crossfader(std::uint64_t maxFrames);

    // Ramps for blocks of `length` frames; none for 0.
    void prepare(std::uint64_t length);

    // result = from * falling + to * rising. `result` may be either of the two.
    // Like all arithmetic between buffers, and so like the fades below, it refuses an empty block.
    void blend(const Buffer<float, C>& from, const Buffer<float, C>& to, Buffer<float, C>& result);

    // Takes `signal` from `gain` to the requested one and honours the request. `result` may be `signal`.
    void blendGain(const Buffer<float, C>& signal, Buffer<float, C>& result, float& gain, PendingValue<float>& target);

    // Fades from the equaliser as it stands to the one designed for the request, and honours the request. The design
    // clears the equaliser's history: the new curve starts from silence, under the start of its rise.
    // Equalizer: process(in, out) and design(value).
    template <class Equalizer, typename Value>
    void blendEqualizer(const Buffer<float, C>& signal, Buffer<float, C>& result, Equalizer& equalizer,
                        PendingValue<Value>& target);

private:
    void prepareFor(const Buffer<float, C>& signal);

    Buffer<float, 1> rising;  // its size is the ramps' length
    Buffer<float, 1> falling; // of the same size

    // Scratch
    Buffer<float, C> work; // the signal that fades out
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t C>
Crossfader<C>::Crossfader(std::uint64_t maxFrames) : rising(maxFrames), falling(maxFrames), work(maxFrames)
{
    prepare(maxFrames);
}

template <std::size_t C>
void Crossfader<C>::prepare(std::uint64_t length)
{
    if (length > rising.capacity())
        throw std::invalid_argument("Crossfader: block longer than the ramps");

    constexpr float pi = 3.1415927F;
    float* up = rising.channel(0);
    float* down = falling.channel(0);
    for (std::uint64_t i = 0; i < length; ++i) {
        up[i] = 1.0F - (std::cos(static_cast<float>(i) * pi / static_cast<float>(length)) + 1.0F) * 0.5F;
        down[i] = 1.0F - up[i];
    }
    rising.setSize(length);
    falling.setSize(length);
}

template <std::size_t C>
void Crossfader<C>::blend(const Buffer<float, C>& from, const Buffer<float, C>& to, Buffer<float, C>& result)
{
    prepareFor(from);
    multiply(from, falling, work);
    if (&to == &result)
        result *= rising;
    else
        multiply(to, rising, result);
    result += work;
}

template <std::size_t C>
void Crossfader<C>::blendGain(const Buffer<float, C>& signal, Buffer<float, C>& result, float& gain, PendingValue<float>& target)
{
    prepareFor(signal);
    multiply(signal, gain, work);
    work *= falling;
    target.changed = false;
    gain = target.value;
    if (&signal == &result)
        result *= gain;
    else
        multiply(signal, gain, result);
    result *= rising;
    result += work;
}

template <std::size_t C>
template <class Equalizer, typename Value>
void Crossfader<C>::blendEqualizer(const Buffer<float, C>& signal, Buffer<float, C>& result, Equalizer& equalizer,
                                   PendingValue<Value>& target)
{
    prepareFor(signal);
    equalizer.process(signal, work);
    work *= falling;
    target.changed = false;
    equalizer.design(target.value);
    equalizer.process(signal, result);
    result *= rising;
    result += work;
}

template <std::size_t C>
void Crossfader<C>::prepareFor(const Buffer<float, C>& signal)
{
    if (signal.size() != rising.size())
        prepare(signal.size());
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// Biquad runs a cascade of second-order sections on each channel.
//
// Taps are six values a section, b0, b1, b2, a0, a1, a2 (core/kernels/filters.h), as floats or as doubles; either way the
// filter works in double precision. The history of each channel persists, so a stream may be cut into blocks of any length;
// setting taps discards it, and the filter starts from silence.
#pragma once

#include "core/buffer_names.h"
#include "core/kernels.h"
#include "core/rt_alloc.h"

#include <array>
#include <concepts>
#include <span>
#include <stdexcept>
#include <vector>

namespace quorel {

template <std::size_t C, class Tap = float>
class Biquad {
    static_assert(std::same_as<Tap, float> || std::same_as<Tap, double>);

public:
    // All memory for `sections` sections a channel; no taps yet.
    explicit Biquad(std::uint64_t sections);

    // 6 * sections taps, the same for all channels. Neither form allocates.
    void setCoefficients(std::span<const Tap> taps);

    // A list of taps for each channel.
    template <class List>
    requires std::convertible_to<const List&, std::span<const Tap>>
    void setCoefficients(const std::array<List, C>& taps);

    // The taps in force on channel c; empty before the first setting.
    const std::vector<Tap>& coefficients(std::size_t c) const { return coefficients_[c]; }

    void process(const Buffer<float, C>& in, Buffer<float, C>& out);

    // Rows of n frames; those of `out` may be those of `in`.
    void process(const std::array<const float*, C>& in, const std::array<float*, C>& out, std::uint64_t n);

private:
    using State = std::conditional_t<std::same_as<Tap, float>, Cascade_32f, Cascade64f_32f>;

    struct Filter {
        RtPointer<std::byte> storage;
        State* state = nullptr;     // the cascade, inside the storage
        std::uint64_t sections = 0; // second-order sections
    };

    void setChannel(std::size_t c, std::span<const Tap> taps);

    std::array<Filter, C> filters;
    std::array<std::vector<Tap>, C> coefficients_;
    bool initialized = false; // taps have been set on every channel
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t C, class Tap>
Biquad<C, Tap>::Biquad(std::uint64_t sections)
{
    for (std::size_t c = 0; c < C; ++c) {
        std::int32_t size = 0;
        if constexpr (std::same_as<Tap, float>)
            check(ippsIIRGetStateSize_BiQuad_32f(length32(sections), &size));
        else
            check(ippsIIRGetStateSize64f_BiQuad_32f(length32(sections), &size));
        filters[c].storage.reset(static_cast<std::byte*>(rt_alloc(static_cast<std::uint64_t>(size))));
        filters[c].sections = sections;
        coefficients_[c].reserve(6 * sections);
    }
}

template <std::size_t C, class Tap>
void Biquad<C, Tap>::setCoefficients(std::span<const Tap> taps)
{
    for (std::size_t c = 0; c < C; ++c)
        setChannel(c, taps);
    initialized = true;
}

template <std::size_t C, class Tap>
template <class List>
requires std::convertible_to<const List&, std::span<const Tap>>
void Biquad<C, Tap>::setCoefficients(const std::array<List, C>& taps)
{
    for (std::size_t c = 0; c < C; ++c)
        setChannel(c, taps[c]);
    initialized = true;
}

template <std::size_t C, class Tap>
void Biquad<C, Tap>::setChannel(std::size_t c, std::span<const Tap> taps)
{
    Filter& filter = filters[c];
    if (taps.size() != 6 * filter.sections)
        throw ipps::Error(ippStsIIROrderErr);

    if constexpr (std::same_as<Tap, float>)
        check(ippsIIRInit_BiQuad_32f(&filter.state, taps.data(), length32(filter.sections), nullptr, filter.storage.get()));
    else
        check(ippsIIRInit64f_BiQuad_32f(&filter.state, taps.data(), length32(filter.sections), nullptr, filter.storage.get()));
    coefficients_[c].assign(taps.begin(), taps.end());
}

template <std::size_t C, class Tap>
void Biquad<C, Tap>::process(const Buffer<float, C>& in, Buffer<float, C>& out)
{
    const auto n = in.size();
    if (n > out.capacity())
        throw std::invalid_argument("Biquad: out buffer too small");
    process(rows(in), rows(out), n);
    out.setSize(n);
}

template <std::size_t C, class Tap>
void Biquad<C, Tap>::process(const std::array<const float*, C>& in, const std::array<float*, C>& out, std::uint64_t n)
{
    if (!initialized)
        throw std::invalid_argument("Biquad: coefficients not initialized");

    for (std::size_t c = 0; c < C; ++c) {
        State* state = filters[c].storage ? filters[c].state : nullptr; // a Biquad that was moved from has none
        if constexpr (std::same_as<Tap, float>)
            check(ippsIIR_32f(in[c], out[c], length32(n), state));
        else
            check(ippsIIR64f_32f(in[c], out[c], length32(n), state));
    }
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// AllpassDiffuser runs a Schroeder allpass on each of the reverberator's twelve lines:
//   y[n] = g*x[n] + x[n-d] - g*y[n-d],  that is (g + z^-d) / (1 + g*z^-d), of magnitude 1 at every frequency
//
// Delays d and coefficients g are fixed at construction. The histories persist.
#pragma once

#include "core/buffer.h"

#include <array>

namespace quorel {

class AllpassDiffuser {
public:
    // Delays in samples, from 1; coefficients linear, below 1 in magnitude.
    AllpassDiffuser(const std::array<std::uint64_t, lineCount>& delays, const std::array<float, lineCount>& coefficients);

    AllpassDiffuser(AllpassDiffuser&&) noexcept = default;
    AllpassDiffuser& operator=(AllpassDiffuser&&) noexcept = default;

    void process(const Buffer<float, lineCount>& in, Buffer<float, lineCount>& out);

private:
    struct Allpass {
        Allpass(std::uint64_t d, float g);

        RtPointer<std::byte> storage;
        Sparse_32f* state = nullptr; // the filter, inside the storage
    };

    std::vector<Allpass> allpasses; // one a line
};

// ---------------------------------------------------------------------------------------------------------------------

inline AllpassDiffuser::Allpass::Allpass(std::uint64_t d, float g)
{
    const auto delay = length32(d);
    const float taps[] = {g, 1.0F, -g}; // two direct ones and a recursive one
    const std::int32_t positions[] = {0, delay, delay};
    std::int32_t size = 0;
    check(ippsIIRSparseGetStateSize_32f(2, 1, delay, delay, &size));
    storage.reset(static_cast<std::byte*>(rt_alloc(static_cast<std::uint64_t>(size))));
    check(ippsIIRSparseInit_32f(&state, taps, positions, 2, 1, storage.get()));
}

inline AllpassDiffuser::AllpassDiffuser(const std::array<std::uint64_t, lineCount>& delays,
                                        const std::array<float, lineCount>& coefficients)
{
    allpasses.reserve(lineCount);
    for (std::size_t c = 0; c < lineCount; ++c)
        allpasses.emplace_back(delays[c], coefficients[c]);
}

inline void AllpassDiffuser::process(const Buffer<float, lineCount>& in, Buffer<float, lineCount>& out)
{
    const auto n = in.size();
    if (n > out.capacity())
        throw std::invalid_argument("AllpassDiffuser: out buffer too small");

    for (std::size_t c = 0; c < lineCount; ++c)
        check(ippsIIRSparse_32f(in.channel(c), out.channel(c), length32(n), allpasses.at(c).state));
    out.setSize(n);
}

} // namespace quorel

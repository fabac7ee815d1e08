// SPDX-License-Identifier: MIT
// CascadeBank runs a cascade of two second-order sections on each of the reverberator's lines, all of them side by side.
//
// Taps are six values a section, b0, b1, b2, a0, a1, a2 (core/kernels/filters.h). The recursions are in single precision, which
// does for poles well inside the unit circle; with others the bank can't be built, and a Biquad is the filter to take. The
// history of each line persists, so a stream may be cut into blocks of any length.
#pragma once

#include "core/buffer.h"

#include <array>

namespace quorel {

class CascadeBank {
public:
    using Taps = std::array<std::array<float, 6 * kernels::BankState::sections>, lineCount>; // of each line

    // What the kernel refuses leaves as ipps::Error.
    explicit CascadeBank(const Taps& taps);

    // `in` and `out` may be one object.
    void process(const Buffer<float, lineCount>& in, Buffer<float, lineCount>& out);

private:
    RtPointer<kernels::BankState> state; // taps and histories
};

// ---------------------------------------------------------------------------------------------------------------------

inline CascadeBank::CascadeBank(const Taps& taps) : state(new (rt_alloc(sizeof(kernels::BankState))) kernels::BankState{})
{
    for (std::size_t l = 0; l < lineCount; ++l)
        check(cascadeBankSet(state.get(), l, taps[l].data()));
}

inline void CascadeBank::process(const Buffer<float, lineCount>& in, Buffer<float, lineCount>& out)
{
    const auto n = in.size();
    if (n > out.capacity())
        throw std::invalid_argument("CascadeBank: out buffer too small");
    check(cascadeBankRun(state.get(), rows(in).data(), rows(out).data(), length32(n)));
    out.setSize(n);
}

} // namespace quorel

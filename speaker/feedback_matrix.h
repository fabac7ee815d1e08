// SPDX-License-Identifier: MIT
// FeedbackMatrix mixes the reverberator's twelve lines by a matrix of plus and minus ones, with additions alone.
//
// The table holds an entry for each output line r and each pair p of input lines 2p and 2p+1: two decimal digits, 1 for plus
// and 0 for minus. So 11 adds the pair's sum, 10 adds its difference (first minus second), 1 subtracts the difference and 0
// subtracts the sum. Nothing persists; the scale of the matrix is applied elsewhere.
#pragma once

#include "core/buffer.h"

#include <array>

namespace quorel {

// A mixing table holds an entry other than 11, 10, 1 and 0.
class IllegalMixingMatrix : public std::exception {
public:
    const char* what() const noexcept override { return "FeedbackMatrix: Illegal content in mixingMatrix."; }
};

class FeedbackMatrix {
public:
    static constexpr std::size_t pairs = PairMix::pairs;
    using Table = std::array<std::array<std::int8_t, pairs>, lineCount>;

    // Blocks of any length: no scratch depends on maxFrames.
    // Required: an illegal entry is accepted here, and found in the block that first meets it.
    FeedbackMatrix(const Table& mixingMatrix, std::uint64_t maxFrames);

    // The rows before one with an illegal entry are written before it is reported.
    void process(const Buffer<float, lineCount>& in, Buffer<float, lineCount>& out) const;

    // The same of (in + added) * gain, where the lines behind the N first have nothing added.
    template <std::size_t N>
    void process(const Buffer<float, lineCount>& in, const Buffer<float, N>& added, float gain,
                 Buffer<float, lineCount>& out) const;

private:
    using AddedRows = std::array<const float*, lineCount>; // null where nothing is added
    void mixLines(const Buffer<float, lineCount>& in, const AddedRows& added, float gain, Buffer<float, lineCount>& out) const;

    std::array<PairMix, lineCount> mix{}; // the table's rows as the kernel takes them
    std::size_t legal = 0;                // rows ahead of the first that has an illegal entry
};

// ---------------------------------------------------------------------------------------------------------------------

inline FeedbackMatrix::FeedbackMatrix(const Table& mixingMatrix, [[maybe_unused]] std::uint64_t maxFrames)
{
    for (; legal < lineCount; ++legal) {
        for (std::size_t p = 0; p < pairs; ++p) {
            const std::int8_t entry = mixingMatrix[legal][p];
            if (p > 0 && entry != 11 && entry != 10 && entry != 1 && entry != 0)
                return;
            // Required: the first column knows no minus on line 0; whatever is not 11 acts as 10.
            const bool sum = entry == 11 || (entry == 0 && p > 0);
            mix[legal].term[p] = static_cast<std::uint8_t>((sum ? PairMix::sum : PairMix::difference) + p);
            mix[legal].sign[p] = entry >= 10 || p == 0 ? 1.0F : -1.0F;
        }
    }
}

inline void FeedbackMatrix::process(const Buffer<float, lineCount>& in, Buffer<float, lineCount>& out) const
{
    mixLines(in, {}, 1.0F, out);
}

template <std::size_t N>
void FeedbackMatrix::process(const Buffer<float, lineCount>& in, const Buffer<float, N>& added, float gain,
                             Buffer<float, lineCount>& out) const
{
    static_assert(N <= lineCount);
    AddedRows addedRows{};
    for (std::size_t c = 0; c < N; ++c)
        addedRows[c] = added.channel(c);
    mixLines(in, addedRows, gain, out);
}

inline void FeedbackMatrix::mixLines(const Buffer<float, lineCount>& in, const AddedRows& added, float gain,
                                     Buffer<float, lineCount>& out) const
{
    const auto n = in.size();
    if (n > out.capacity())
        throw std::invalid_argument("FeedbackMatrix: out buffer too small");

    check(mixPairs(rows(in).data(), added.data(), gain, rows(out).data(), mix.data(), legal, length32(n)));
    if (legal < lineCount)
        throw IllegalMixingMatrix();
    out.setSize(n);
}

} // namespace quorel

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
    static constexpr std::size_t lines = 12;
    static constexpr std::size_t pairs = lines / 2;
    using Table = std::array<std::array<std::int8_t, pairs>, lines>;

    // Required: an illegal entry is accepted here, and found in the block that first meets it.
    FeedbackMatrix(const Table& mixingMatrix, std::uint64_t maxFrames)
        : mixingMatrix(mixingMatrix), pairSum(maxFrames), pairDiff(maxFrames)
    {
    }

    // A block beyond maxFrames, rounded up as a buffer's capacity is, fails like one beyond the capacity of `out`.
    void process(const Buffer<float, lines>& in, Buffer<float, lines>& out);

private:
    Table mixingMatrix;
    Buffer<float, pairs> pairSum;  // scratch: the sum of each pair
    Buffer<float, pairs> pairDiff; // scratch: its first line minus its second
};

// ---------------------------------------------------------------------------------------------------------------------

inline void FeedbackMatrix::process(const Buffer<float, lines>& in, Buffer<float, lines>& out)
{
    const auto n = in.size();
    if (n > out.capacity() || n > pairSum.capacity())
        throw std::invalid_argument("FeedbackMatrix: out buffer too small");

    const auto length = length32(n);
    for (std::size_t p = 0; p < pairs; ++p) {
        check(ippsAdd_32f(in.channel(2 * p), in.channel(2 * p + 1), pairSum.channel(p), length));
        check(ippsSub_32f(in.channel(2 * p + 1), in.channel(2 * p), pairDiff.channel(p), length));
    }
    for (std::size_t r = 0; r < lines; ++r) {
        float* y = out.channel(r);
        // Required: the first column knows no minus on line 0; whatever is not 11 acts as 10.
        check(ippsCopy_32f(mixingMatrix[r][0] == 11 ? pairSum.channel(0) : pairDiff.channel(0), y, length));
        for (std::size_t p = 1; p < pairs; ++p) {
            switch (mixingMatrix[r][p]) {
            case 11:
                check(ippsAdd_32f_I(pairSum.channel(p), y, length));
                break;
            case 10:
                check(ippsAdd_32f_I(pairDiff.channel(p), y, length));
                break;
            case 1:
                check(ippsSub_32f_I(pairDiff.channel(p), y, length));
                break;
            case 0:
                check(ippsSub_32f_I(pairSum.channel(p), y, length));
                break;
            default:
                throw IllegalMixingMatrix();
            }
        }
    }
    out.setSize(n);
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// DelayLine holds the reverberator's twelve recirculating lines: `read` gives what each line holds back, `write` stores the
// block that the network made of it and sums two weighted taps of every line into a stereo pair.
//   read:   y[l][i] = x[l][i - lineLength[l]]
//   write:  left[i] = sum over l of gainLeft[l] * x[l][i - tapLeft[l] - (maxBlock - n)], and right likewise
//
// Within a block of n frames `read` comes first, then `write`. Of each line the last lineLength + maxBlock samples persist,
// oldest first: a window that moves up its row by n with every block, and at the row's end back to its front.
// Required: a tap has its nominal delay in blocks of maxBlock frames alone, and is maxBlock - n samples later in shorter ones.
#pragma once

#include "core/buffer.h"

#include <array>
#include <limits>
#include <new>

namespace quorel {

class DelayLine {
public:
    using Lengths = std::array<std::uint64_t, lineCount>;
    using Gains = std::array<float, lineCount>;

    // Taps, lengths and the largest block in samples; linear gains. No line may be shorter than one of its taps or than
    // maxBlock.
    DelayLine(const Lengths& tapLeft, const Gains& gainLeft, const Lengths& tapRight, const Gains& gainRight,
              const Lengths& lineLength, std::uint64_t maxBlock);

    void read(Buffer<float, lineCount>& out, std::uint64_t n) const;

    // Clears `stereoOut` over its full capacity and sums the lines into it in index order. An empty block is refused.
    void write(const Buffer<float, lineCount>& in, Buffer<float, 2>& stereoOut);

private:
    std::array<Buffer<float, 1>, lineCount> zeroedLines() const;
    std::uint64_t rowLength(std::size_t l) const;
    float* moveWindow(std::size_t l, std::uint64_t n);
    std::uint64_t window(std::size_t l) const { return lineLength[l] + maxBlock; }

    Lengths tapLeft;                               // samples
    Gains gainLeft;                                // linear
    Lengths tapRight;                              // samples
    Gains gainRight;                               // linear
    Lengths lineLength;                            // samples
    std::uint64_t maxBlock;                        // samples in the largest block
    std::array<Buffer<float, 1>, lineCount> lines; // twice the window long, so that it seldom has to go back
    Lengths start{};                               // where each line's window begins
};

// ---------------------------------------------------------------------------------------------------------------------

inline DelayLine::DelayLine(const Lengths& tapLeft, const Gains& gainLeft, const Lengths& tapRight, const Gains& gainRight,
                            const Lengths& lineLength, std::uint64_t maxBlock)
    : tapLeft(tapLeft),
      gainLeft(gainLeft),
      tapRight(tapRight),
      gainRight(gainRight),
      lineLength(lineLength),
      maxBlock(maxBlock),
      lines(zeroedLines())
{
}

inline std::array<Buffer<float, 1>, lineCount> DelayLine::zeroedLines() const
{
    for (std::size_t l = 0; l < lineCount; ++l)
        if (lineLength[l] < tapRight[l] || lineLength[l] < tapLeft[l] || lineLength[l] < maxBlock)
            throw std::invalid_argument("DelayLine: Length of delayLineBuffer is too short");

    return [this]<std::size_t... l>(std::index_sequence<l...>)
    {
        return std::array{Buffer<float, 1>(rowLength(l))...};
    }
    (std::make_index_sequence<lineCount>());
}

// Twice the window, of which a count that wraps must not make a short row. No block is longer than the line.
inline std::uint64_t DelayLine::rowLength(std::size_t l) const
{
    if (lineLength[l] > std::numeric_limits<std::uint64_t>::max() / 4)
        throw std::bad_alloc();
    return 2 * window(l);
}

inline void DelayLine::read(Buffer<float, lineCount>& out, std::uint64_t n) const
{
    if (n > out.capacity())
        throw std::invalid_argument("DelayLine: out buffer too small");
    if (n > maxBlock)
        throw std::invalid_argument("DelayLine: internal buffer too small");

    for (std::size_t l = 0; l < lineCount; ++l)
        check(ippsCopy_32f(lines[l].channel(0) + start[l] + maxBlock, out.channel(l), length32(n)));
    out.setSize(n);
}

inline void DelayLine::write(const Buffer<float, lineCount>& in, Buffer<float, 2>& stereoOut)
{
    const auto n = in.size();
    if (n > stereoOut.capacity())
        throw std::invalid_argument("DelayLine: stereoOut buffer too small");
    if (n > maxBlock)
        throw std::invalid_argument("DelayLine: internal buffer too small");
    if (n == 0)
        throw std::invalid_argument("DelayLine: in buffer empty");

    stereoOut.clear();
    const auto length = length32(n);
    std::array<const float*, lineCount> left;
    std::array<const float*, lineCount> right;
    for (std::size_t l = 0; l < lineCount; ++l) {
        float* row = moveWindow(l, n);
        check(ippsCopy_32f(in.channel(l), row + window(l) - n, length));
        left[l] = row + lineLength[l] - tapLeft[l];
        right[l] = row + lineLength[l] - tapRight[l];
    }
    check(sumRows(left.data(), gainLeft.data(), lineCount, stereoOut.channel(0), length));
    check(sumRows(right.data(), gainRight.data(), lineCount, stereoOut.channel(1), length));
    stereoOut.setSize(n);
}

// The window of a line, n samples on: the last n are the caller's to write.
inline float* DelayLine::moveWindow(std::size_t l, std::uint64_t n)
{
    float* row = lines[l].channel(0);
    if (start[l] + n + window(l) <= lines[l].capacity()) {
        start[l] += n;
    } else {
        check(ippsMove_32f(row + start[l] + n, row, length32(window(l) - n)));
        start[l] = 0;
    }
    return row + start[l];
}

} // namespace quorel

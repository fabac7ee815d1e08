// SPDX-License-Identifier: MIT
// XCorrFreq sets how strongly the two channels of the reverberator are correlated at each frequency:
//
//   left out = H1 * left + H2 * right        right out = H1 * right + H2 * left
//
// A room is heard alike by both ears at low frequencies and differently at high ones: with H2 close to H1 below 300 Hz and
// small above 1 kHz the outputs are. Both filters share a delay of about 70 frames. The convolution is overlap-save in
// transforms of 1024 frames, with no latency of its own; the history in `input` persists.
#pragma once

#include "core/buffer.h"
#include "core/fft.h"
#include "speaker/transform_length.h"

#include <array>

namespace quorel {

template <typename T>
class XCorrFreq;

template <>
class XCorrFreq<float> {
public:
    // first, second: the spectra of H1 and H2 in Pack form, 1024 floats each. overlap: the frames of history that the filters
    // reach back, one less than their taps.
    XCorrFreq(const float* first, const float* second, std::uint64_t overlap);

    // Blocks up to 1024 less the history, rounded up: 880 frames for 140 taps. An empty block gives an empty block.
    void process(const Buffer<float, 2>& in, Buffer<float, 2>& out);

private:
    // Configuration
    Buffer<float, 2> filters; // spectra of H1 and H2
    FFT<float> fft;           // of 1024 frames

    // State: the history at its front. Behind it stand the block and zeros.
    PaddedBuffer<2> input;

    // Scratch
    PaddedBuffer<2> output;          // valid behind its overlap
    Buffer<float, 2> inputSpectrum;  // of both channels
    Buffer<float, 2> outputSpectrum; // of both channels
};

// ---------------------------------------------------------------------------------------------------------------------

inline XCorrFreq<float>::XCorrFreq(const float* first, const float* second, std::uint64_t overlap)
    : filters(transformLength),
      fft(transformOrder),
      input(transformLength, overlap),
      output(transformLength, overlap),
      inputSpectrum(transformLength),
      outputSpectrum(transformLength)
{
    if (filters.capacity() < transformLength) // Required: cannot happen
        throw std::invalid_argument("quorel::XCorrFreq<float>::set: size must match");
    check(ippsCopy_32f(first, filters.channel(0), length32(transformLength)));
    check(ippsCopy_32f(second, filters.channel(1), length32(transformLength)));
    for (Buffer<float, 2>* buffer : {&filters, static_cast<Buffer<float, 2>*>(&input), static_cast<Buffer<float, 2>*>(&output),
                                     &inputSpectrum, &outputSpectrum})
        buffer->setSize(buffer->capacity());
}

inline void XCorrFreq<float>::process(const Buffer<float, 2>& in, Buffer<float, 2>& out)
{
    const auto n = in.size();
    const auto overlap = input.overlap();
    input.slide();
    if (n > input.capacity() - overlap)
        throw std::invalid_argument("PassThrough: out buffer too small");
    if (n == 0) {
        out.setSize(0);
        return;
    }
    for (std::size_t c = 0; c < 2; ++c)
        check(ippsCopy_32f(in.channel(c), input.channel(c) + overlap, length32(n)));
    input.setSize(overlap + n);

    fft.Fwd(input, inputSpectrum);
    const auto toLeft = rows(filters);
    const std::array<const float*, 2> toRight = {toLeft[1], toLeft[0]};
    check(sumProductsPack(rows(inputSpectrum).data(), toLeft.data(), toRight.data(), 2, outputSpectrum.channel(0),
                          outputSpectrum.channel(1), length32(transformLength)));
    fft.Inv(outputSpectrum, output);
    output.setSize(overlap + input.validFrames());

    if (n > out.capacity())
        throw std::invalid_argument("PassThrough: out buffer too small");
    for (std::size_t c = 0; c < 2; ++c)
        check(ippsCopy_32f(output.channel(c) + overlap, out.channel(c), length32(n)));
    out.setSize(n);
}

} // namespace quorel

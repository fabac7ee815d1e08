// SPDX-License-Identifier: MIT
// FDN is the room: a feedback delay network of twelve lines between N input channels and a stereo tail.
//
//   in --> pre-delays --> + --> scale --> mixing matrix --> line filters --> allpasses --+--> lines
//                         ^                                                              |      |
//                         +---------- each line's samples, `length` frames old <---------+------+
//                                     stereo taps --> correlation --> output filter --> out
//
// The scaled mixing matrix is orthogonal and the allpasses have a gain of 1, so the line filters alone make the loop decay.
// Every step takes a whole block, so the loop is closed once a block: no block may exceed the shortest line. All histories
// persist, and stand still while the path does not run the room. Nothing here varies at run time.
#pragma once

#include "core/buffer_arithmetic.h"
#include "speaker/allpass_diffuser.h"
#include "speaker/cascade_bank.h"
#include "speaker/delay.h"
#include "speaker/delay_line.h"
#include "speaker/feedback_matrix.h"
#include "speaker/xcorr_freq.h"
#include "stages/biquad.h"

#include <array>
#include <cmath>
#include <span>

namespace quorel {

template <std::size_t N>
class FDN {
public:
    // preDelays: frames, one for each channel. outputTaps: four sections, for both sides. maxFrames: the most frames of a
    // block, at most the shortest line's.
    FDN(std::span<const std::uint64_t, N> preDelays, const FeedbackMatrix::Table& mixingMatrix, AllpassDiffuser diffuser,
        DelayLine delayLine, XCorrFreq<float> decorrelator, const CascadeBank::Taps& lineTaps, std::span<const float> outputTaps,
        std::uint64_t maxFrames);

    void process(const PaddedBuffer<N>& in, Buffer<float, 2>& out);

private:
    // Makes a matrix of plus and minus ones in twelve rows orthogonal: 0.2887.
    static inline const float feedbackScale = std::sqrt(12.0F) / 12.0F;

    // The stages, with their state
    Delay<N> delay;
    FeedbackMatrix feedbackMatrix;
    AllpassDiffuser diffuser;
    DelayLine delayLine;
    XCorrFreq<float> decorrelator;
    CascadeBank lineFilters;
    Biquad<2> outputFilter;

    // Scratch
    Buffer<float, N> delayed; // the input behind its pre-delays
    Buffer<float, lineCount> lineA;
    Buffer<float, lineCount> lineB;
    Buffer<float, 2> stereoWork; // the tail behind the decorrelator
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
FDN<N>::FDN(std::span<const std::uint64_t, N> preDelays, const FeedbackMatrix::Table& mixingMatrix, AllpassDiffuser diffuser,
            DelayLine delayLine, XCorrFreq<float> decorrelator, const CascadeBank::Taps& lineTaps,
            std::span<const float> outputTaps, std::uint64_t maxFrames)
    : delay(preDelays),
      feedbackMatrix(mixingMatrix, maxFrames),
      diffuser(std::move(diffuser)),
      delayLine(std::move(delayLine)),
      decorrelator(std::move(decorrelator)),
      lineFilters(lineTaps),
      outputFilter(4),
      delayed(maxFrames),
      lineA(maxFrames),
      lineB(maxFrames),
      stereoWork(maxFrames)
{
    outputFilter.setCoefficients(outputTaps);
}

template <std::size_t N>
void FDN<N>::process(const PaddedBuffer<N>& in, Buffer<float, 2>& out)
{
    const auto n = in.validFrames();
    if (n > out.capacity())
        throw std::invalid_argument("FDN: out buffer too small");

    delay.process(in, delayed);
    delayLine.read(lineA, n);
    feedbackMatrix.process(lineA, delayed, feedbackScale, lineB);
    lineFilters.process(lineB, lineA);
    diffuser.process(lineA, lineB);
    delayLine.write(lineB, out);
    decorrelator.process(out, stereoWork);
    outputFilter.process(stereoWork, out);
}

} // namespace quorel

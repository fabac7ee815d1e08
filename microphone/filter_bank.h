// SPDX-License-Identifier: MIT
// FilterBank turns `hop` new samples into a spectrum of `fftLength` bins, InverseFilterBank a spectrum into `hop` samples:
// weighted overlap-add with an analysis window a little longer than the transform and a synthesis window a little shorter.
//
//   analysis:   X[k] = sum over m of w[m] * x[t - m] * exp(-2*pi*i*k*(floor(L/2) - m) / fftLength)
//   synthesis:  y[t + m] += w[m] * Re sum over k of X[k] * exp(2*pi*i*k*(m - floor(L/2)) / fftLength)
//
// Both have zero phase about the window's centre. With complementary windows and unchanged spectra the output is the input,
// floor(L(analysis) / 2) + floor(L(synthesis) / 2) - hop + 1 samples late; there is no scale factor but that of the windows.
// One inverse transform serves both: the analysis keeps its history newest first, and the inverse transform of a frame that is
// reversed in time is the ordinary spectrum. What persists is that history on one side and the overlapping tail on the other.
#pragma once

#include "core/buffer.h"
#include "core/fft.h"

#include <bit>
#include <span>

namespace quorel {

template <std::size_t N>
class FilterBank {
public:
    // fftLength: bins, a power of two. hop: samples. window: of odd length, more than a hop; it is folded into fftLength.
    FilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window);

    // One whole spectrum, both halves, for each hop in `in`; what is left of `in` stays unread. No hop is accepted.
    void process(const Buffer<float, N>& in, SpectrumBuffer<N>& out);

private:
    // Configuration
    std::uint64_t fftLength; // bins
    std::uint64_t hop;       // samples
    Buffer<float, 1> window;
    std::uint64_t windowLength;
    std::uint64_t phaseOffset; // where the window starts, so that its centre folds to index 0
    FFT<float, Complex> fft;

    // State
    Buffer<float, N> history; // sample k came k samples before the newest

    // Scratch
    Buffer<float, 1> scratch; // the windowed frame; always zero before and behind the window
    Buffer<float, 1> folded;  // the frame aliased into one transform length
    SpectrumBuffer<1> complexFrame;
};

template <std::size_t N>
class InverseFilterBank {
public:
    // fftLength: bins, a power of two. hop: samples. window: of odd length, more than a hop, at most fftLength.
    InverseFilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window);

    // `hop` samples for each whole spectrum in `in`, which need not be symmetric: imaginary parts of the frame are dropped.
    // The caller has seen to the room in `out`.
    void process(const SpectrumBuffer<N>& in, Buffer<float, N>& out);

private:
    // Configuration
    std::uint64_t fftLength; // bins
    std::uint64_t hop;       // samples
    Buffer<float, 1> window;
    std::uint64_t windowLength;
    std::uint64_t phaseOffset; // where the window starts in the repeated frame, so that its centre meets index 0
    FFT<float, Complex> fft;

    // State
    Buffer<float, N> overlap; // the tail of former frames; sample 0 is the next to leave

    // Scratch
    SpectrumBuffer<1> complexFrame;
    Buffer<float, 1> realFrame; // the frame, twice
    Buffer<float, 1> windowed;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
FilterBank<N>::FilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window)
    : fftLength(fftLength),
      hop(hop),
      window(std::vector(window.begin(), window.end())),
      windowLength(window.size()),
      phaseOffset((fftLength - (window.size() - 1) / 2) % fftLength),
      fft(static_cast<std::uint64_t>(std::bit_width(fftLength)) - 1),
      history(window.size()),
      scratch(2 * fftLength),
      folded(fftLength),
      complexFrame(fftLength)
{
}

template <std::size_t N>
void FilterBank<N>::process(const Buffer<float, N>& in, SpectrumBuffer<N>& out)
{
    const auto frames = in.size() / hop;
    if (out.capacity() < fftLength * frames)
        throw std::invalid_argument("FilterBank: Size mismatch. Too many frames provided fopr output size");

    const auto length = length32(fftLength);
    const auto kept = length32(windowLength - hop); // samples that stay in the history
    float* frame = scratch.channel(0);
    for (std::size_t c = 0; c < N; ++c) {
        float* past = history.channel(c);
        for (std::uint64_t f = 0; f < frames; ++f) {
            check(ippsMove_32f(past, past + hop, kept));
            check(ippsFlip_32f(in.channel(c) + f * hop, past, length32(hop)));
            check(ippsMul_32f(window.channel(0), past, frame + phaseOffset, length32(windowLength)));
            check(ippsAdd_32f(frame, frame + fftLength, folded.channel(0), length));
            check(ippsRealToCplx_32f(folded.channel(0), nullptr, complexFrame.channel(0), length));
            if (fftLength != std::uint64_t{1} << fft.order()) // Required: cannot happen
                throw ipps::Error(ippStsSizeErr);
            fft.Inv(complexFrame.channel(0), out.channel(c) + f * fftLength);
        }
    }
    out.setSize(fftLength * frames);
}

template <std::size_t N>
InverseFilterBank<N>::InverseFilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window)
    : fftLength(fftLength),
      hop(hop),
      window(std::vector(window.begin(), window.end())),
      windowLength(window.size()),
      phaseOffset(fftLength - window.size() / 2),
      fft(static_cast<std::uint64_t>(std::bit_width(fftLength)) - 1),
      overlap(window.size()),
      complexFrame(fftLength),
      realFrame(2 * fftLength),
      windowed(window.size())
{
}

template <std::size_t N>
void InverseFilterBank<N>::process(const SpectrumBuffer<N>& in, Buffer<float, N>& out)
{
    const auto frames = in.size() / fftLength;
    const auto length = length32(fftLength);
    const auto kept = length32(windowLength - hop);
    float* frame = realFrame.channel(0);
    float* shaped = windowed.channel(0);
    for (std::size_t c = 0; c < N; ++c) {
        float* tail = overlap.channel(c);
        for (std::uint64_t f = 0; f < frames; ++f) {
            if (fftLength != std::uint64_t{1} << fft.order()) // Required: cannot happen
                throw ipps::Error(ippStsSizeErr);
            fft.Inv(in.channel(c) + f * fftLength, complexFrame.channel(0));
            check(ippsReal_32fc(complexFrame.channel(0), frame, length));
            check(ippsCopy_32f(frame, frame + fftLength, length));
            check(ippsMul_32f(window.channel(0), frame + phaseOffset, shaped, length32(windowLength)));
            check(ippsAdd_32f(shaped, tail, out.channel(c) + f * hop, length32(hop)));
            check(ippsAdd_32f_I(tail + hop, shaped + hop, kept));
            check(ippsCopy_32f(shaped + hop, tail, kept));
            check(ippsZero_32f(tail + (windowLength - hop), length32(hop)));
        }
    }
    out.setSize(hop * frames);
}

} // namespace quorel

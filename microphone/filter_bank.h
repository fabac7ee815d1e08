// SPDX-License-Identifier: MIT
// FilterBank turns `hop` new samples into a spectrum of `fftLength` bins, InverseFilterBank a spectrum into `hop` samples:
// weighted overlap-add with an analysis window a little longer than the transform and a synthesis window a little shorter.
//
//   analysis:   X[k] = sum over m of w[m] * x[t - m] * exp(-2*pi*i*k*(floor(L/2) - m) / fftLength)
//   synthesis:  y[t + m] += w[m] * Re sum over k of X[k] * exp(2*pi*i*k*(m - floor(L/2)) / fftLength)
//
// Both have zero phase about the window's centre. With complementary windows and unchanged spectra the output is the input,
// floor(L(analysis) / 2) + floor(L(synthesis) / 2) - hop + 1 samples late; there is no scale factor but that of the windows.
// What persists is a window's length of history on one side and the overlapping tail on the other.
//
// Signals are real, so the lower half of a spectrum, bins 0 to fftLength / 2, tells all of it and is all that a real transform
// computes. Each bank takes or gives that half alone, or the whole spectrum.
#pragma once

#include "core/buffer.h"
#include "core/fft.h"

#include <bit>
#include <span>
#include <utility>

namespace quorel {

template <std::size_t N>
class FilterBank {
public:
    // fftLength: bins, a power of two. hop: samples. window: of odd length, more than a hop and less than twice fftLength, into
    // which it is folded.
    FilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window);

    // One whole spectrum for each hop in `in`; what is left of `in` stays unread. No hop is accepted.
    void process(const Buffer<float, N>& in, SpectrumBuffer<N>& out);

    // The lower half of the spectrum of channel c, one hop of `in` further.
    void lowerHalf(std::size_t c, const float* in, Complex* bins);

private:
    // Configuration
    std::uint64_t fftLength; // bins
    std::uint64_t hop;       // samples
    std::uint64_t windowLength;
    Buffer<float, 1> window; // the oldest sample's factor first
    FFT<float> fft;

    // State
    Buffer<float, N> history; // a window's length of samples, the oldest first

    // Scratch
    Buffer<float, 1> folded; // the windowed frame aliased into one transform length
};

template <std::size_t N>
class InverseFilterBank {
public:
    // fftLength: bins, a power of two. hop: samples. window: of odd length, more than a hop, at most fftLength.
    InverseFilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window);

    // `hop` samples for each whole spectrum in `in`, which need not be symmetric: imaginary parts of the frame are dropped.
    // The caller has seen to the room in `out`.
    void process(const SpectrumBuffer<N>& in, Buffer<float, N>& out);

    // One hop of channel c from the lower half of a spectrum, which is spent. The frame being real, the imaginary parts of bins
    // 0 and fftLength / 2 stay unread.
    void fromLowerHalf(std::size_t c, Complex* bins, float* out);

private:
    // Configuration
    std::uint64_t fftLength; // bins
    std::uint64_t hop;       // samples
    std::uint64_t windowLength;
    Buffer<float, 1> window; // times fftLength, by which the real transform divides; both are powers of two
    FFT<float> fft;

    // State
    Buffer<float, N> overlap; // the tail of former frames; sample 0 is the next to leave

    // Scratch
    SpectrumBuffer<1> half;
    Buffer<float, 1> frame;
};

// ---------------------------------------------------------------------------------------------------------------------

template <std::size_t N>
FilterBank<N>::FilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window)
    : fftLength(fftLength),
      hop(hop),
      windowLength(window.size()),
      window(std::vector(window.rbegin(), window.rend())),
      fft(static_cast<std::uint64_t>(std::bit_width(fftLength)) - 1),
      history(window.size()),
      folded(fftLength)
{
}

template <std::size_t N>
void FilterBank<N>::process(const Buffer<float, N>& in, SpectrumBuffer<N>& out)
{
    const auto frames = in.size() / hop;
    if (out.capacity() < fftLength * frames)
        throw std::invalid_argument("FilterBank: Size mismatch. Too many frames provided fopr output size");

    for (std::size_t c = 0; c < N; ++c)
        for (std::uint64_t f = 0; f < frames; ++f) {
            Complex* bins = out.channel(c) + f * fftLength;
            lowerHalf(c, in.channel(c) + f * hop, bins);
            check(ippsConjFlip_32fc(bins + 1, bins + fftLength / 2 + 1, length32(fftLength / 2 - 1)));
        }
    out.setSize(fftLength * frames);
}

template <std::size_t N>
void FilterBank<N>::lowerHalf(std::size_t c, const float* in, Complex* bins)
{
    if (fftLength != fft.length()) // Required
        throw ipps::Error(ippStsSizeErr);
    const auto kept = windowLength - hop;
    float* past = history.channel(c);
    check(ippsMove_32f(past + hop, past, length32(kept)));
    check(ippsCopy_32f(in, past + kept, length32(hop)));

    // The centre falls on index 0, what is older at the frame's end.
    const auto centre = windowLength / 2;
    const float* factor = window.channel(0);
    float* frame = folded.channel(0);
    check(ippsMul_32f(factor + centre, past + centre, frame, length32(centre + 1)));
    check(ippsZero_32f(frame + centre + 1, length32(fftLength - centre - 1)));
    check(addProduct(factor, past, frame + (fftLength - centre), length32(centre)));

    // Pack form one float further on has every bin in its place but bin 0, whose imaginary part it leaves out.
    auto* parts = reinterpret_cast<float*>(bins);
    fft.Fwd(frame, parts + 1);
    parts[0] = std::exchange(parts[1], 0.0F);
    parts[fftLength + 1] = 0.0F;
}

template <std::size_t N>
InverseFilterBank<N>::InverseFilterBank(std::uint64_t fftLength, std::uint64_t hop, std::span<const float> window)
    : fftLength(fftLength),
      hop(hop),
      windowLength(window.size()),
      window(std::vector(window.begin(), window.end())),
      fft(static_cast<std::uint64_t>(std::bit_width(fftLength)) - 1),
      overlap(window.size()),
      half(fftLength / 2 + 1),
      frame(fftLength)
{
    check(ippsMulC_32f_I(static_cast<float>(fftLength), this->window.channel(0), length32(windowLength)));
}

template <std::size_t N>
void InverseFilterBank<N>::process(const SpectrumBuffer<N>& in, Buffer<float, N>& out)
{
    const auto frames = in.size() / fftLength;
    Complex* bins = half.channel(0);
    for (std::size_t c = 0; c < N; ++c)
        for (std::uint64_t f = 0; f < frames; ++f) {
            const Complex* x = in.channel(c) + f * fftLength;
            // The spectrum of the frame's real part: the mean of each bin and its mirror's conjugate.
            bins[0] = x[0];
            for (std::uint64_t k = 1; k <= fftLength / 2; ++k)
                bins[k] = 0.5F * (x[k] + std::conj(x[fftLength - k]));
            fromLowerHalf(c, bins, out.channel(c) + f * hop);
        }
    out.setSize(hop * frames);
}

template <std::size_t N>
void InverseFilterBank<N>::fromLowerHalf(std::size_t c, Complex* bins, float* out)
{
    if (fftLength != fft.length()) // Required
        throw ipps::Error(ippStsSizeErr);
    auto* parts = reinterpret_cast<float*>(bins); // Pack form stands one float further on
    parts[1] = parts[0];
    float* real = frame.channel(0);
    fft.Inv(parts + 1, real);

    // Index 0 falls on the window's centre.
    const auto centre = windowLength / 2;
    const auto kept = windowLength - hop;
    const float* factor = window.channel(0);
    float* tail = overlap.channel(c);
    check(addProduct(factor, real + (fftLength - centre), tail, length32(centre)));
    check(addProduct(factor + centre, real, tail + centre, length32(windowLength - centre)));
    check(ippsCopy_32f(tail, out, length32(hop)));
    check(ippsMove_32f(tail + hop, tail, length32(kept)));
    check(ippsZero_32f(tail + kept, length32(hop)));
}

} // namespace quorel

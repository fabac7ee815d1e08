// SPDX-License-Identifier: MIT
// What both models are made of, written from the definitions and in double precision.
//
// Nothing here comes from the product and nothing of the product is used here: the models are
// the second opinion that the product is measured against. Constants that the product holds as
// floats are the same floats, widened.

#pragma once

#include <array>
#include <complex>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace quorel::model {

using Signal = std::vector<double>; // one channel, oldest frame first
using Rows = std::vector<Signal>;   // one signal per channel, all of one length

// A block that the path refuses, with the words of the path's exception.
class Failure : public std::runtime_error {
public:
    enum class Kind {
        InvalidArgument, // std::invalid_argument
        RuntimeError,    // std::runtime_error
        KernelStatus,    // ipps::Error; the text is the status's name
        Plain            // derived from std::exception alone
    };

    Failure(Kind kind, const std::string& text) : std::runtime_error(text), kind(kind) {}

    Kind kind;
};

[[noreturn]] void refuse(const std::string& text);       // std::invalid_argument
[[noreturn]] void refuseStatus(const std::string& name); // ipps::Error

// A row of samples is a whole number of 64-byte lines.
std::size_t roundUpTo16(std::size_t n);

// The two halves of a crossfade over L frames, in single precision as the path holds them:
//   rising[i] = 1 - (cos(i * pi / L) + 1) * 0.5      falling[i] = 1 - rising[i]
struct Ramps {
    explicit Ramps(std::size_t length);

    Signal rising;
    Signal falling;
};

// Crossfades one row: from * falling + to * rising.
Signal crossfade(const Signal& from, const Signal& to, const Ramps& ramps);

// x * gain, where a gain of exactly 0 gives zeros whatever x holds.
Signal scaled(const Signal& x, double gain);

// A second-order section, not normalised:
//   a0 y[n] = b0 x[n] + b1 x[n-1] + b2 x[n-2] - a1 y[n-1] - a2 y[n-2]
struct Section {
    double b0, b1, b2, a0, a1, a2;
};

// Sections in series, each in direct form II:
//   v[n] = (x[n] - a1 v[n-1] - a2 v[n-2]) / a0      y[n] = b0 v[n] + b1 v[n-1] + b2 v[n-2]
// v persists until the next `design`.
class Cascade {
public:
    // Takes the sections and starts from silence. Refuses an a0 or b0 of zero, and then keeps
    // what it had.
    void design(const std::vector<Section>& sections);

    Signal process(const Signal& x);

private:
    std::vector<Section> sections;
    std::vector<std::array<double, 2>> held; // v[n-1], v[n-2] of each section
};

// One level follower per channel; the loudest of them looks up one gain for all channels.
//
// The followers are single-precision recursions by definition,
//   envelope += k * (|x| - envelope),   k = release where envelope > |x|, otherwise attack,
// and stay so here: their coefficients are so small (release times of 0.4 and 1.2 s) that the
// rounding of a float decides where the recursion comes to rest, up to 3 parts in 1000 away
// from the level that it follows. Everything else is in double precision.
class GainRider {
public:
    // `curve` holds pairs of level and gain, both linear, at least one. The first pair counts
    // where a level stands twice.
    GainRider(std::size_t channels, float attack, float release, std::vector<std::pair<float, float>> curve);

    Rows process(const Rows& x);

    // Straight segments between the pairs, constant outside them.
    double gainFor(double level) const;

private:
    struct Point {
        float level;
        float gain;
        float slope; // gain per level towards the next point, 0 at the last
    };

    float attack;
    float release;
    std::vector<Point> curve;
    std::vector<float> envelope;
};

using Spectrum = std::vector<std::complex<double>>;

// X[k] = sum over n of x[n] * exp(+2 pi i n k / N), in place, not scaled; N is a power of two.
class Fourier {
public:
    explicit Fourier(std::size_t length);

    void transform(Spectrum& x) const;

private:
    Spectrum turns; // exp(2 pi i j / N) for the first half of the circle
};

// The 1024 taps of a packed spectrum (R0, R1, I1, ..., R511, I511, R512), by the inverse
// discrete Fourier transform with the factor 1/1024.
Signal tapsFromPacked(const float* packed);

// The other way: the packed spectrum of at most 1024 taps, rounded to floats.
std::vector<float> packedFromTaps(const Signal& taps);

// The window of a block convolver: `overlap` frames of history, the block, zeros, 1024 in all.
// A spectrum product turns this window in a circle, and so does `convolve`.
class Window {
public:
    static constexpr std::size_t length = 1024;

    Window(std::size_t channels, std::size_t overlap);

    // Moves the last `overlap` frames to the front and clears the rest.
    void slide();

    // Puts the block behind the history. Refuses a block that does not fit.
    void load(const Rows& block);

    // The block's frames of the circular convolution of channel c with at most 1024 taps.
    Signal convolve(std::size_t c, const Signal& taps) const;

    // The block itself.
    Signal block(std::size_t c) const;

private:
    std::size_t overlap;
    std::size_t frames; // history and block
    Rows rows;
};

} // namespace quorel::model

// SPDX-License-Identifier: MIT
// What the kernels' bodies are given beside rows of samples: states and tables, as their initialisation builds them.
//
// The bodies' units include this header, so nothing in it may leave code of its own in them.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace quorel {

// The lines of the reverberator. Two kernels run all of them side by side and are made for this number.
constexpr size_t lineCount = 12;

namespace kernels {

// What lies below this in magnitude is silence, hundreds of decibels under any sound and far above the subnormal numbers.
constexpr float quiet = 1e-30F;

// --- Cascades --------------------------------------------------------------------------------------------------------

// Up to four sections multiplied out to one filter of order 2, 4, 6 or 8 in double precision:
//   y[n] = sum over k <= order of b[k] * x[n-k]  -  sum over 1 <= k <= order of a[k] * y[n-k]
// cascade_body.h tells what the columns are and how a block of eight samples is computed from them.
struct alignas(64) CascadeGroup {
    static constexpr int maxOrder = 8;
    static constexpr int block = 8; // samples

    double fromPastX[maxOrder][block]; // [k-1][i]: what x[-k] adds to y[i]
    double fromPastY[maxOrder][block]; // [k-1][i]: what y[-k] adds to y[i]
    double response[2 * block];        // seven zeros, then y[0] to y[7] for x[0] = 1, and one zero to fill the row
    double b[maxOrder + 1];
    double a[maxOrder + 1]; // a[0] = 1
    int order;
};

// The groups in series. The state is the last eight samples of the input and of every group's output, the newest last.
struct Cascade {
    bool plain; // each section by itself, by the plain recursion
    size_t groups;
    CascadeGroup* group;
    double (*past)[CascadeGroup::block]; // groups + 1 rows
};

// One section of every channel of a bank: a lane each, sixteen so that any vector divides them; those beyond the channels rest
// at zero. a0 is divided out.
struct alignas(64) BankSection {
    static constexpr size_t lanes = 16;

    float b0[lanes], b1[lanes], b2[lanes], a1[lanes], a2[lanes];
    float s1[lanes], s2[lanes]; // what the past adds to the next output and to the one after
};

// A cascade of two sections on each line of the reverberator.
struct BankState {
    static constexpr size_t sections = 2;

    BankSection section[sections];
};

// --- Sparse filters --------------------------------------------------------------------------------------------------

// With w[n] = x[n] + sum of recursive taps * w[n - position], the output is the sum of direct taps * w[n - position]. The state
// is the last `longest` samples of w, at the front of `line`, the newest last; the chunk that is worked on follows them.
struct Sparse {
    size_t direct, recursive; // tap counts
    const float* taps;        // the direct ones, then the recursive ones
    const int32_t* positions; // their delays in samples
    size_t longest;           // the longest delay
    size_t chunk;             // samples that the line holds beyond its history
    float* line;
};

// --- Transforms ------------------------------------------------------------------------------------------------------

// The twiddle factors of one transform, each a row of entries of two vectors: (re, re) and (-im, im) of as many factors as a
// vector holds complex values (transforms_body.h tells the algorithm). W is exp(-2*pi*i/N) of the complex length N = 64*R.
struct TransformTables {
    const float* first;   // W^(n*k) for n = 0 to 63, a vector at a time, and within each for k = 1 to R-1
    const float* middle;  // exp(-2*pi*i*n*k/64) for n = 0 to 7, a vector at a time, and within each for k = 1 to 7
    const float* forward; // real transforms: -i/2 * exp(-2*pi*i*k/1024) * scale for k = 1 to 256
    const float* inverse; // and i * exp(2*pi*i*k/1024) * scale
    float forwardHalf;    // scale/2
    float inverseHalf;    // scale
};

} // namespace kernels

// What one output row of mixPairs (core/kernels/mixing.h) is summed from: terms in their order, one of each pair of input
// rows, each added or subtracted whole in single precision.
struct PairMix {
    static constexpr size_t pairs = lineCount / 2;
    static constexpr uint8_t sum = 0;            // term sum + p is in[2p] + in[2p+1]
    static constexpr uint8_t difference = pairs; // term difference + p is in[2p] - in[2p+1]

    uint8_t term[pairs];
    float sign[pairs]; // +1 or -1; the first is taken for +1
};

// From one point of a gain curve on: gain + (level - `level`) * slope. A slope of 0 is a gain that holds.
struct GainSegment {
    float level; // linear
    float gain;
    float slope; // gain per level
};

// How a compressor moves, and where to.
struct Dynamics {
    static constexpr size_t maxChannels = 8;

    float attack;             // 0 < attack <= 1, share of the way to a sample that an envelope goes in one frame, up or level
    float release;            // 0 < release <= 1, down
    const GainSegment* curve; // in rising order of level; the first also serves what lies below it
    size_t segments;
};

} // namespace quorel

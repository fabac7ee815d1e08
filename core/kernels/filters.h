// The states of the recursive filters, as their initialisation builds them and the kernels' variants run them.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace quorel::kernels {

// What lies below this in magnitude is silence, hundreds of decibels under any sound and far above the subnormal numbers.
constexpr float quiet = 1e-30F;

// --- Cascades --------------------------------------------------------------------------------------------------------

// Up to four sections multiplied out to one filter of order 2, 4, 6 or 8 in double precision:
//   y[n] = sum over k <= order of b[k] * x[n-k]  -  sum over 1 <= k <= order of a[k] * y[n-k]
// cascade.inl tells what the columns are and how a block of eight samples is computed from them.
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
    size_t groups;
    CascadeGroup* group;
    double (*past)[CascadeGroup::block]; // groups + 1 rows
};

// One section of every channel of a bank: a lane each, sixteen so that any vector divides them. a0 is divided out.
struct alignas(64) BankSection {
    float b0[16], b1[16], b2[16], a1[16], a2[16];
    float s1[16], s2[16]; // what the past adds to the next output and to the one after
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

} // namespace quorel::kernels

namespace quorel {

struct CascadeBank {
    static constexpr size_t channels = 12;
    static constexpr size_t lanes = 16; // the last four rest at zero

    kernels::BankSection section[2];
};

} // namespace quorel

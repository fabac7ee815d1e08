// KernelTable holds one instruction-set variant of the kernels' arithmetic.
//
// The operations here take arguments that were checked: no pointer is null and every length is at least 1. Complex arrays
// come as float pairs, `n` counts elements. One source (the .inl files) is compiled once for each variant; the units that
// do so define static functions alone and share no inline code with anything, so that no wide instruction can leak into a
// program that runs on an older processor.
#pragma once

#include <stddef.h>

namespace quorel {
struct PairMix;
struct CascadeBank;
} // namespace quorel

namespace quorel::kernels {

struct Cascade;
struct Sparse;

// The tables of one transform, each a row of entries of two vectors: (re, re) and (-im, im) of as many factors as a vector
// holds complex values (transforms.inl tells the algorithm). W is exp(-2*pi*i/N) of the complex length N = 64*R.
struct TransformTables {
    const float* first;   // W^(n*k) for n = 0 to 63, a vector at a time, and within each for k = 1 to R-1
    const float* middle;  // exp(-2*pi*i*n*k/64) for n = 0 to 7, a vector at a time, and within each for k = 1 to 7
    const float* forward; // real transforms: -i/2 * exp(-2*pi*i*k/1024) * scale for k = 1 to 256
    const float* inverse; // and i * exp(2*pi*i*k/1024) * scale
    float forwardHalf;    // scale/2
    float inverseHalf;    // scale
};

struct KernelTable {
    const char* name; // "baseline", "avx2", "avx512"

    void (*add)(const float* a, const float* b, float* dst, size_t n);
    void (*sub)(const float* a, const float* b, float* dst, size_t n); // b - a
    void (*mul)(const float* a, const float* b, float* dst, size_t n);
    void (*mulComplex)(const float* a, const float* b, float* dst, size_t n);
    void (*addProductC)(const float* src, float val, float* srcDst, size_t n);
    void (*mulC)(const float* src, float val, float* dst, size_t n);
    void (*subC)(float val, float* srcDst, size_t n);
    void (*subCRev)(const float* src, float val, float* dst, size_t n);
    bool (*div)(const float* src, float* srcDst, size_t n); // true when a divisor was zero

    void (*copy)(const float* src, float* dst, size_t n);
    void (*move)(const float* src, float* dst, size_t n);
    void (*zero)(float* dst, size_t n);
    void (*set)(float val, float* dst, size_t n);
    void (*setComplex)(float re, float im, float* dst, size_t n);
    void (*flip)(const float* src, float* dst, size_t n);
    void (*flipInPlace)(float* srcDst, size_t n);
    void (*conjFlip)(const float* src, float* dst, size_t n);
    void (*realToComplex)(const float* re, const float* im, float* dst, size_t n); // null stands for zeros
    void (*real)(const float* src, float* dst, size_t n);
    void (*magnitude)(const float* src, float* dst, size_t n);

    void (*thresholdLess)(const float* src, float* dst, size_t n, float level);
    void (*thresholdGreater)(float* srcDst, size_t n, float level);
    void (*sumComplex)(const float* src, size_t n, float* sum);

    void (*mulPack)(const float* a, const float* b, float* dst, size_t n); // dst may be a or b

    void (*cascade)(const Cascade& filter, const float* src, float* dst, size_t n); // the state behind its pointers changes
    void (*cascadeBank)(CascadeBank& bank, const float* const* in, float* const* out, size_t n);
    void (*sparse)(const Sparse& filter, const float* src, float* dst, size_t n);
    void (*mixPairs)(const float* const* in, float* const* out, const PairMix* mix, size_t rows, size_t n);

    // Transforms of the lengths in use. Complex ones scale nothing. `work` holds as many floats as `dst`, twice as many for a
    // real transform.
    size_t valuesPerVector; // complex values, for the layout of the tables
    void (*complexInverse512)(const TransformTables& tables, const float* src, float* dst, float* work);
    void (*complexInverse1024)(const TransformTables& tables, const float* src, float* dst, float* work);
    void (*realForward1024)(const TransformTables& tables, const float* src, float* dst, float* work);
    void (*realInverse1024)(const TransformTables& tables, const float* src, float* dst, float* work);
};

// The variant in use: the baseline until static initialisation has looked at the processor, then the widest that runs here.
const KernelTable& active() noexcept;

// The variants that this processor runs, the baseline first. Null behind the last.
struct VariantList {
    const KernelTable* table[4];
};
VariantList availableVariants() noexcept;

// Puts a variant into use, for tests and benchmarks; not while kernels run.
void use(const KernelTable& variant) noexcept;

} // namespace quorel::kernels

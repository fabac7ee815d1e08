// SPDX-License-Identifier: MIT
// The transforms of the lengths in use, 512 and 1024 complex values or real samples, and the packed product. Other lengths:
// plain_transform.h.
//
// A mixed-radix FFT with decimation in frequency: butterflies first, then the twiddle factors (W. M. Gentleman and G. Sande,
// "Fast Fourier transforms: for fun and profit", AFIPS 29, 1966; C. Van Loan, "Computational Frameworks for the Fast Fourier
// Transform", 1992, whose terms these are). Three passes over N = 8*8*R values, of radix R = 4, 8 or 16, 8 and 8. With input index
// n = 64a + 8b + c and output index k = a' + R*b' + 8R*c' (a, a' below R, the others below 8) the kernel of the sum falls
// apart, W_m standing for exp(-2*pi*i/m):
//
//   W_N^(nk) = W_R^(a*a') * W_N^((8b+c)*a') * W_8^(b*b') * W_64^(c*b') * W_8^(c*c')
//
//   first pass    for each b, c     radix-R butterfly over a, result a' times the twiddle factor W_N^((8b+c)*a')
//   middle pass   for each a', c    radix-8 butterfly over b, result b' times the twiddle factor W_64^(c*b')
//   last pass     for each a', b'   radix-8 butterfly over c, result c'
//
// Value (a, b, c), primed or not, stands at 64a + 8b + c throughout: the first two passes work in place at strides of 64 and 8
// values, and a vector's lanes are neighbours in c. In the last pass the neighbours are what is transformed, so rows of
// consecutive a' are transposed in registers as they are loaded; the lanes are then neighbours in a', which are neighbours in
// k, and go straight to their place. So the transform sorts itself: where Stockham's reorders in every pass, and the textbook's
// in a pass of bit reversal, this one does in the last pass alone.
//
// Vectors hold complex values as memory does, (re, im, re, im, ...). A product with w is z * (re w, re w) + swapped z *
// (-im w, im w): a table entry is these two vectors, and entries stand in the order of their use, so that a table depends on
// the variant's width (TransformTables).
#pragma once

#include "core/kernels/simd.h"
#include "core/kernels/states.h"

namespace quorel::kernels::QUOREL_VARIANT::transforms {
namespace {

using V = Vec<float, lanes>;

constexpr size_t valuesPerVector = lanes / 2; // complex ones

// (im, re) for (re, im)
QUOREL_INLINE V swapped(V z)
{
    return shuffleInQuads<1, 0, 3, 2>(z, z);
}

// z with the sign of every second float changed: of the imaginary parts, or of the real ones. Where products and sums fuse,
// a sign is best given as a factor; elsewhere as a bit.
template <bool ofReal>
QUOREL_INLINE V withSign(V z)
{
    if constexpr (fuses)
        return z * repeat<V>(ofReal ? Quad{-1.0F, 1.0F, -1.0F, 1.0F} : Quad{1.0F, -1.0F, 1.0F, -1.0F});
    using Bits = Vec<int, lanes>;
    const V sign = repeat<V>(ofReal ? Quad{-0.0F, 0.0F, -0.0F, 0.0F} : Quad{0.0F, -0.0F, 0.0F, -0.0F});
    return reinterpret_cast<V>(reinterpret_cast<Bits>(z) ^ reinterpret_cast<Bits>(sign));
}

QUOREL_INLINE V conjugate(V z)
{
    return withSign<false>(z);
}

// What follows is the forward transform, or with `inverse` its complex conjugate: every w becomes conj(w).

// z * w for a table entry
template <bool inverse>
QUOREL_INLINE V mulTwiddle(V z, const float* entry)
{
    const V re = load<V>(entry);
    const V im = load<V>(entry + lanes);
    return inverse ? z * re - swapped(z) * im : z * re + swapped(z) * im;
}

// z * (re + i*im)
template <bool inverse>
QUOREL_INLINE V mulTwiddle(V z, float re, float im)
{
    const V product = swapped(z) * repeat<V>(Quad{-im, im, -im, im});
    return inverse ? z * re - product : z * re + product;
}

// z * -i
template <bool inverse>
QUOREL_INLINE V mulMinusI(V z)
{
    return withSign<inverse>(swapped(z));
}

// Radix-4 butterfly, in place, in natural order.
template <bool inverse>
QUOREL_INLINE void fft4(V& a, V& b, V& c, V& d)
{
    const V s = a + c;
    const V t = a - c;
    const V u = b + d;
    const V v = mulMinusI<inverse>(b - d);
    a = s + u;
    b = t + v;
    c = s - u;
    d = t - v;
}

// Radix-8 butterfly: even results are the 4-point transform of the sums of opposite values, odd ones that of their differences
// times W_8^j. Products with W_8 = (1-i)/sqrt(2) and W_8^3 leave their factor sqrt(1/2) to the last sums.
template <bool inverse>
QUOREL_INLINE void fft8(V (&x)[8])
{
    V sum0 = x[0] + x[4];
    V sum1 = x[1] + x[5];
    V sum2 = x[2] + x[6];
    V sum3 = x[3] + x[7];
    fft4<inverse>(sum0, sum1, sum2, sum3);

    const V diff0 = x[0] - x[4];
    const V diff1 = x[1] - x[5];
    const V diff2 = mulMinusI<inverse>(x[2] - x[6]);
    const V diff3 = x[3] - x[7];
    const V root1 = diff1 + mulMinusI<inverse>(diff1);  // sqrt(2) * W_8 * diff1
    const V minus3 = diff3 - mulMinusI<inverse>(diff3); // -sqrt(2) * W_8^3 * diff3
    const V s = diff0 + diff2;
    const V t = diff0 - diff2;
    constexpr float rootOfHalf = 0.707106781F;
    const V u = rootOfHalf * (root1 - minus3);
    const V v = rootOfHalf * mulMinusI<inverse>(root1 + minus3);

    x[0] = sum0;
    x[1] = s + u;
    x[2] = sum1;
    x[3] = t + v;
    x[4] = sum2;
    x[5] = s - u;
    x[6] = sum3;
    x[7] = t - v;
}

// Radix-16 butterfly: the same with two 8-point transforms, the differences times W_16^j.
template <bool inverse>
QUOREL_INLINE void fft16(V (&x)[16])
{
    constexpr float c1 = 0.923879533F, c2 = 0.707106781F, c3 = 0.382683432F; // cos(pi/8), cos(pi/4), cos(3*pi/8)
    constexpr float cosine[] = {1, c1, c2, c3, 0, -c3, -c2, -c1};            // of j*pi/8
    V sum[8];
    V diff[8];
    for (size_t j = 0; j < 8; ++j) {
        sum[j] = x[j] + x[j + 8];
        diff[j] = x[j] - x[j + 8];
    }
    for (size_t j = 1; j < 8; ++j)
        diff[j] = j == 4 ? mulMinusI<inverse>(diff[j]) : mulTwiddle<inverse>(diff[j], cosine[j], -cosine[j < 4 ? 4 - j : j - 4]);
    fft8<inverse>(sum);
    fft8<inverse>(diff);
    for (size_t j = 0; j < 8; ++j) {
        x[2 * j] = sum[j];
        x[2 * j + 1] = diff[j];
    }
}

// `src` and `dst` may be one array. Lengths and distances in floats: 128 are 64 values.
template <size_t R, bool inverse>
void firstPass(const float* src, const float* table, float* dst)
{
    for (size_t bc = 0; bc < 128; bc += lanes) {
        V x[R];
        for (size_t a = 0; a < R; ++a)
            x[a] = inRegister(load<V>(src + 128 * a + bc));
        if constexpr (R == 16)
            fft16<inverse>(x);
        else if constexpr (R == 8)
            fft8<inverse>(x);
        else
            fft4<inverse>(x[0], x[1], x[2], x[3]);
        store(x[0], dst + bc);
        for (size_t a = 1; a < R; ++a, table += 2 * lanes)
            store(mulTwiddle<inverse>(x[a], table), dst + 128 * a + bc);
    }
}

template <size_t R, bool inverse>
void middlePass(const float* table, float* work)
{
    for (size_t c = 0; c < 16; c += lanes, table += 2 * lanes * 7)
        for (float* p = work + c; p < work + 128 * R; p += 128) {
            V x[8];
            for (size_t b = 0; b < 8; ++b)
                x[b] = inRegister(load<V>(p + 16 * b));
            fft8<inverse>(x);
            store(x[0], p);
            for (size_t b = 1; b < 8; ++b)
                store(mulTwiddle<inverse>(x[b], table + 2 * lanes * (b - 1)), p + 16 * b);
        }
}

// Eight columns of a vector's height: column[c] holds value c of each row. Rows are 128 floats apart, the fifth to the eighth
// behind another first one.
QUOREL_INLINE void loadColumns(const float* rows, [[maybe_unused]] const float* fifth, V (&column)[8])
{
    if constexpr (lanes == 16) {
        for (size_t r = 0; r < 4; ++r) {
            column[r] = load<V>(rows + 128 * r);
            column[r + 4] = load<V>(fifth + 128 * r);
        }
        transpose8x8(column);
    } else {
        for (size_t c = 0; c < 8; c += 2) {
            const float* p = rows + 2 * c;
            V upper, lower; // columns c and c+1 of every second row
            if constexpr (lanes == 8) {
                upper = join<V>(load<Quad>(p), load<Quad>(p + 256));
                lower = join<V>(load<Quad>(p + 128), load<Quad>(p + 384));
            } else {
                upper = load<V>(p);
                lower = load<V>(p + 128);
            }
            column[c] = shuffleInQuads<0, 1, 4, 5>(upper, lower);
            column[c + 1] = shuffleInQuads<2, 3, 6, 7>(upper, lower);
        }
    }
}

template <size_t R, bool inverse>
void lastPass(const float* work, float* dst)
{
    const auto row = [work](size_t ab) { return work + 128 * (ab % R) + 16 * (ab / R); }; // of a' + R*b'
    for (size_t ab = 0; ab < 8 * R; ab += valuesPerVector, dst += lanes) {
        V x[8];
        loadColumns(row(ab), row(ab + 4), x);
        fft8<inverse>(x);
        for (size_t c = 0; c < 8; ++c)
            store(x[c], dst + 16 * R * c);
    }
}

// `src` and `work` may be one array.
template <size_t R, bool inverse>
void complexTransform(const TransformTables& tables, const float* src, float* dst, float* work)
{
    firstPass<R, inverse>(src, tables.first, work);
    middlePass<R, inverse>(tables.middle, work);
    lastPass<R, inverse>(work, dst);
}

constexpr auto& complexInverse512 = complexTransform<8, true>;
constexpr auto& complexInverse1024 = complexTransform<16, true>;

// The spectrum of real samples from a complex transform of half the length (Van Loan, chapter 4).
//
// N real samples x are M = N/2 complex values z[n] = x[2n] + i*x[2n+1]. With Z their spectrum, and E and D the sum and the
// difference of Z[k] and conj(Z[M-k]), the spectra of the even and odd samples are E/2 and -i*D/2, so that
//
//   X[k] = E/2 - i/2 * W_N^k * D      and, exchanging k and M-k,      X[M-k] = conj(E/2 + i/2 * W_N^k * D)
//
// The way back is of the same form, with E and D taken of X:   Z[k] = E/2 + i/2 * conj(W_N^k) * D
// so one function serves both. The table holds the factor of D for k = 1, 2, ..., N/4, the scaling within; `half` is the
// factor of E with the scaling. `from` and `to` point at bin 1: the bins lie one float lower in Pack form than in a spectrum.
template <size_t N>
QUOREL_INLINE void unpackReal(const float* from, float* to, const float* table, float half)
{
    for (size_t k = 0; k < N / 2; k += lanes, table += 2 * lanes) { // floats behind bin 1
        const size_t mirrored = N - 2 - lanes - k;
        const V low = inRegister(load<V>(from + k));
        const V high = conjugate(reversePairs(load<V>(from + mirrored)));
        const V e = (low + high) * half;
        const V d = mulTwiddle<false>(low - high, table);
        store(e + d, to + k);
        store(reversePairs(conjugate(e - d)), to + mirrored);
    }
}

template <size_t R>
void realForward(const TransformTables& tables, const float* src, float* dst, float* work)
{
    constexpr size_t n = 128 * R;
    float* spectrum = work + n;
    complexTransform<R, false>(tables, src, spectrum, work);
    unpackReal<n>(spectrum + 2, dst + 1, tables.forward, tables.forwardHalf);
    dst[0] = 2 * tables.forwardHalf * (spectrum[0] + spectrum[1]);
    dst[n - 1] = 2 * tables.forwardHalf * (spectrum[0] - spectrum[1]);
}

template <size_t R>
void realInverse(const TransformTables& tables, const float* src, float* dst, float* work)
{
    constexpr size_t n = 128 * R;
    unpackReal<n>(src + 1, work + 2, tables.inverse, tables.inverseHalf);
    work[0] = tables.inverseHalf * (src[0] + src[n - 1]);
    work[1] = tables.inverseHalf * (src[0] - src[n - 1]);
    complexTransform<R, true>(tables, work, dst, work);
}

constexpr auto& realForward512 = realForward<4>;
constexpr auto& realForward1024 = realForward<8>;
constexpr auto& realInverse512 = realInverse<4>;
constexpr auto& realInverse1024 = realInverse<8>;

// `dst` may be `a` or `b`: each pair is read before it is written.
void mulPack(const float* a, const float* b, float* dst, size_t n)
{
    dst[0] = a[0] * b[0];
    for (size_t i = 1; i + 1 < n; i += 2) {
        const float re = a[i] * b[i] - a[i + 1] * b[i + 1];
        const float im = a[i] * b[i + 1] + a[i + 1] * b[i];
        dst[i] = re;
        dst[i + 1] = im;
    }
    if (n % 2 == 0)
        dst[n - 1] = a[n - 1] * b[n - 1];
}

} // namespace
} // namespace quorel::kernels::QUOREL_VARIANT::transforms

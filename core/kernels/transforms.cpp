// The transforms as the stages call them: argument rules, sizes and tables.
#include "core/transforms.h"

#include "core/kernels/arguments.h"
#include "core/kernels/kernel_table.h"

#include <cmath>
#include <new>
#include <numbers>

namespace quorel {

using kernels::active;
using kernels::arguments;

namespace {

constexpr std::int32_t highestRealOrder = 29;
constexpr std::int32_t highestComplexOrder = 28;
constexpr std::size_t alignment = 64; // bytes; storage may come less aligned and is then used from the next boundary on

// Both kinds of transform in one form. The tables follow it in its storage: coarse[i] and fine[i], cosine and sine of a
// turn's fraction in double precision, such that exp(-2*pi*i*k/N) is coarse[k >> fineBits] * fine[k & (2^fineBits - 1)].
struct Transform {
    const kernels::KernelTable* variant;
    std::int32_t order;
    std::int32_t fineBits;
    float forwardFactor;
    float inverseFactor;
    const double* coarse;
    const double* fine;
};

std::size_t fineCount(std::int32_t order)
{
    return std::size_t{1} << (order / 2);
}
std::size_t coarseCount(std::int32_t order)
{
    return std::size_t{1} << (order - order / 2);
}

Status sizes(std::int32_t highestOrder, std::int32_t order, std::int32_t flag, std::int32_t* specSize, std::int32_t* initSize,
             std::int32_t* workSize) noexcept
{
    if (specSize == nullptr || initSize == nullptr || workSize == nullptr)
        return ippStsNullPtrErr;
    if (order < 0 || order > highestOrder)
        return ippStsFftOrderErr;
    if (flag != 1 && flag != 2 && flag != 4 && flag != 8)
        return ippStsFftFlagErr;
    *specSize =
        static_cast<std::int32_t>(alignment + sizeof(Transform) + 2 * sizeof(double) * (fineCount(order) + coarseCount(order)));
    *initSize = 0;
    *workSize = 0;
    return ippStsNoErr;
}

template <class Spec>
Status init(std::int32_t highestOrder, Spec** spec, std::int32_t order, std::int32_t flag, void* storage) noexcept
{
    if (spec == nullptr || storage == nullptr)
        return ippStsNullPtrErr;
    std::int32_t ignored = 0;
    if (const Status bad = sizes(highestOrder, order, flag, &ignored, &ignored, &ignored); bad != ippStsNoErr)
        return bad;

    const auto address = reinterpret_cast<std::uintptr_t>(storage);
    auto* start = static_cast<std::byte*>(storage) + (alignment - address % alignment) % alignment;
    auto* fine = reinterpret_cast<double*>(start + sizeof(Transform));
    auto* coarse = fine + 2 * fineCount(order);
    const double length = std::ldexp(1.0, order);
    for (std::size_t k = 0; k < fineCount(order); ++k) {
        const double turn = static_cast<double>(k) / length;
        fine[2 * k] = std::cos(2 * std::numbers::pi * turn);
        fine[2 * k + 1] = -std::sin(2 * std::numbers::pi * turn);
    }
    for (std::size_t k = 0; k < coarseCount(order); ++k) {
        const double turn = static_cast<double>(k) / static_cast<double>(coarseCount(order));
        coarse[2 * k] = std::cos(2 * std::numbers::pi * turn);
        coarse[2 * k + 1] = -std::sin(2 * std::numbers::pi * turn);
    }
    const double by = flag == fftDivideBothByRoot ? 1 / std::sqrt(length) : 1 / length;
    const auto forward = static_cast<float>(flag == fftDivideForward || flag == fftDivideBothByRoot ? by : 1.0);
    const auto inverse = static_cast<float>(flag == fftDivideInverse || flag == fftDivideBothByRoot ? by : 1.0);
    *spec = reinterpret_cast<Spec*>(new (start) Transform{&active(), order, order / 2, forward, inverse, coarse, fine});
    return ippStsNoErr;
}

const Transform& opened(const void* spec)
{
    return *static_cast<const Transform*>(spec);
}

struct Pair {
    float re, im;
};

// a * (re, im)
Pair times(Pair a, float re, float im)
{
    return {a.re * re - a.im * im, a.re * im + a.im * re};
}

// exp(-2*pi*i*k/N)
Pair twiddle(const Transform& t, std::size_t k)
{
    const double* a = t.coarse + 2 * (k >> t.fineBits);
    const double* b = t.fine + 2 * (k & ((std::size_t{1} << t.fineBits) - 1));
    return {static_cast<float>(a[0] * b[0] - a[1] * b[1]), static_cast<float>(a[0] * b[1] + a[1] * b[0])};
}

// In place: 2^order pairs, twiddles taken from a table of N = 2^tableOrder. `sign` 1 is forward, -1 inverse.
void radix2(const Transform& t, std::int32_t order, Pair* data, float sign)
{
    const std::size_t n = std::size_t{1} << order;
    for (std::size_t i = 0, j = 0; i < n; ++i) { // bit reversal
        if (i < j) {
            const Pair held = data[i];
            data[i] = data[j];
            data[j] = held;
        }
        std::size_t bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j |= bit;
    }
    for (std::int32_t pass = 0; pass < order; ++pass) {
        const std::size_t half = std::size_t{1} << pass;
        for (std::size_t j = 0; j < half; ++j) {
            const Pair w = twiddle(t, j << (t.order - pass - 1));
            for (std::size_t i = j; i < n; i += 2 * half) {
                const Pair a = data[i];
                const Pair b = times(data[i + half], w.re, sign * w.im);
                data[i] = {a.re + b.re, a.im + b.im};
                data[i + half] = {a.re - b.re, a.im - b.im};
            }
        }
    }
}

} // namespace

Status ippsMulPack_32f(const float* a, const float* b, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, a, b, dst); bad != ippStsNoErr)
        return bad;
    active().mulPack(a, b, dst, static_cast<std::size_t>(len));
    return ippStsNoErr;
}

Status ippsFFTGetSize_R_32f(std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, std::int32_t* specSize,
                            std::int32_t* initSize, std::int32_t* workSize) noexcept
{
    return sizes(highestRealOrder, order, flag, specSize, initSize, workSize);
}

Status ippsFFTGetSize_C_32fc(std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, std::int32_t* specSize,
                             std::int32_t* initSize, std::int32_t* workSize) noexcept
{
    return sizes(highestComplexOrder, order, flag, specSize, initSize, workSize);
}

Status ippsFFTInit_R_32f(FFTSpec_R_32f** spec, std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, void* specStorage,
                         void* /*initStorage*/) noexcept
{
    return init(highestRealOrder, spec, order, flag, specStorage);
}

Status ippsFFTInit_C_32fc(FFTSpec_C_32fc** spec, std::int32_t order, std::int32_t flag, std::int32_t /*hint*/, void* specStorage,
                          void* /*initStorage*/) noexcept
{
    return init(highestComplexOrder, spec, order, flag, specStorage);
}

Status ippsFFTFwd_RToPack_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* /*work*/) noexcept
{
    if (src == nullptr || dst == nullptr || spec == nullptr)
        return ippStsNullPtrErr;
    const Transform& t = opened(spec);
    const float f = t.forwardFactor;
    if (t.order == 0) {
        dst[0] = src[0] * f;
        return ippStsNoErr;
    }
    const std::size_t m = std::size_t{1} << (t.order - 1);
    for (std::size_t i = 0; i < 2 * m; ++i)
        dst[i] = src[i];
    auto* z = reinterpret_cast<Pair*>(dst);
    radix2(t, t.order - 1, z, 1);

    // X[k] = E + W^k O and X[m-k] = conj(E - W^k O), with E and O the spectra of the even and the odd samples. Bin k lands
    // one float before its place in z: the value that is overwritten there is read ahead.
    const Pair first = z[0];
    Pair high = m > 1 ? z[m - 1] : first;
    for (std::size_t k = 1; k <= m / 2; ++k) {
        const Pair low = z[k];
        const Pair next = z[m - k - (k < m / 2 ? 1 : 0)];
        const Pair even = {(low.re + high.re) * 0.5F, (low.im - high.im) * 0.5F};
        const Pair odd = {(low.im + high.im) * 0.5F, (high.re - low.re) * 0.5F};
        const Pair w = twiddle(t, k);
        const Pair turned = times(odd, w.re, w.im);
        dst[2 * (m - k) - 1] = (even.re - turned.re) * f;
        dst[2 * (m - k)] = (turned.im - even.im) * f;
        dst[2 * k - 1] = (even.re + turned.re) * f;
        dst[2 * k] = (even.im + turned.im) * f;
        high = next;
    }
    dst[0] = (first.re + first.im) * f;
    dst[2 * m - 1] = (first.re - first.im) * f;
    return ippStsNoErr;
}

Status ippsFFTInv_PackToR_32f(const float* src, float* dst, const FFTSpec_R_32f* spec, void* /*work*/) noexcept
{
    if (src == nullptr || dst == nullptr || spec == nullptr)
        return ippStsNullPtrErr;
    const Transform& t = opened(spec);
    const float f = t.inverseFactor;
    if (t.order == 0) {
        dst[0] = src[0] * f;
        return ippStsNoErr;
    }
    const std::size_t m = std::size_t{1} << (t.order - 1);
    auto* z = reinterpret_cast<Pair*>(dst);
    z[0] = {(src[0] + src[2 * m - 1]) * f, (src[0] - src[2 * m - 1]) * f};
    for (std::size_t k = 1; k <= m / 2; ++k) {
        const Pair low = {src[2 * k - 1], src[2 * k]};
        const Pair high = {src[2 * (m - k) - 1], src[2 * (m - k)]};
        const Pair even = {(low.re + high.re) * f, (low.im - high.im) * f};
        const Pair w = twiddle(t, k);
        const Pair odd = times({(low.re - high.re) * f, (low.im + high.im) * f}, w.re, -w.im);
        z[m - k] = {even.re + odd.im, odd.re - even.im};
        z[k] = {even.re - odd.im, even.im + odd.re};
    }
    radix2(t, t.order - 1, z, -1);
    return ippStsNoErr;
}

Status ippsFFTInv_CToC_32fc(const Complex* src, Complex* dst, const FFTSpec_C_32fc* spec, void* /*work*/) noexcept
{
    if (src == nullptr || dst == nullptr || spec == nullptr)
        return ippStsNullPtrErr;
    const Transform& t = opened(spec);
    const auto* from = reinterpret_cast<const Pair*>(src);
    auto* to = reinterpret_cast<Pair*>(dst);
    for (std::size_t i = 0; i < std::size_t{1} << t.order; ++i)
        to[i] = {from[i].re * t.inverseFactor, from[i].im * t.inverseFactor};
    radix2(t, t.order, to, -1);
    return ippStsNoErr;
}

} // namespace quorel

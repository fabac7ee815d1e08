// SPDX-License-Identifier: MIT
#include "core/kernels/plain_transform.h"

#include <cmath>
#include <numbers>
#include <utility>

namespace quorel::kernels {

namespace {

constexpr std::size_t powerOfTwo(std::int32_t order)
{
    return std::size_t{1} << order;
}

// exp(-2*pi*i*k/n) for k = 0 to count-1, as pairs
void fillWithTwiddles(double* pairs, std::size_t count, double n)
{
    for (std::size_t k = 0; k < count; ++k) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(k) / n;
        pairs[2 * k] = std::cos(angle);
        pairs[2 * k + 1] = -std::sin(angle);
    }
}

} // namespace

std::size_t PlainTransform::tableBytes(std::int32_t order) noexcept
{
    return 2 * sizeof(double) * (powerOfTwo(order / 2) + powerOfTwo(order - order / 2));
}

PlainTransform::PlainTransform(std::int32_t order, double* tables) noexcept
    : order(order), fineOrder(order / 2), fine(tables), coarse(tables + 2 * powerOfTwo(order / 2))
{
    const std::size_t coarseCount = powerOfTwo(order - fineOrder);
    fillWithTwiddles(tables, powerOfTwo(fineOrder), std::ldexp(1.0, order));
    fillWithTwiddles(tables + 2 * powerOfTwo(fineOrder), coarseCount, static_cast<double>(coarseCount));
}

PlainTransform::Pair PlainTransform::product(Pair a, Pair b) noexcept
{
    return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// exp(-+2*pi*i*k/N)
PlainTransform::Pair PlainTransform::twiddle(std::size_t k, Direction direction) const noexcept
{
    const double* a = coarse + 2 * (k >> fineOrder);
    const double* b = fine + 2 * (k & (powerOfTwo(fineOrder) - 1));
    const double re = a[0] * b[0] - a[1] * b[1];
    const double im = a[0] * b[1] + a[1] * b[0];
    return {static_cast<float>(re), static_cast<float>(direction == Direction::forward ? im : -im)};
}

// In place, 2^dataOrder pairs: N of them or, inside a real transform, N/2.
void PlainTransform::run(Pair* data, std::int32_t dataOrder, Direction direction) const noexcept
{
    const std::size_t n = powerOfTwo(dataOrder);
    for (std::size_t i = 0, reversed = 0; i < n; ++i) {
        if (i < reversed)
            std::swap(data[i], data[reversed]);
        std::size_t bit = n >> 1; // counts up from the highest bit
        for (; (reversed & bit) != 0; bit >>= 1)
            reversed ^= bit;
        reversed |= bit;
    }
    for (std::int32_t pass = 0; pass < dataOrder; ++pass) {
        const std::size_t half = powerOfTwo(pass);
        for (std::size_t k = 0; k < half; ++k) {
            const Pair w = twiddle(k << (order - pass - 1), direction);
            for (std::size_t i = k; i < n; i += 2 * half) {
                const Pair a = data[i];
                const Pair b = product(data[i + half], w);
                data[i] = {a.re + b.re, a.im + b.im};
                data[i + half] = {a.re - b.re, a.im - b.im};
            }
        }
    }
}

void PlainTransform::realForward(const float* src, float* dst, float factor) const noexcept
{
    if (order == 0) {
        dst[0] = src[0] * factor;
        return;
    }
    const std::size_t m = powerOfTwo(order - 1);
    auto* z = reinterpret_cast<Pair*>(dst);
    for (std::size_t i = 0; i < m; ++i)
        z[i] = {src[2 * i], src[2 * i + 1]};
    run(z, order - 1, Direction::forward);

    // X[k] = E + W^k O and X[m-k] = conj(E - W^k O), with E and O the spectra of the even and the odd samples. Bins move one
    // float down on their way into Pack form, so the upper value of the next step is read before it is overwritten.
    const Pair first = z[0];
    Pair high = z[m - 1];
    for (std::size_t k = 1; k <= m / 2; ++k) {
        const Pair low = z[k];
        const Pair next = z[m - k - 1];
        const Pair even = {(low.re + high.re) * 0.5F * factor, (low.im - high.im) * 0.5F * factor};
        const Pair odd = {(low.im + high.im) * 0.5F * factor, (high.re - low.re) * 0.5F * factor};
        const Pair twiddled = product(odd, twiddle(k, Direction::forward));
        dst[2 * (m - k) - 1] = even.re - twiddled.re;
        dst[2 * (m - k)] = twiddled.im - even.im;
        dst[2 * k - 1] = even.re + twiddled.re;
        dst[2 * k] = even.im + twiddled.im;
        high = next;
    }
    dst[0] = (first.re + first.im) * factor;
    dst[2 * m - 1] = (first.re - first.im) * factor;
}

void PlainTransform::realInverse(const float* src, float* dst, float factor) const noexcept
{
    if (order == 0) {
        dst[0] = src[0] * factor;
        return;
    }
    const std::size_t m = powerOfTwo(order - 1);
    auto* z = reinterpret_cast<Pair*>(dst);
    z[0] = {(src[0] + src[2 * m - 1]) * factor, (src[0] - src[2 * m - 1]) * factor};
    for (std::size_t k = 1; k <= m / 2; ++k) {
        const Pair low = {src[2 * k - 1], src[2 * k]};
        const Pair high = {src[2 * (m - k) - 1], src[2 * (m - k)]};
        const Pair even = {(low.re + high.re) * factor, (low.im - high.im) * factor};
        const Pair difference = {(low.re - high.re) * factor, (low.im + high.im) * factor};
        const Pair odd = product(difference, twiddle(k, Direction::inverse));
        z[m - k] = {even.re + odd.im, odd.re - even.im};
        z[k] = {even.re - odd.im, even.im + odd.re};
    }
    run(z, order - 1, Direction::inverse);
}

void PlainTransform::complexInverse(const float* src, float* dst, float factor) const noexcept
{
    auto* z = reinterpret_cast<Pair*>(dst);
    for (std::size_t i = 0; i < powerOfTwo(order); ++i)
        z[i] = {src[2 * i] * factor, src[2 * i + 1] * factor};
    run(z, order, Direction::inverse);
}

} // namespace quorel::kernels

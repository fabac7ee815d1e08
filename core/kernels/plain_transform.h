// SPDX-License-Identifier: MIT
// PlainTransform carries out a transform of any power-of-two length, simply: the lengths in use have kernels of their own.
//
// The textbook's radix-2 transform with decimation in time (Cooley and Tukey, Math. Comp. 19, 1965): bit reversal, then passes
// of two-point butterflies, in place in the result. A real transform runs as a complex one of half the length
// (transforms_body.h tells how). Twiddle factors are the product of two table entries in double precision, so that the tables
// stay small at any length.
#pragma once

#include <cstddef>
#include <cstdint>

namespace quorel::kernels {

class PlainTransform {
public:
    // Bytes of the tables of a transform of 2^order real or complex values.
    static std::size_t tableBytes(std::int32_t order) noexcept;

    // Builds the tables into that many bytes, aligned for double, and keeps their address.
    PlainTransform(std::int32_t order, double* tables) noexcept;

    void realForward(const float* src, float* dst, float factor) const noexcept;    // to Pack form
    void realInverse(const float* src, float* dst, float factor) const noexcept;    // from Pack form
    void complexInverse(const float* src, float* dst, float factor) const noexcept; // pairs

private:
    struct Pair {
        float re, im;
    };
    enum class Direction { forward, inverse };

    static Pair product(Pair a, Pair b) noexcept;
    Pair twiddle(std::size_t k, Direction direction) const noexcept;
    void run(Pair* data, std::int32_t dataOrder, Direction direction) const noexcept;

    std::int32_t order;     // base-2 logarithm of N, the length
    std::int32_t fineOrder; // the same of the number of entries in `fine`
    const double* fine;     // exp(-2*pi*i*k/N) as pairs, for k = 0 to 2^fineOrder - 1
    const double* coarse;   // the same for every 2^fineOrder-th k
};

} // namespace quorel::kernels

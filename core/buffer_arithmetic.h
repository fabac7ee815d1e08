// SPDX-License-Identifier: MIT
// Sums and products between whole buffers, channel by channel.
//
// Sizes must match; there is no shortcut for empty blocks, which the kernels refuse.
#pragma once

#include "core/buffer.h"

namespace quorel {

// a[c] += b[c]
template <std::size_t C>
Buffer<float, C>& operator+=(Buffer<float, C>& a, const Buffer<float, C>& b)
{
    if (a.size() != b.size())
        throw std::invalid_argument("BufferArithmetic: Buffer size does not match: Add +=");
    for (std::size_t c = 0; c < C; ++c)
        check(ippsAdd_32f_I(b.channel(c), a.channel(c), length32(a.size())));
    return a;
}

// a[c] *= r, one row for all channels
template <std::size_t C>
Buffer<float, C>& operator*=(Buffer<float, C>& a, const Buffer<float, 1>& r)
{
    if (a.size() != r.size())
        throw std::invalid_argument("BufferArithmetic: Buffer size does not match: Mul *=");
    for (std::size_t c = 0; c < C; ++c)
        check(ippsMul_32f_I(r.channel(0), a.channel(c), length32(a.size())));
    return a;
}

// a[c] *= s
template <std::size_t C>
Buffer<float, C>& operator*=(Buffer<float, C>& a, float s)
{
    for (std::size_t c = 0; c < C; ++c)
        check(ippsMulC_32f_I(s, a.channel(c), length32(a.size())));
    return a;
}

// out[c] = a[c] * r, one row for all channels
template <std::size_t C>
void multiply(const Buffer<float, C>& a, const Buffer<float, 1>& r, Buffer<float, C>& out)
{
    if (a.size() != r.size() || a.size() > out.capacity())
        throw std::invalid_argument("BufferArithmetic: Buffer size does not match: Mul");
    for (std::size_t c = 0; c < C; ++c)
        check(ippsMul_32f(a.channel(c), r.channel(0), out.channel(c), length32(a.size())));
    out.setSize(a.size());
}

// out[c] = a[c] * s
template <std::size_t C>
void multiply(const Buffer<float, C>& a, float s, Buffer<float, C>& out)
{
    if (a.size() > out.capacity())
        throw std::invalid_argument("BufferArithmetic: Buffer size does not match: Mul");
    for (std::size_t c = 0; c < C; ++c)
        check(ippsMulC_32f(a.channel(c), s, out.channel(c), length32(a.size())));
    out.setSize(a.size());
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// The uniform argument rules of the kernels: null is tested before length.
#pragma once

#include "core/kernels/kernel_table.h"
#include "core/kernels/signature.h"

namespace quorel::kernels {

// A length as callers give it. Some kernels count floats where their callers count pairs of them.
struct Length {
    std::int32_t elements;
    std::size_t floatsEach = 1;
};

template <class Value>
bool isNull(const Value& /*value*/) noexcept
{
    return false;
}
template <class T>
bool isNull(T* const& pointer) noexcept
{
    return pointer == nullptr;
}

template <class Value>
bool isShort(const Value& /*value*/) noexcept
{
    return false;
}
inline bool isShort(const Length& length) noexcept
{
    return length.elements < 1;
}

template <class... Arguments>
Status arguments(const Arguments&... given) noexcept
{
    if ((... || isNull(given)))
        return ippStsNullPtrErr;
    return (... || isShort(given)) ? ippStsSizeErr : ippStsNoErr;
}

// What a kernel's body takes for an argument. std::complex<float> is laid out as two floats, and may be read as such.
template <class Value>
const Value& bare(const Value& value) noexcept
{
    return value;
}
inline const float* bare(const Complex* const& pairs) noexcept
{
    return reinterpret_cast<const float*>(pairs);
}
inline float* bare(Complex* const& pairs) noexcept
{
    return reinterpret_cast<float*>(pairs);
}
inline std::size_t bare(const Length& length) noexcept
{
    return static_cast<std::size_t>(length.elements) * length.floatsEach;
}

// Checks all arguments, in the order of the kernel's parameters, and runs the kernel in the variant in use.
template <auto kernel, class... Arguments>
Status run(const Arguments&... given) noexcept
{
    if (const Status bad = arguments(given...); bad != ippStsNoErr)
        return bad;
    (active().*kernel)(bare(given)...);
    return ippStsNoErr;
}

// Whether one of the rows is null, or the list of them.
template <class Row>
bool anyNull(const Row* rows, std::size_t count) noexcept
{
    if (rows == nullptr)
        return true;
    for (std::size_t r = 0; r < count; ++r)
        if (rows[r] == nullptr)
            return true;
    return false;
}

} // namespace quorel::kernels

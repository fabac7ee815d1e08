// SPDX-License-Identifier: MIT
#include "core/kernels/row_sums.h"

#include "core/kernels/arguments.h"

namespace quorel {

using kernels::KernelTable;
using kernels::Length;
using kernels::run;

Status sumRows(const float* const* rows, const float* gains, std::size_t count, float* dst, std::int32_t len) noexcept
{
    return run<&KernelTable::sumRows>(rows, gains, count, dst, Length{len});
}

Status sumProductsPack(const float* const* x, const float* const* a, const float* const* b, std::size_t count, float* first,
                       float* second, std::int32_t len) noexcept
{
    return run<&KernelTable::sumProductsPack>(x, a, b, count, first, second, Length{len});
}

} // namespace quorel

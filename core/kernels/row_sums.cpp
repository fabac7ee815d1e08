// The sums over rows as the stages call them: the argument rules, then one call through the variant in use.
#include "core/row_sums.h"

#include "core/kernels/arguments.h"
#include "core/kernels/kernel_table.h"

namespace quorel {

using kernels::active;
using kernels::arguments;

Status sumRows(const float* const* rows, const float* gains, std::size_t count, float* dst, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, rows, gains, dst); bad != ippStsNoErr)
        return bad;
    active().sumRows(rows, gains, count, dst, static_cast<std::size_t>(len));
    return ippStsNoErr;
}

Status sumProductsPack(const float* const* x, const float* const* a, const float* const* b, std::size_t count, float* first,
                       float* second, std::int32_t len) noexcept
{
    if (const Status bad = arguments(len, x, a, b, first, second); bad != ippStsNoErr)
        return bad;
    active().sumProductsPack(x, a, b, count, first, second, static_cast<std::size_t>(len));
    return ippStsNoErr;
}

} // namespace quorel

#include "core/mixing.h"

#include "core/kernels/arguments.h"
#include "core/kernels/kernel_table.h"

namespace quorel {

Status mixPairs(const float* const* in, float* const* out, const PairMix* mix, std::size_t rows, std::int32_t len) noexcept
{
    if (kernels::anyNull(in, 2 * PairMix::pairs) || kernels::anyNull(out, rows))
        return ippStsNullPtrErr;
    if (const Status bad = kernels::arguments(len, mix); bad != ippStsNoErr)
        return bad;
    kernels::active().mixPairs(in, out, mix, rows, static_cast<std::size_t>(len));
    return ippStsNoErr;
}

} // namespace quorel

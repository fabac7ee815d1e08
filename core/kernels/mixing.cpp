#include "core/mixing.h"

#include "core/kernels/arguments.h"
#include "core/kernels/kernel_table.h"

#include <algorithm>

namespace quorel {

Status mixPairs(const float* const* in, float* const* out, const PairMix* mix, std::size_t rows, std::int32_t len) noexcept
{
    if (const Status bad = kernels::arguments(len, in, out, mix); bad != ippStsNoErr)
        return bad;
    if (std::find(in, in + 2 * PairMix::pairs, nullptr) != in + 2 * PairMix::pairs ||
        std::find(out, out + rows, nullptr) != out + rows)
        return ippStsNullPtrErr;
    kernels::active().mixPairs(in, out, mix, rows, static_cast<std::size_t>(len));
    return ippStsNoErr;
}

} // namespace quorel

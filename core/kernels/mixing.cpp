// SPDX-License-Identifier: MIT
#include "core/kernels/mixing.h"

#include "core/kernels/arguments.h"

namespace quorel {

Status mixPairs(const float* const* in, const float* const* added, float gain, float* const* out, const PairMix* mix,
                std::size_t rows, std::int32_t len) noexcept
{
    if (kernels::anyNull(in, lineCount) || kernels::anyNull(out, rows))
        return ippStsNullPtrErr;
    return kernels::run<&kernels::KernelTable::mixPairs>(in, added, gain, out, mix, rows, kernels::Length{len});
}

} // namespace quorel

// SPDX-License-Identifier: MIT
#include "core/kernels/dynamics.h"

#include "core/kernels/arguments.h"

namespace quorel {

Status compress(const Dynamics* dynamics, float* envelope, const float* const* in, float* const* out, std::size_t channels,
                std::int32_t len) noexcept
{
    if (kernels::anyNull(in, channels) || kernels::anyNull(out, channels))
        return ippStsNullPtrErr;
    return kernels::run<&kernels::KernelTable::compress>(dynamics, envelope, in, out, channels, kernels::Length{len});
}

Status compressTwo(const Dynamics* first, const Dynamics* second, float* envelope, const float* const* in, float* const* out,
                   std::int32_t len) noexcept
{
    if (kernels::anyNull(in, 4) || kernels::anyNull(out, 4))
        return ippStsNullPtrErr;
    return kernels::run<&kernels::KernelTable::compressTwo>(first, second, envelope, in, out, kernels::Length{len});
}

} // namespace quorel

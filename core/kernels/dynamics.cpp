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

} // namespace quorel

// SPDX-License-Identifier: MIT
#include "core/kernels/frames.h"

#include "core/kernels/arguments.h"

namespace quorel {

using kernels::KernelTable;
using kernels::Length;
using kernels::run;

Status deinterleave(const float* frames, std::size_t channels, float* const* out, std::int32_t len) noexcept
{
    if (kernels::anyNull(out, channels))
        return ippStsNullPtrErr;
    return run<&KernelTable::deinterleave>(frames, channels, out, Length{len});
}

Status foldToStereo(const float* frames, const float* gains, std::size_t channels, float* left, float* right,
                    std::int32_t len) noexcept
{
    return run<&KernelTable::foldToStereo>(frames, gains, channels, left, right, Length{len});
}

Status stereoFrames(const float* left, const float* right, float gain, float* frames, std::int32_t len) noexcept
{
    return run<&KernelTable::stereoFrames>(left, right, gain, frames, Length{len});
}

} // namespace quorel

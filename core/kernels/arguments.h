// The uniform argument rules of the kernels: null is tested before length.
#pragma once

#include "core/status.h"

namespace quorel::kernels {

template <class... Pointers>
Status arguments(std::int32_t len, const Pointers*... pointers) noexcept
{
    if ((... || !pointers))
        return ippStsNullPtrErr;
    return len < 1 ? ippStsSizeErr : ippStsNoErr;
}

} // namespace quorel::kernels

// The uniform argument rules of the kernels: null is tested before length.
#pragma once

#include "core/status.h"

#include <cstddef>

namespace quorel::kernels {

template <class... Pointers>
Status arguments(std::int32_t len, const Pointers*... pointers) noexcept
{
    if ((... || !pointers))
        return ippStsNullPtrErr;
    return len < 1 ? ippStsSizeErr : ippStsNoErr;
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

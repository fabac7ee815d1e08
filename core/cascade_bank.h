// CascadeBank runs twelve cascades of two sections side by side, in single precision.
//
// A recursion over samples is serial, but twelve of them are twelve lanes. For taps whose poles lie well inside the unit circle
// single precision does, and the bank then costs about half of twelve runs of one cascade. Taps, sections and the rules of
// silence and not-a-number are those of core/filters.h.
#pragma once

#include "core/kernels.h"

namespace quorel {

struct CascadeBank; // opaque, on a 64-byte boundary

constexpr std::size_t cascadeBankChannels = 12;
constexpr std::size_t cascadeBankSections = 2;

std::size_t cascadeBankSize() noexcept; // bytes

// A bank without taps in `storage`, which begins on a 64-byte boundary.
CascadeBank* cascadeBankInit(void* storage) noexcept;

// Sets the twelve taps of channel c and clears its history. False, with nothing set, if their poles ask for double precision.
bool cascadeBankSet(CascadeBank* bank, std::size_t c, const float* taps) noexcept;

// Twelve rows each; `out` may be `in`. The argument rules are those of core/kernels.h, for the rows too.
Status cascadeBankRun(CascadeBank* bank, const float* const* in, float* const* out, std::int32_t len) noexcept;

} // namespace quorel

// SPDX-License-Identifier: MIT
// Tests that watch the audio thread go round once in a check, and QUOREL_ROUNDS times where a longer proof asks for it; then they
// tell how many blocks it was.
#pragma once

#include "tests/support/wished.h"

#include <cstdint>
#include <cstdio>

namespace quorel {

inline std::uint32_t rounds()
{
    return wished("QUOREL_ROUNDS", 1);
}

inline void tellWatched(std::uint64_t blocks)
{
    if (rounds() > 1)
        std::printf("%llu blocks watched\n", static_cast<unsigned long long>(blocks));
}

} // namespace quorel

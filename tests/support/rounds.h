// SPDX-License-Identifier: MIT
// Tests that watch the audio thread go round once in a check, and QUOREL_ROUNDS times where a longer proof asks for it; then they
// tell how many blocks it was.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace quorel {

inline std::uint32_t rounds()
{
    const char* text = std::getenv("QUOREL_ROUNDS");
    return text == nullptr ? 1 : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

inline void tellWatched(std::uint64_t blocks)
{
    if (rounds() > 1)
        std::printf("%llu blocks watched\n", static_cast<unsigned long long>(blocks));
}

} // namespace quorel

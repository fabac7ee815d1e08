// SPDX-License-Identifier: MIT
// A longer proof asks of a test by the environment what a check does not: more rounds, another seed.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace quorel {

// What the variable says, or else `usual`.
inline std::uint32_t wished(const char* variable, std::uint32_t usual)
{
    const char* text = std::getenv(variable);
    return text != nullptr ? static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10)) : usual;
}

} // namespace quorel

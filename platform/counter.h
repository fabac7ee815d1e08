// SPDX-License-Identifier: MIT
// A clock for short measurements: it counts evenly from an unknown beginning and never runs backwards.
#pragma once

#include <cstdint>

namespace quorel::platform {

std::int64_t counterFrequency() noexcept; // counts in a second
std::int64_t counter() noexcept;

} // namespace quorel::platform

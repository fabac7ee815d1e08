// SPDX-License-Identifier: MIT
// The lines of the reverberator. Two kernels run all of them side by side and are made for this number.
#pragma once

#include <stddef.h>

namespace quorel {

constexpr size_t lineCount = 12;

} // namespace quorel

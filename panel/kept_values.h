// SPDX-License-Identifier: MIT
// What a bypass by settings has turned off, in a file of the user's: a panel that ends, in whatever way, leaves it to the next.
// A line a setting, Reverb=120.
#pragma once

#include "panel/values.h"

namespace quorel {

// Without values the file goes. Throws std::runtime_error with a text for the user.
void saveKeptValues(const Values& values);

// Lines that are no setting in its range count for nothing.
Values loadKeptValues();

} // namespace quorel

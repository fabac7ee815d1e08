// SPDX-License-Identifier: MIT
// Draws a set of responses: above the spectra, below the taps, left and right those of the left and the right ear.
#pragma once

#include "client/hrtf_set.h"

#include <string>

namespace quorel {

// The file's ending is .svg or .png; it gets its name when it is complete. Throws std::runtime_error with a text for the user.
void plotSet(const FittedSet& set, const std::string& path);

} // namespace quorel

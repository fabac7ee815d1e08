// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace quorel {

// Appends the spectrum, in Pack form, of taps that begin `onset` frames late: 1024 floats.
void appendSpectrum(std::vector<float>& spectra, std::span<const float> taps, std::size_t onset = 0);

} // namespace quorel

// SPDX-License-Identifier: MIT
// The windows of the filter bank, by sample rate. Each is symmetric about its centre and stored in full.
//
// The two of a rate are complementary: with a and s aligned at their centres,
//   fftLength * sum over m of a(t + m * hop) * s(t + m * hop) = 1  for every t,
// so a spectrum that is left as it is comes back as the input, delayed and with no other scale factor.
// docs/window_tables.md tells the design.
#pragma once

#include <array>

namespace quorel {

// fftLength 512, hop 80
extern const std::array<float, 561> analysisWindow16000;
extern const std::array<float, 461> synthesisWindow16000;

// fftLength 1024, hop 240
extern const std::array<float, 1027> analysisWindow48000;
extern const std::array<float, 1017> synthesisWindow48000;

} // namespace quorel

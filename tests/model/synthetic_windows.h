// SPDX-License-Identifier: MIT
// Windows for tests of the capture path that must not depend on the path's own tables: raised
// cosines of the right lengths, the synthesis one divided by what makes the pair complementary,
//   fftLength * sum over m of a(t + m hop) s(t + m hop) = 1.

#pragma once

#include <cstdint>

#include "tests/model/microphone_model.h"

namespace quorel::model {

MicrophoneWindows syntheticWindows(std::uint32_t sampleRate);

} // namespace quorel::model

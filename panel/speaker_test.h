// SPDX-License-Identifier: MIT
// The speaker test: each speaker's name is spoken from its place, one after the other.
#pragma once

#include "platform/programs/sound.h"

namespace quorel {

// For the speakers of the mask; those that no effect knows are silent. An empty mask counts as 7.1.
platform::Sound speakerTest(std::uint32_t mask);

} // namespace quorel

// SPDX-License-Identifier: MIT
#pragma once

namespace quorel {

// A point of a gain curve: the gain at an envelope level, both linear.
struct GainPoint {
    float level;
    float gain;
};

} // namespace quorel

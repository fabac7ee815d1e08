// SPDX-License-Identifier: MIT
// The effect's own rule for stream formats: 32-bit samples, the same format on both sides, and of these only the streams that
// a path is made for. It judges formats as they have been read out of their media types.
#pragma once

#include "host/audio_interfaces.h"

namespace quorel {

enum class EndpointKind { render, capture };

// Whether an endpoint of this kind takes streams of these formats.
//
//            fFramesPerSecond          dwChannelMask   dwSamplesPerFrame
//   capture  16000.0 or 48000.0        any             1
//   render   48000, fraction dropped   0x63F           any
//   render   96000, fraction dropped   0x3             any
//
// Required: render judges the rate by its whole part, so that 48000.5 passes there and fails on capture. Whether the speakers
// are as many as the channels is left to the path, and shows as a failed lock. Float and integer samples aren't told apart.
bool admits(EndpointKind kind, const UNCOMPRESSEDAUDIOFORMAT& opposite, const UNCOMPRESSEDAUDIOFORMAT& requested);

} // namespace quorel

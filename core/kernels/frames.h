// SPDX-License-Identifier: MIT
// Interleaved frames to rows, and rows to frames. The argument rules are those of core/kernels.h, for the rows too. One to eight
// channels; `len` counts frames.
#pragma once

#include "core/kernels/signature.h"

namespace quorel {

// out[c][i] = frames[i * channels + c]
Status deinterleave(const float* frames, std::size_t channels, float* const* out, std::int32_t len) noexcept;

// left[i] = sum over c of frames[i * channels + c] * gains[c], in the order of the channels; right[i] the same with
// gains[channels + c].
Status foldToStereo(const float* frames, const float* gains, std::size_t channels, float* left, float* right,
                    std::int32_t len) noexcept;

// Frames of eight: left[i] * gain, right[i] * gain and six zeros.
Status stereoFrames(const float* left, const float* right, float gain, float* frames, std::int32_t len) noexcept;

} // namespace quorel

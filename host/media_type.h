// SPDX-License-Identifier: MIT
// Media types: the form in which an engine and an effect hand formats to each other.
//
// The platform makes them with two functions of its own library; where that library can't be had, these stand in for them
// under its names.
#pragma once

#include "host/audio_interfaces.h"

namespace quorel {

// A media type with a copy of `format`, which has `size` bytes: at least its own 18 and those of its cbSize.
HRESULT CreateAudioMediaType(const WAVEFORMATEX* format, UINT32 size, IAudioMediaType** mediaType);

// The plain wave format where it says all that `format` does, else the extensible one.
HRESULT CreateAudioMediaTypeFromUncompressedAudioFormat(const UNCOMPRESSEDAUDIOFORMAT* format, IAudioMediaType** mediaType);

} // namespace quorel

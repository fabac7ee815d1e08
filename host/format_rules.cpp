// SPDX-License-Identifier: MIT
#include "host/format_rules.h"

#include "speaker/speaker_tables.h"

namespace quorel {

namespace {

constexpr DWORD containerBytes = 4; // of a 32-bit sample
constexpr DWORD sampleBits = 32;
constexpr DWORD stereoMask = 0x3; // front left, right

} // namespace

bool admits(EndpointKind kind, const UNCOMPRESSEDAUDIOFORMAT& opposite, const UNCOMPRESSEDAUDIOFORMAT& requested)
{
    const bool alike = requested.dwSamplesPerFrame == opposite.dwSamplesPerFrame &&
                       requested.dwBytesPerSampleContainer == opposite.dwBytesPerSampleContainer &&
                       requested.dwValidBitsPerSample == opposite.dwValidBitsPerSample &&
                       requested.fFramesPerSecond == opposite.fFramesPerSecond &&
                       requested.dwChannelMask == opposite.dwChannelMask;
    if (!alike || requested.dwBytesPerSampleContainer != containerBytes || requested.dwValidBitsPerSample != sampleBits)
        return false;

    const FLOAT rate = requested.fFramesPerSecond;
    if (kind == EndpointKind::capture)
        return (rate == 16000.0F || rate == 48000.0F) && requested.dwSamplesPerFrame == 1;
    const auto wholeRateIs = [rate](FLOAT whole) { return rate >= whole && rate < whole + 1.0F; };
    return (wholeRateIs(48000.0F) && requested.dwChannelMask == everySpeaker) ||
           (wholeRateIs(96000.0F) && requested.dwChannelMask == stereoMask);
}

} // namespace quorel

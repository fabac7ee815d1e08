// SpeakerPath is the render effect: N interleaved channels in, stereo in frames of eight slots out.
#pragma once

#include "core/settings_record.h"
#include "core/signal_path.h"
#include "speaker/scale_mixer.h"

namespace quorel {

template <std::size_t N, typename T>
class SpeakerPath;

template <std::size_t N>
class SpeakerPath<N, float> {
public:
    // channelMask: must name exactly N of the speakers of `speakerTable`; other bits are ignored. maxFrames: the most frames
    // of one block. sampleRate: frames per second; at any rate but 48000 the path copies.
    SpeakerPath(std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate);

    // `in` has N samples a frame, `out` eight.
    void process(InterleavedView in, InterleavedView out);

private:
    void translateSettings();
    void copyThrough(InterleavedView in, InterleavedView out) const;

    Buffer<float, 2> mix;  // first working bus
    Buffer<float, 2> side; // second working bus; at the end the signal that leaves the path
    ScaleMixer<N> downmix;

public:
    SettingsRecord record; // the path's own settings

private:
    std::uint32_t lastSequence = 0xFFFFFFFF; // blockSequence of the last translated record
    std::uint32_t sampleRate;                // frames per second
};

} // namespace quorel

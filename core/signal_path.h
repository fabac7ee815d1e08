// SPDX-License-Identifier: MIT
// SignalPath is the one object through which a host reaches audio processing.
//
// The host asks for a path of a kind and a channel count and from then on sees the abstract Interface. Behind it stands one
// concrete path, its channel count fixed when it was compiled, held by value in a Dispatch; the one virtual call of a block
// is the step across this boundary. This header is all that a host includes and declares how a path of either kind is built;
// speaker/ and microphone/ each define their own constructor, by core/dispatch.h.
//
// Configuration thread: construction, destruction, moves. Audio thread: the Interface, which allocates nothing.
#pragma once

#include "core/settings_record.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace quorel {

class SignalPath {
public:
    class Interface {
    public:
        virtual ~Interface() = default;

        // One block of interleaved samples; the strides are the path's. Returns `outFrames` as it was passed in. What
        // the path throws leaves here.
        virtual std::uint64_t process(float* in, std::uint64_t inFrames, float* out, std::uint64_t outFrames) = 0;

        // The path's own record, at the same address as long as the path lives.
        virtual SettingsRecord* settings() noexcept = 0;

        // Nine levels in dB inside the path, or null when the path measures none.
        virtual const float* levels() noexcept = 0;
    };

    // A path type needs: a constructor (channel mask, maximum frames, sample rate), a move constructor that allocates no
    // sample memory, process(InterleavedView, InterleavedView), settings(), which gives its record, and, if it measures levels,
    // levels().
    template <typename Path>
    class Dispatch;

    // The kinds of path.
    struct Speaker {};
    struct Microphone {};

    SignalPath() = default; // no path

    // channels: 1 to 8 samples per frame, else std::invalid_argument. channelMask: the speaker mask of the stream, which a
    // microphone path ignores. maxFrames: the most frames of one block. sampleRate: frames per second.
    // What the path's constructor throws leaves here.
    SignalPath(Speaker, std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate);
    SignalPath(Microphone, std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames, std::uint32_t sampleRate);

    // Null when there is no path, as after a move from this object.
    Interface* get() const noexcept { return path.get(); }
    Interface* operator->() const noexcept { return path.get(); }

private:
    // The one place where a run-time channel count meets the compile-time ones.
    template <template <std::size_t, typename> typename Path, std::size_t N = 1>
    static std::unique_ptr<Interface> build(std::int32_t channels, std::uint32_t channelMask, std::uint32_t maxFrames,
                                            std::uint32_t sampleRate);

    std::unique_ptr<Interface> path;
};

} // namespace quorel

// SPDX-License-Identifier: MIT
// SampleBorder stops samples that must not reach an effect:  x = 0 where x is not finite or |x| > 2^20
//
// The effects take what they get, as they have to: one value that is no number stays in a filter's state for ever, and one of
// 1e15 keeps the limiter closed for the rest of the stream. 2^20 is 120 dB above full scale. Any thread: nothing here waits or
// allocates.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace quorel {

class SampleBorder {
public:
    static constexpr float loudest = 1048576.0F;

    explicit SampleBorder(std::size_t channels) : channels(channels) {}

    // The stream's next `n` interleaved frames.
    void pass(float* x, std::uint64_t n) noexcept;

    std::uint64_t replaced() const noexcept { return count; }   // samples so far
    std::uint64_t firstFrame() const noexcept { return frame; } // of the stream, of the first of them
    std::size_t firstChannel() const noexcept { return channel; }

private:
    std::size_t channels;
    std::uint64_t position = 0; // frames passed
    std::uint64_t count = 0;
    std::uint64_t frame = 0;
    std::size_t channel = 0;
};

// ---------------------------------------------------------------------------------------------------------------------

inline void SampleBorder::pass(float* x, std::uint64_t n) noexcept
{
    for (std::uint64_t i = 0; i < n * channels; ++i) {
        if (std::abs(x[i]) <= loudest) // not so for what is no number
            continue;
        x[i] = 0;
        if (count++ == 0) {
            frame = position + i / channels;
            channel = static_cast<std::size_t>(i % channels);
        }
    }
    position += n;
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// Resampler brings sound to another rate, by the SoX resampler library at its high quality (20 bits).
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <soxr.h>
#include <type_traits>
#include <vector>

namespace quorel {

class Resampler {
public:
    // Fills `x` with up to `n` frames and returns how many; fewer than `n` only at the end. May throw.
    using Source = std::function<std::uint64_t(float* x, std::uint64_t n)>;

    // Rates in frames per second. This object stays where it is.
    Resampler(Source source, int channels, std::uint32_t sourceRate, std::uint32_t rate);
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    // Frames that come out of so many in all: the same time at the new rate, to the nearest frame.
    std::uint64_t framesOf(std::uint64_t inputFrames) const noexcept;

    // As the source.
    std::uint64_t read(float* x, std::uint64_t n);

private:
    static std::size_t supply(void* self, soxr_in_t* data, std::size_t n);

    struct Delete {
        void operator()(soxr_t resampler) const noexcept { soxr_delete(resampler); }
    };

    Source source;
    std::uint32_t sourceRate; // frames per second
    std::uint32_t rate;       // frames per second
    std::vector<float> chunk; // what the library asked for last
    std::unique_ptr<std::remove_pointer_t<soxr_t>, Delete> library;
    std::exception_ptr failure; // what reading threw, carried across the library
};

} // namespace quorel

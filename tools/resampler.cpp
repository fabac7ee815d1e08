// SPDX-License-Identifier: MIT
#include "tools/resampler.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace quorel {

namespace {

constexpr std::size_t chunkFrames = 4096;

} // namespace

Resampler::Resampler(Source source, int channels, std::uint32_t sourceRate, std::uint32_t rate)
    : source(std::move(source)), sourceRate(sourceRate), rate(rate), chunk(chunkFrames * static_cast<std::size_t>(channels))
{
    soxr_error_t error = nullptr;
    library.reset(soxr_create(sourceRate, rate, static_cast<unsigned>(channels), &error, nullptr, nullptr, nullptr));
    if (error == nullptr)
        error = soxr_set_input_fn(library.get(), supply, this, chunkFrames);
    if (error != nullptr)
        throw std::runtime_error("cannot resample from " + std::to_string(sourceRate) + " Hz: " + error);
}

std::uint64_t Resampler::framesOf(std::uint64_t inputFrames) const noexcept
{
    return (inputFrames * rate + sourceRate / 2) / sourceRate;
}

std::uint64_t Resampler::read(float* x, std::uint64_t n)
{
    const std::uint64_t got = soxr_output(library.get(), x, n);
    if (failure)
        std::rethrow_exception(failure);
    return got;
}

// The library's input function: no exception may pass through it.
std::size_t Resampler::supply(void* self, soxr_in_t* data, std::size_t n)
{
    auto& resampler = *static_cast<Resampler*>(self);
    *data = resampler.chunk.data();
    try {
        return resampler.source(resampler.chunk.data(), n);
    } catch (...) {
        resampler.failure = std::current_exception();
        *data = nullptr;
        return 0;
    }
}

} // namespace quorel

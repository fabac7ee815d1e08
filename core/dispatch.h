// SPDX-License-Identifier: MIT
// Dispatch holds one concrete path by value behind the abstract Interface of a SignalPath, and `build` finds the one of a channel
// count that is known only when the program runs.
#pragma once

#include "core/interleaved_view.h"
#include "core/signal_path.h"

#include <stdexcept>
#include <utility>

namespace quorel {

template <typename Path>
class SignalPath::Dispatch final : public Interface {
public:
    explicit Dispatch(Path&& path) : path(std::move(path)) {}

    std::uint64_t process(float* in, std::uint64_t inFrames, float* out, std::uint64_t outFrames) override
    {
        path.process(InterleavedView{in, inFrames}, InterleavedView{out, outFrames});
        return outFrames;
    }

    SettingsRecord* settings() noexcept override { return &path.settings(); }

    const float* levels() noexcept override
    {
        if constexpr (requires { path.levels(); })
            return path.levels();
        else
            return nullptr;
    }

private:
    Path path;
};

template <template <std::size_t, typename> typename Path, std::size_t N>
std::unique_ptr<SignalPath::Interface> SignalPath::build(std::int32_t channels, std::uint32_t channelMask,
                                                         std::uint32_t maxFrames, std::uint32_t sampleRate)
{
    if (channels < 1 || channels > 8)
        throw std::invalid_argument("SignalPath: Illegal channel count");
    if constexpr (N < 8) {
        if (channels != std::int32_t{N})
            return build<Path, N + 1>(channels, channelMask, maxFrames, sampleRate);
    }
    return std::make_unique<Dispatch<Path<N, float>>>(Path<N, float>(channelMask, maxFrames, sampleRate));
}

} // namespace quorel

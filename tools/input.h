// SPDX-License-Identifier: MIT
// Input is the sound that a tool works on: an audio file, brought to another rate where that is asked for. What must not reach an
// effect is stopped here.
#pragma once

#include "client/audio_file.h"
#include "client/sample_border.h"
#include "tools/resampler.h"
#include "tools/tool.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace quorel {

class Input {
public:
    // wantedRate: of the file's own, the frames per second that come out.
    Input(const std::string& path, bool allowTruncated, const std::function<std::uint32_t(std::uint32_t own)>& wantedRate);

    int channels() const noexcept { return reader.channels(); }
    std::uint32_t rate() const noexcept { return rate_; }
    std::uint32_t ownRate() const noexcept { return reader.rate(); }
    std::uint32_t mask() const noexcept { return reader.mask(); }

    // Frames that come out, where the file's header tells.
    std::optional<std::uint64_t> frames() const noexcept;

    // Fills `x` with up to `n` frames and returns how many; fewer than `n` only at the end.
    std::uint64_t read(float* x, std::uint64_t n);

    // What was replaced so far, and where the file breaks off.
    const SampleBorder& replacements() const noexcept { return border; }
    const std::string& truncation() const noexcept { return reader.truncation(); }

private:
    std::uint64_t readFile(float* x, std::uint64_t n);

    AudioReader reader;
    SampleBorder border;
    std::uint32_t rate_;
    std::optional<Resampler> resampler;
};

} // namespace quorel

// SPDX-License-Identifier: MIT
// Input is the sound that a tool works on: an audio file, brought to another rate where that is asked for. What must not reach an
// effect is stopped here.
#pragma once

#include "client/audio_file.h"
#include "client/sample_border.h"
#include "tools/resampler.h"
#include "tools/tool.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quorel {

class Input {
public:
    // wantedRate: frames per second that come out; 0: the file's own.
    Input(const std::string& path, std::uint32_t wantedRate);

    int channels() const noexcept { return reader.channels(); }
    std::uint32_t rate() const noexcept { return resampler ? wantedRate : reader.rate(); }
    std::uint32_t mask() const noexcept { return reader.mask(); }

    // Frames that come out, where the file's header tells.
    std::optional<std::uint64_t> frames() const noexcept;

    // Fills `x` with up to `n` frames and returns how many; fewer than `n` only at the end.
    std::uint64_t read(float* x, std::uint64_t n);

    // Tells what was replaced so far, for the user; nothing when nothing was.
    std::optional<std::string> replacements() const;

private:
    std::uint64_t readFile(float* x, std::uint64_t n);

    std::string path;
    AudioReader reader;
    SampleBorder border;
    std::uint32_t wantedRate;
    std::optional<Resampler> resampler;
};

// The exit code of a tool that is done, 1 when samples were replaced, which it then tells.
int tellReplacements(const CLI::App& tool, const Input& input);

} // namespace quorel

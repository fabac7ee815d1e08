// SPDX-License-Identifier: MIT
// Output is the file that a tool makes: a gain on what the effect gave, a look at its peak and at what the file cannot hold, then
// the file.
#pragma once

#include "client/audio_file.h"

#include <cstdio>
#include <memory>
#include <optional>

namespace quorel {

class Output {
public:
    struct Level {
        double gainDb = 0;               // of the gain
        std::optional<double> normalise; // or: the dB of full scale to which the largest sample is brought
    };

    // As an AudioWriter.
    Output(const std::string& path, const AudioWriter::Layout& layout, std::optional<std::uint64_t> frames, const Level& level);

    void write(const float* x, std::uint64_t n);
    void commit();

    // Once committed. Samples of an integer format beyond what it holds, as they are before dither.
    std::uint64_t clipped() const noexcept { return clipCount; }
    std::uint64_t firstClippedFrame() const noexcept { return clipPlace / channels; }
    std::uint64_t firstClippedChannel() const noexcept { return clipPlace % channels; }
    float peak() const noexcept { return peak_; } // largest magnitude, full scale 1, before the format's border
    double gainDb() const noexcept { return gainDb_; }

private:
    void put(const float* x, std::uint64_t n);

    struct CloseFile {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };

    AudioWriter writer;
    std::size_t channels;
    std::optional<double> normalise;
    std::unique_ptr<std::FILE, CloseFile> held; // all of it, where the gain is known at the end alone
    float heldPeak = 0;
    float highest; // that the format holds; a sample half a step beyond is clipped
    float lowest;
    double gainDb_;
    std::vector<float> scaled;
    std::uint64_t position = 0; // samples
    std::uint64_t clipCount = 0;
    std::uint64_t clipPlace = 0; // the first of them, in samples
    float peak_ = 0;
};

} // namespace quorel

// SPDX-License-Identifier: MIT
// AudioDecoder reads an audio file of any container by the library that knows them. That library is made for good files, so a
// program has this done in a child process: AudioReader, in client/audio_file.h.
#pragma once

#include "client/repaired_input.h"
#include "client/sound_library.h"
#include "platform/programs/input_file.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel {

// A file that holds less than its header tells of.
struct Truncated : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Each failure is a std::runtime_error with the reason alone: the file is its caller's to name. Truncated is thrown by the
// constructor or by read, unless such a file is allowed, which then ends where it breaks off.
class AudioDecoder {
public:
    AudioDecoder(std::unique_ptr<platform::InputFile> input, bool allowTruncated);

    int channels() const noexcept { return info.channels; }
    std::uint32_t rate() const noexcept { return static_cast<std::uint32_t>(info.samplerate); }

    // The operating system's speaker mask: the file's own, else the usual one.
    std::uint32_t mask() const noexcept { return mask_; }

    // The frames of the file, where its header tells.
    std::optional<std::uint64_t> frames() const noexcept;

    // Fills `x` with up to `n` frames and returns how many; fewer than `n` only at the file's end.
    std::uint64_t read(float* x, std::uint64_t n);

    // How the file breaks off, as far as that is known; empty while it is whole.
    const std::string& truncation() const noexcept { return truncation_; }

private:
    void tellRefusal() const;
    void breakOff(const std::string& how);
    void reorder(float* x, std::uint64_t n);

    bool allowTruncated;
    std::string truncation_;
    std::vector<std::size_t> order; // of each channel, where it stands in the file's frame; empty: where it belongs
    std::vector<float> frame;       // one of the file
    SF_INFO info{};
    std::unique_ptr<RepairedInput> repaired; // what the library reads, where that is not the file as it is
    SoundFile file;
    std::uint32_t mask_ = 0;
    std::uint64_t position = 0; // frames read
};

// The speaker mask that a WAV or FLAC file of so many channels has when it does not name its own: FLAC's assignments, which
// are also what plain WAV files use; 0 beyond eight channels.
std::uint32_t usualMask(int channels) noexcept;

} // namespace quorel

// SPDX-License-Identifier: MIT
// Audio files as the tools read and write them: interleaved floats, full scale 1.0, and the speakers that the channels are for.
#pragma once

#include "client/audio_container.h"
#include "client/repaired_input.h"
#include "client/rounding.h"
#include "platform/programs/atomic_file.h"
#include "platform/programs/standard_output.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <sndfile.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel {

struct CloseSoundFile {
    void operator()(SNDFILE* file) const noexcept { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSoundFile>;

// The speaker mask that a WAV or FLAC file of so many channels has when it does not name its own: FLAC's assignments, which
// are also what plain WAV files use; 0 beyond eight channels.
std::uint32_t usualMask(int channels) noexcept;

// A file that holds less than its header tells of.
struct Truncated : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A file of any container, or a pipe that brings one. Its channels come in the order of the speaker mask. Each failure is a
// std::runtime_error with a text for the user.
class AudioReader {
public:
    // path: "-" is standard input. `wait` is called several times a second while a pipe is waited for, and may throw.
    // Truncated is thrown by the constructor or by read, unless such a file is allowed, which then ends where it breaks off.
    AudioReader(const std::string& path, const std::function<void()>& wait, bool allowTruncated = false);

    int channels() const noexcept { return info.channels; }
    std::uint32_t rate() const noexcept { return static_cast<std::uint32_t>(info.samplerate); }

    // The operating system's speaker mask: the file's own, else the usual one.
    std::uint32_t mask() const noexcept { return mask_; }

    // The frames of the file, where its header tells.
    std::optional<std::uint64_t> frames() const noexcept;

    // Fills `x` with up to `n` frames and returns how many; fewer than `n` only at the file's end.
    std::uint64_t read(float* x, std::uint64_t n);

    // How the file breaks off, for the user, as far as that is known; empty while it is whole.
    const std::string& truncation() const noexcept { return truncation_; }

private:
    void breakOff(const std::string& how);
    void reorder(float* x, std::uint64_t n);

    std::string path;
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

enum class SampleFormat { float32, pcm24, pcm16 };

// The format of an option's value: pcm16 or pcm24; every other name stands for floats.
SampleFormat formatNamed(const std::string& name);

// An audio file that comes into being as a whole in commit(), or not at all. Equal samples give equal files.
class AudioWriter {
public:
    struct Layout {
        int channels;
        std::uint32_t rate;  // frames per second
        std::uint32_t mask;  // speakers, written for more than two channels
        SampleFormat format; // FLAC holds integers alone
        Container container = Container::wav;
        bool dithered = true; // integers
    };

    // path: "-" is standard output. frames: how long the file will be, if that is known; a file that may outgrow the 4 GiB of
    // WAV becomes RF64.
    AudioWriter(const std::string& path, const Layout& layout, std::optional<std::uint64_t> frames);

    // Integer formats clip beyond full scale, floats keep what they get.
    void write(const float* x, std::uint64_t n);

    void commit();

private:
    [[noreturn]] void fail() const;

    std::string path;
    std::optional<platform::AtomicFile> destination; // where the path is not standard output
    std::optional<platform::StandardOutput> output;
    SoundFile file;
    std::size_t channels;
    std::optional<Rounding> rounding; // to integers
    std::vector<std::int32_t> integers;
};

} // namespace quorel

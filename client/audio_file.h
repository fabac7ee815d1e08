// SPDX-License-Identifier: MIT
// Audio files as the tools read and write them: interleaved floats, full scale 1.0, and the speakers that the channels are for.
#pragma once

#include "client/audio_container.h"
#include "client/audio_decoder.h"
#include "client/rounding.h"
#include "client/sound_library.h"
#include "platform/programs/atomic_file.h"
#include "platform/programs/limited_source.h"
#include "platform/programs/standard_output.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel {

// A file of any container, or a pipe that brings one, read in a process of its own, whose crash or hang is a failure like others.
// Its channels come in the order of the speaker mask. Each failure is a std::runtime_error with a text for the user.
class AudioReader {
public:
    // path: "-" is standard input. `wait` is called several times a second while a pipe or the reading process is waited for, and
    // may throw. Truncated is thrown by the constructor or by read, unless such a file is allowed, which then ends where it
    // breaks off.
    AudioReader(const std::string& path, const std::function<void()>& wait, bool allowTruncated = false);

    int channels() const noexcept { return static_cast<int>(head.channels); }
    std::uint32_t rate() const noexcept { return head.rate; }

    // The operating system's speaker mask: the file's own, else the usual one.
    std::uint32_t mask() const noexcept { return head.mask; }

    // The frames of the file, where its header tells.
    std::optional<std::uint64_t> frames() const noexcept;

    // Fills `x` with up to `n` frames and returns how many; fewer than `n` only at the file's end.
    std::uint64_t read(float* x, std::uint64_t n);

    // How the file breaks off, for the user, as far as it has been read; empty while it is whole.
    const std::string& truncation() const noexcept { return truncation_; }

private:
    struct Record;

    void next();
    void receive(void* to, std::size_t bytes);
    [[noreturn]] void fail(const std::string& why) const;

    std::string path;
    std::unique_ptr<platform::LimitedSource> source;
    struct Head {
        std::uint32_t channels;
        std::uint32_t rate; // frames per second
        std::uint32_t mask;
        std::uint32_t framesTold; // whether
        std::uint64_t frames;
    } head{};
    std::string truncation_;
    std::size_t left = 0; // frames of the record that has begun
    bool ended = false;
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

// SPDX-License-Identifier: MIT
// What the tools for files say where the system, a library or a kind of file takes no more.
#include "tests/support/failure.h"
#include "tools/output.h"
#include "tools/resampler.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace quorel {
namespace {

const char* temporaryFile = nullptr; // what stands for one; null: there is none
soxr_error_t resampling = nullptr;

} // namespace

// In place of the system's and the library's operations.
extern "C" {
std::FILE* __wrap_tmpfile() // NOLINT(bugprone-reserved-identifier): the linker's names
{
    return temporaryFile != nullptr ? std::fopen(temporaryFile, "w+") : nullptr;
}

soxr_error_t __wrap_soxr_set_input_fn(soxr_t, soxr_input_fn_t, void*, size_t) // NOLINT(bugprone-reserved-identifier)
{
    return resampling;
}
}

namespace {

class AudioRefusals : public testing::Test {
protected:
    AudioRefusals()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "quorel_refusals_XXXXXX").string();
        folder = mkdtemp(pattern.data());
    }
    ~AudioRefusals() override { std::filesystem::remove_all(folder); }

    std::string path() const { return (folder / "out").string(); }

    std::filesystem::path folder;
    AudioWriter::Layout layout{.channels = 2, .rate = 48000, .mask = 0x3, .format = SampleFormat::float32};
};

TEST_F(AudioRefusals, AiffBeyondFourGibibytesIsRefusedBeforeItBegins)
{
    layout.container = Container::aiff;
    constexpr std::uint64_t most = (0xFFFFFFFF - 4096) / 8; // frames of eight bytes, and room for the header
    EXPECT_EQ(failureText([&] { AudioWriter(path(), layout, most); }), "");
    EXPECT_EQ(failureText([&] { AudioWriter(path(), layout, most + 1); }),
              "cannot write " + path() + ": AIFF holds at most 4 GiB");
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(AudioRefusals, SoundWhosePeakIsLookedForNeedsAPlace)
{
    temporaryFile = nullptr;
    EXPECT_EQ(failureText([&] { Output(path(), layout, 1, {.normalise = -1.0}); }),
              "there is no place for the sound while its peak is looked for");
    temporaryFile = "/dev/full";
    const std::vector<float> sound(std::size_t{2} * 65536); // more than a stream of the C library holds back
    EXPECT_EQ(failureText([&] { Output(path(), layout, 65536, {.normalise = -1.0}).write(sound.data(), 65536); }),
              "there is no room for the sound while its peak is looked for");
}

TEST_F(AudioRefusals, AResamplerThatFailsIsToldWithItsReason)
{
    resampling = "no memory";
    EXPECT_EQ(failureText([] { Resampler([](float*, std::uint64_t) { return std::uint64_t{0}; }, 2, 44100, 48000); }),
              "cannot resample from 44100 Hz: no memory");
}

} // namespace
} // namespace quorel

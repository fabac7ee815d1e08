// SPDX-License-Identifier: MIT
// What reads responses where the audio libraries can't be had. Its source is compiled into this program, on every system.
#include "client/hrtf_sources.h"

#include "platform/programs/file_names.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace quorel {
namespace {

std::string little(std::uint64_t value, std::size_t size)
{
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i)
        bytes += static_cast<char>(value >> (8 * i) & 0xFF);
    return bytes;
}

std::string chunk(const std::string& name, const std::string& contents)
{
    return name + little(contents.size(), 4) + contents + std::string(contents.size() % 2, '\0');
}

struct Description {
    std::uint32_t tag = 1; // 1 integers, 3 floats, 0xFFFE as told further on
    std::uint32_t channels = 2;
    std::uint32_t bits = 16;
    std::uint32_t frameBytes = 4;
    std::string rest;
};

std::string described(const Description& d)
{
    return chunk("fmt ", little(d.tag, 2) + little(d.channels, 2) + little(48000, 4) + little(48000 * d.frameBytes, 4) +
                             little(d.frameBytes, 2) + little(d.bits, 2) + d.rest);
}

std::string wav(const std::string& chunks)
{
    return "RIFF" + little(4 + chunks.size(), 4) + "WAVE" + chunks;
}

class PlainSources : public testing::Test {
protected:
    ~PlainSources() override { std::filesystem::remove(platform::pathOf(file)); }

    Recording reading(const std::string& bytes, std::size_t frames = 100) const
    {
        std::ofstream(platform::pathOf(file), std::ios::binary) << bytes;
        return readRecording(file, frames);
    }

    void expectRefusal(const std::string& bytes, const std::string& reason) const
    {
        try {
            reading(bytes);
            FAIL() << reason;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), "cannot read " + file + ": " + reason);
        }
    }

    const std::string file =
        (std::filesystem::temp_directory_path() / ("quorel_plain_" + std::to_string(std::random_device()()) + ".wav")).string();
};

// A quarter of full scale and three quarters of its negative, as each kind of sample holds them.
TEST_F(PlainSources, IntegersAndFloatsComeAtFullScaleOne)
{
    const auto floating = [](float value) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return little(bits, 4);
    };
    const std::string extension = little(22, 2) + little(16, 2) + little(3, 4);
    const std::pair<Description, std::string> kinds[] = {
        {{1, 2, 16, 4, ""}, little(0x2000, 2) + little(0xA000, 2)},
        {{1, 2, 24, 6, ""}, little(0x200000, 3) + little(0xA00000, 3)},
        {{1, 2, 32, 8, ""}, little(0x20000000, 4) + little(0xA0000000, 4)},
        {{3, 2, 32, 8, ""}, floating(0.25F) + floating(-0.75F)},
        {{0xFFFE, 2, 16, 4, extension + little(1, 2) + std::string(14, '\0')}, little(0x2000, 2) + little(0xA000, 2)},
    };
    for (const auto& [description, frame] : kinds) {
        const Recording recording = reading(wav(described(description) + chunk("odd ", "abc") + chunk("data", frame + frame)));
        EXPECT_EQ(recording.channels, 2U);
        EXPECT_EQ(recording.rate, 48000);
        EXPECT_EQ(recording.frames, 2U);
        EXPECT_THAT(recording.samples, testing::ElementsAre(0.25F, -0.75F, 0.25F, -0.75F)) << description.bits;
    }
}

TEST_F(PlainSources, NoMoreFramesAreReadThanAskedFor)
{
    const std::string bytes = wav(described({}) + chunk("data", std::string(40, '\0')));
    EXPECT_EQ(reading(bytes, 3).frames, 3U);
    EXPECT_EQ(reading(bytes, 100).frames, 10U);
}

TEST_F(PlainSources, WhatIsNoWholeWavFileIsRefusedWithTheReason)
{
    const std::string data = chunk("data", little(0, 4));
    expectRefusal("", "it is no WAV file; this build reads no other");
    expectRefusal("This is a letter.\n", "it is no WAV file; this build reads no other");
    expectRefusal(wav(chunk("fmt ", "short") + data), "its description breaks off");
    for (const Description& other : {Description{6, 2, 8, 2, ""}, {3, 2, 64, 16, ""}, {1, 2, 8, 2, ""}, {1, 2, 20, 6, ""}})
        expectRefusal(wav(described(other) + data), "its samples are neither integers of 16, 24 or 32 bits nor floats of 32");
    for (const Description& other : {Description{1, 0, 16, 0, ""}, {1, 2, 16, 6, ""}})
        expectRefusal(wav(described(other) + data), "its frames are not as wide as its channels");
    expectRefusal(wav(data + described({})), "its samples come before their description");
    expectRefusal(wav(described({}) + "data" + little(100, 4) + "abcd"), "it breaks off");
    expectRefusal(wav(described({})), "it holds no samples");
    expectRefusal(wav(described({}) + "LIST" + little(std::numeric_limits<std::uint32_t>::max(), 4)), "it holds no samples");
}

TEST_F(PlainSources, SofaAndOtherRatesAreRefusedWithTheWayOut)
{
    EXPECT_THAT([&] { readSofa("a.sofa", Equalize::none); },
                testing::ThrowsMessage<std::runtime_error>(
                    "cannot read a.sofa: this build reads no SOFA files, only WAV files of 14 channels"));
    EXPECT_THAT([&] { resampled({}, 44100); }, testing::ThrowsMessage<std::runtime_error>(
                                                   "the responses are at 44100 Hz, and this build does not resample: bring "
                                                   "them to 48000 Hz first"));
}

} // namespace
} // namespace quorel

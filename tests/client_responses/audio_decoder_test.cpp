// SPDX-License-Identifier: MIT
// A disk that cannot be read is told as what it is: not as another kind of file, nor as the file's end.
#include "client/audio_decoder.h"

#include "tests/support/failing_calls.h"
#include "tests/support/failure.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace quorel {
namespace {

constexpr std::size_t frames = 6000; // more than the library reads at once

// One channel of 16 bits at 48000 Hz, whose header tells of so many bytes of samples.
std::string wav(std::uint32_t told)
{
    const auto number = [](std::uint32_t value, std::size_t bytes) {
        std::string text;
        for (std::size_t i = 0; i < bytes; ++i)
            text += static_cast<char>(value >> (8 * i) & 0xFF);
        return text;
    };
    return "RIFF" + number(told == 0 ? 0 : 36 + told, 4) + "WAVEfmt " + number(16, 4) + number(1, 2) + number(1, 2) +
           number(48000, 4) + number(96000, 4) + number(2, 2) + number(16, 2) + "data" + number(told, 4) +
           std::string(2 * frames, '\x11');
}

class AudioDecoderReads : public testing::Test {
protected:
    // How many frames are read of such a file, as far as it may break off.
    std::size_t read(const std::string& contents)
    {
        std::ofstream(path, std::ios::binary) << contents;
        auto input = std::make_unique<platform::InputFile>(path, [] {});
        failCall(failing, EIO);
        AudioDecoder decoder(std::move(input), true);
        std::vector<float> x(500);
        std::size_t all = 0;
        for (std::size_t got = x.size(); got == x.size(); all += got)
            got = decoder.read(x.data(), x.size());
        return all;
    }

    // Each call that reads fails once.
    void expectEachTold(const std::string& contents, long least)
    {
        EXPECT_EQ(read(contents), frames);
        for (failing = 1;; ++failing) {
            const std::string text = failureText([&] { read(contents); });
            const bool failed = callFailed();
            failCall(0, 0);
            if (!failed)
                break;
            EXPECT_EQ(text, std::strerror(EIO)) << "call " << failing;
        }
        EXPECT_GT(failing, least);
    }

    TemporaryHome home;
    std::string path = (home.path() / "file.wav").string();
    long failing = 0;
};

TEST_F(AudioDecoderReads, AHeaderThatCannotBeReadIsTold)
{
    expectEachTold(wav(2 * frames), 3);
}

// Its samples are read through the same door, by a library that knows no reason.
TEST_F(AudioDecoderReads, SamplesThatCannotBeReadAreToldWhereAHeaderIsRepaired)
{
    expectEachTold(wav(0), 10);
}

} // namespace
} // namespace quorel

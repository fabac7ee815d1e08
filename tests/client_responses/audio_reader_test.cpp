// SPDX-License-Identifier: MIT
// What reads an audio file may be taken over by the file and answer anything: here it answers what a test says.
#include "client/audio_file.h"

#include "tests/support/failure.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace quorel {
namespace {

std::string& answer()
{
    static std::string bytes;
    return bytes;
}

} // namespace

// In place of the process that reads.
platform::LimitedSource::LimitedSource(const std::function<void(const Give&)>&, const WorkLimits& limits,
                                       std::function<void()> wait, int)
    : limits(limits), wait(std::move(wait))
{
}

platform::LimitedSource::~LimitedSource() = default;

std::size_t platform::LimitedSource::read(void* to, std::size_t bytes)
{
    const std::size_t part = std::min(bytes, answer().size());
    std::memcpy(to, answer().data(), part);
    answer().erase(0, part);
    return part;
}

namespace {

enum Kind : std::uint32_t { head, samples, end, truncated };

std::string words(std::initializer_list<std::uint32_t> all)
{
    return {reinterpret_cast<const char*>(all.begin()), all.size() * sizeof(std::uint32_t)};
}

// Two channels at 48000 Hz, whose length is not told.
const std::string good = words({head, 24, 2, 48000, 0x3, 0, 0, 0});

class AudioReaderAnswers : public testing::Test {
protected:
    AudioReaderAnswers() { std::ofstream(path) << "x"; }

    // Of reading to the end.
    std::string failureOf(const std::string& bytes)
    {
        answer() = bytes;
        return failureText([&] {
            AudioReader reader(path, [] {});
            std::vector<float> x(200);
            while (reader.read(x.data(), 100) == 100) {
            }
        });
    }

    TemporaryHome home;
    std::string path = (home.path() / "file").string();
};

TEST_F(AudioReaderAnswers, ItsFramesComeInOrder)
{
    const std::array<float, 6> x = {1, 2, 3, 4, 5, 6};
    const std::string bytes(reinterpret_cast<const char*>(x.data()), sizeof x);
    answer() = good + words({samples, 2}) + bytes.substr(0, 16) + words({samples, 0, samples, 1}) + bytes.substr(16) +
               words({end, 4}) + "l\x1Bst";
    AudioReader reader(
        path, [] {}, true);
    EXPECT_EQ(reader.frames(), std::nullopt);
    std::array<float, 8> y{};
    EXPECT_EQ(reader.read(y.data(), 4), 3U);
    EXPECT_TRUE(std::equal(x.begin(), x.end(), y.begin()));
    EXPECT_EQ(reader.truncation(), path + ": l?st");
}

TEST_F(AudioReaderAnswers, NonsenseIsRefused)
{
    const std::string nonsense = "cannot read " + path + ": what reads it answers nonsense";
    const std::string none = words({end, 0});
    EXPECT_EQ(failureOf(good + none), "");
    for (const std::string& bytes : {
             std::string(),                                         // nothing
             good.substr(0, 30),                                    // half a head
             words({head, 24, 0, 48000, 0x3, 0, 0, 0}) + none,      // no channel
             words({head, 24, 1025, 48000, 0x3, 0, 0, 0}) + none,   // more than there can be
             words({head, 24, 2, 0, 0x3, 0, 0, 0}) + none,          // no rate
             words({head, 24, 2, 0x80000000, 0x3, 0, 0, 0}) + none, // none that a file can have
             words({samples, 0}),                                   // samples or an end before a head
             none,
             good + good + none,              // another head
             good + words({samples, 1, 0}),   // half a frame
             good,                            // no end
             good + words({4, 0}) + none,     // something else
             good + words({end, 5}) + "late", // half a text
         })
        EXPECT_EQ(failureOf(bytes), nonsense) << testing::PrintToString(bytes);
}

} // namespace
} // namespace quorel

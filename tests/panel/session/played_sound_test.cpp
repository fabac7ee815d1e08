// SPDX-License-Identifier: MIT
// What the panel plays, at an audio server of the test's own.
#include "platform/programs/sound.h"

#include "tests/live/session/graph_client.h"
#include "tests/live/session/private_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace quorel {
namespace {

constexpr std::size_t channels = 8;

// As long as a test of the same process may have changed it.
class Variable {
public:
    Variable(const char* name, const char* value) : name(name)
    {
        if (const char* was = std::getenv(name))
            before = was;
        setenv(name, value, 1);
    }
    ~Variable()
    {
        if (before)
            setenv(name, before->c_str(), 1);
        else
            unsetenv(name);
    }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name;
    std::optional<std::string> before;
};

std::string endOf(platform::PlayedSound& sound)
{
    std::optional<std::string> end;
    EXPECT_TRUE(within(patience, [&] { return (end = sound.ended()).has_value(); }));
    return end.value_or("still there");
}

// A tenth of a second of tone on each of eight speakers, one after the other.
platform::Sound rounds()
{
    platform::Sound sound{16000, 0x63F, {}};
    for (std::size_t c = 0; c < channels; ++c)
        for (std::size_t i = 0; i < 1600; ++i)
            for (std::size_t other = 0; other < channels; ++other)
                sound.samples.push_back(other == c ? static_cast<std::int16_t>(16000 * std::sin(0.2 * static_cast<double>(i)))
                                                   : 0);
    return sound;
}

// Frames of float samples that pw-record has written.
std::vector<std::array<float, channels>> framesOf(const std::string& bytes)
{
    std::vector<std::array<float, channels>> frames(bytes.size() / sizeof(frames[0]));
    std::memcpy(frames.data(), bytes.data(), frames.size() * sizeof(frames[0]));
    return frames;
}

// The device has the place that quorel-live's has. Whatever the machine's load leaves out of the recording, each channel sounds
// in its turn and alone; only the resampler's ringing, far below a tenth of the tone, reaches over into the next turn.
TEST(PlayedSound, ComesOutOfEachSpeakerInItsTurn)
{
    PrivateSession session;
    session.command("pw-cli create-node adapter '{ factory.name=support.null-audio-sink node.name=quorel.speaker "
                    "media.class=Audio/Sink audio.position=\"FL,FR,FC,LFE,RL,RR,SL,SR\" object.linger=true }'");
    Service recorder({"pw-record", "--target", "quorel.speaker", "-P", "{ stream.capture.sink=true }", "--channels", "8",
                      "--channel-map", "FL,FR,FC,LFE,RL,RR,SL,SR", "--format", "f32", "-"},
                     session.folder / "recorded");
    ASSERT_TRUE(within(patience, [&] { return framesOf(recorder.written()).size() > 1000; }));
    const auto heard = [&](std::size_t from) {
        std::vector<std::size_t> order;
        const auto frames = framesOf(recorder.written());
        for (std::size_t i = from; i < frames.size(); ++i)
            for (std::size_t c = 0; c < channels; ++c)
                if (std::abs(frames[i].at(c)) > 0.2F && (order.empty() || order.back() != c))
                    order.push_back(c);
        return order;
    };
    const std::vector<std::size_t> expected = {0, 1, 2, 3, 4, 5, 6, 7};
    bool whole = false;
    for (int time = 0; time < 5 && !whole; ++time) { // a busy machine may leave out a whole turn
        const std::size_t from = framesOf(recorder.written()).size();
        auto sound = platform::PlayedSound::once(rounds(), "quorel.speaker");
        EXPECT_EQ(endOf(sound), "");
        whole = within(std::chrono::seconds(5), [&] { return heard(from) == expected; });
        EXPECT_TRUE(whole || time < 4) << testing::PrintToString(heard(from));
    }
}

// By the graph's own clock, however busy the machine is. The player's two streams add less than two quanta.
TEST(PlayedSound, OfAMicrophoneComesAsLateAsWanted)
{
    PrivateSession session;
    GraphClient client({"MONO"}, {"FL"});
    client.setQuantum(1024);
    const auto sound = platform::PlayedSound::late("testmic", 0.5);
    std::string links;
    ASSERT_TRUE(within(patience, [&] {
        links = session.command("pw-link -l");
        return links.find("input.quorel-panel:input_MONO") != std::string::npos &&
               links.find("output.quorel-panel:output_FL\n  |-> speakers") != std::string::npos;
    })) << links;
    client.link({"testmic:input_MONO"}, {"speakers:monitor_FL"});
    ASSERT_TRUE(client.play(Channels(1, std::vector<float>(4800)), 48000)); // until both streams run
    Channels click(1, std::vector<float>(480));
    std::fill(click[0].begin(), click[0].end(), 0.5F);
    ASSERT_TRUE(client.play(click, 48000));
    const auto& row = client.recorded().front();
    const auto first = std::find_if(row.begin(), row.end(), [](float x) { return std::abs(x) > 0.2F; });
    ASSERT_NE(first, row.end());
    const auto late = static_cast<double>(first - row.begin()) + static_cast<double>(client.recordedAt()) -
                      static_cast<double>(client.playedAt());
    EXPECT_GE(late, 24000);
    EXPECT_LE(late, 24000 + 2 * 1024);
}

TEST(PlayedSound, GoesWithItsObject)
{
    PrivateSession session;
    const auto there = [&] { return session.command("pw-cli ls Node").find("input.quorel-panel") != std::string::npos; };
    {
        auto sound = platform::PlayedSound::late("", 3);
        ASSERT_TRUE(within(patience, there));
        EXPECT_EQ(sound.ended(), std::nullopt);
    }
    EXPECT_TRUE(within(patience, [&] { return !there(); }));
}

TEST(PlayedSound, WithoutAnAudioServerSaysWhyItEnded)
{
    const Variable nowhere("PIPEWIRE_REMOTE", "no-such-server");
    auto sound = platform::PlayedSound::once(rounds(), "");
    EXPECT_NE(endOf(sound).find("pw-play has failed: "), std::string::npos);
    auto late = platform::PlayedSound::late("", 1);
    EXPECT_NE(endOf(late).find("pw-loopback has failed: "), std::string::npos);
}

TEST(PlayedSound, WithoutThePlayerSaysWhereItComesFrom)
{
    const Variable empty("PATH", "/nonexistent");
    auto sound = platform::PlayedSound::once(rounds(), "");
    EXPECT_EQ(endOf(sound), "pw-play is not installed; it comes with PipeWire");
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
// What goes into the devices of quorel-live comes out as the offline tools make it, bit for bit, at every quantum.
#include "client/audio_file.h"
#include "tests/live/session/graph_client.h"
#include "tests/live/session/private_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <iostream>
#include <numeric>

namespace quorel {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t second = 48000;

// Noise that swells and fades, so that the compressor and the trackers have work; nothing in it is a power of two long.
Channels noise(std::size_t channels, std::size_t frames)
{
    Channels sound(channels, std::vector<float>(frames));
    std::uint32_t state = 1;
    for (std::size_t i = 0; i < frames; ++i)
        for (auto& row : sound) {
            state = state * 1664525U + 1013904223U;
            const float swell = 0.3F + 0.25F * std::sin(static_cast<float>(i) * 0.0007F);
            row[i] = swell * static_cast<float>(static_cast<std::int32_t>(state)) * 0x1p-31F;
        }
    return sound;
}

class LiveSound : public testing::Test {
protected:
    // The sound behind so many silent frames, and so many behind it, through one of the tools.
    Channels offline(const std::string& tool, const Channels& sound, std::size_t ahead, std::size_t behind)
    {
        const std::size_t channels = sound.size();
        const std::size_t frames = sound.front().size();
        std::vector<float> samples((ahead + frames + behind) * channels);
        for (std::size_t i = 0; i < frames; ++i)
            for (std::size_t c = 0; c < channels; ++c)
                samples[(ahead + i) * channels + c] = sound[c][i];
        const std::string in = (session.folder / "in.wav").string();
        const std::string out = (session.folder / "out.wav").string();
        AudioWriter writer(in,
                           {static_cast<int>(channels), 48000, channels == 8 ? 0x63FU : usualMask(static_cast<int>(channels)),
                            SampleFormat::float32},
                           samples.size() / channels);
        writer.write(samples.data(), samples.size() / channels);
        writer.commit();
        const std::string errors =
            session.command(tool.substr(0, tool.find(' ')) + " " + in + " " + out + tool.substr(tool.find(' ')));
        EXPECT_EQ(session.code, 0) << errors;
        AudioReader reader(out, [] {});
        Channels result(static_cast<std::size_t>(reader.channels()), std::vector<float>(ahead + frames + behind));
        std::vector<float> made((ahead + frames + behind) * result.size());
        reader.read(made.data(), ahead + frames + behind);
        for (std::size_t i = 0; i < ahead + frames + behind; ++i)
            for (std::size_t c = 0; c < result.size(); ++c)
                result[c][i] = made[i * result.size() + c];
        return result;
    }

    void control(const std::string& words)
    {
        const std::string said = session.command(std::string(QUOREL_CONTROL) + " " + words);
        ASSERT_EQ(session.code, 0) << said;
    }

    // Until the render side has gone over to the quantum and been silent for longer than any fade.
    void goTo(GraphClient& client, std::uint32_t quantum, std::uint32_t block)
    {
        client.setQuantum(quantum);
        nlohmann::json told;
        ASSERT_TRUE(within(patience, [&] {
            told = session.status()["speaker"];
            return told["quantum"] == quantum && told["block"] == block && told["frames"] > 4096;
        })) << told;
        EXPECT_EQ(told["added_frames"], 0);
    }

    PrivateSession session;
};

const std::vector<std::string> sevenNames{"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR"};

std::vector<std::string> portsOf(const std::string& node, const std::vector<std::string>& names)
{
    std::vector<std::string> ports;
    for (const std::string& name : names)
        ports.push_back(node + name);
    return ports;
}

// The first frame that is not silent.
std::size_t onset(const Channels& sound)
{
    std::size_t first = sound.front().size();
    for (const auto& row : sound)
        first = std::min<std::size_t>(
            first,
            static_cast<std::size_t>(std::find_if(row.begin(), row.end(), [](float x) { return x != 0.0F; }) - row.begin()));
    return first;
}

TEST_F(LiveSound, IsTheRenderToolsAtEveryQuantum)
{
    const auto live = session.live({"--speaker"});
    control("set Settings=1 Reverb=120 EQBand5=-40 EQBand9=60");
    const Channels sound = noise(8, second);
    GraphClient client(sevenNames, {"FL", "FR"});
    client.link(portsOf("quorel.speaker:playback_", sevenNames), {"speakers:monitor_FL", "speakers:monitor_FR"});

    // Blocks by the rule: the largest divisor from 16 to 848 that is neither 48 nor 64.
    const std::pair<std::uint32_t, std::uint32_t> cases[] = {{32, 32},   {48, 24},   {64, 32},    {128, 128}, {256, 256},
                                                             {480, 480}, {512, 512}, {1024, 512}, {2048, 512}};
    for (const auto& [quantum, block] : cases) {
        goTo(client, 441, 441); // divides none of them: each gets a new path, its room empty
        goTo(client, quantum, block);

        const std::size_t frames = second + 3 * 2048;
        ASSERT_TRUE(client.play(sound, frames)) << "quantum " << quantum;
        const Channels& heard = client.recorded();
        const Channels expected =
            offline(std::string(QUOREL_RENDER) + " --Reverb 120 --EQBand5 -40 --EQBand9 60 --tail 0 --block-size " +
                        std::to_string(block),
                    sound, block, 4 * 2048);
        const std::size_t late = onset(heard) - (onset(expected) - block);
        for (std::size_t ear = 0; ear < 2; ++ear)
            for (std::size_t i = late; i < frames; ++i)
                ASSERT_EQ(heard[ear][i], expected[ear][block + i - late])
                    << "quantum " << quantum << ", ear " << ear << ", frame " << i;
        const auto delay = static_cast<std::int64_t>(late + client.recordedAt() - client.playedAt());
        std::cout << "quantum " << quantum << ": " << frames - late << " frames equal, " << delay << " frames late\n";
        EXPECT_LE(delay, 2 * quantum);
    }
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0) << live->written();
}

// The microphone side as it begins, with frames going through it.
class LiveMicrophone : public LiveSound {
protected:
    void begin(GraphClient& client, std::uint32_t quantum)
    {
        control("set MicNR=1 micEq=1 noiseGate=60");
        client.setQuantum(quantum);
        client.link({"testmic:input_MONO"}, {"quorel.microphone:capture_MONO"});
        ASSERT_TRUE(within(patience, [&] { return session.status()["microphone"]["frames"] > 4096; })) << quantum;
    }

    // What is played now comes out as the cleaning tool makes it.
    void expectCleaned(GraphClient& client, std::uint32_t quantum)
    {
        const Channels sound = noise(1, 2 * second);
        const std::size_t frames = 2 * second + 2048;
        const auto before = session.status()["microphone"]["gaps"];
        ASSERT_TRUE(client.play(sound, frames)) << quantum;
        const auto told = session.status()["microphone"];
        EXPECT_EQ(told["gaps"], before) << told;
        const auto first = told["first_tick"].get<std::uint64_t>();
        const auto late = told["added_frames"].get<std::uint64_t>();
        EXPECT_EQ(late, 240 - std::gcd(quantum, 240U)) << quantum;

        // The effect has heard every frame since the first one, the silent ones included.
        const Channels expected =
            offline(std::string(QUOREL_CLEAN) + " --MicNR 1 --micEq 1 --noiseGate 60 --block-size 240 --no-settle", sound,
                    client.playedAt() - first, 2 * 2048);
        const std::size_t from = client.recordedAt() - first - late;
        for (std::size_t i = 0; i < frames; ++i)
            ASSERT_EQ(client.recorded()[0][i], expected[0][from + i]) << "quantum " << quantum << ", frame " << i;
        std::cout << "quantum " << quantum << ": " << frames << " frames equal, " << late << " frames late as told\n";
    }
};

TEST_F(LiveMicrophone, IsTheCleaningToolsAtEveryQuantum)
{
    for (const std::uint32_t quantum : {32U, 48U, 64U, 128U, 256U, 480U, 512U, 1024U, 2048U}) {
        const auto live = session.live({"--microphone"});
        GraphClient client({"MONO"}, {"MONO"});
        ASSERT_NO_FATAL_FAILURE(begin(client, quantum));
        ASSERT_NO_FATAL_FAILURE(expectCleaned(client, quantum));
        live->signal(SIGTERM);
        EXPECT_EQ(live->ended(patience), 0) << live->written();
    }
}

// The clock has gone on meanwhile by what is no whole number of the effect's blocks.
TEST_F(LiveMicrophone, IsTheCleaningToolsBehindLostCyclesToo)
{
    constexpr std::uint32_t quantum = 128;
    const auto live = session.live({"--microphone"});
    GraphClient client({"MONO"}, {"MONO"});
    ASSERT_NO_FATAL_FAILURE(begin(client, quantum));
    std::uint64_t jumped = 0; // frames; it may be that none is lost, or whole blocks
    for (int attempt = 0; attempt < 20 && jumped % 240 == 0; ++attempt) {
        live->signal(SIGSTOP);
        const std::uint64_t before = client.lostCycles();
        EXPECT_TRUE(within(patience, [&] { return client.lostCycles() > before; }));
        live->signal(SIGCONT);
        jumped = session.status()["microphone"]["gap_frames"];
    }
    ASSERT_NE(jumped % 240, 0U);
    expectCleaned(client, quantum);
}

} // namespace
} // namespace quorel

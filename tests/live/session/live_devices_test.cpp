// SPDX-License-Identifier: MIT
// Which hardware quorel-live is linked to, and what it tells of it: the latency, the clock, its figures once a second.
#include "tests/live/session/live_behaviour.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <future>
#include <iostream>
#include <thread>

namespace quorel {
namespace {

using namespace std::chrono_literals;

class LiveDevices : public LiveBehaviour {
protected:
    // Devices beside the session's own, which the session manager chooses only where it is told to.
    LiveDevices()
    {
        add("headset", "Audio/Sink", "FL,FR");
        add("boom", "Audio/Source/Virtual", "MONO");
    }

    void add(const std::string& name, const std::string& kind, const std::string& places)
    {
        session.command("pw-cli create-node adapter '{ factory.name=support.null-audio-sink node.name=" + name +
                        " node.description=" + name + " media.class=" + kind + " audio.position=\"" + places +
                        "\" object.linger=true priority.session=1 }'");
        EXPECT_EQ(session.code, 0);
    }

    // Makes it the default device, and waits until the session manager has taken it.
    void choose(const std::string& kind, const std::string& node)
    {
        session.command("pw-metadata 0 default.configured.audio." + kind + " '{\"name\":\"" + node + "\"}' Spa:String:JSON");
        ASSERT_TRUE(within(patience, [&] {
            return session.command("pw-metadata 0 default.audio." + kind).find('"' + node + '"') != std::string::npos;
        }));
    }

    // Whether this side is linked to the device, and to no other.
    bool linkedTo(const std::string& side, const std::string& device)
    {
        return within(patience, [&] { return session.status()[side]["devices"] == nlohmann::json({device}); });
    }

    // Frames that the server tells of the latency at a port: "Input" of what plays there, "Output" of what is heard there.
    int latencyAt(const std::string& port, const std::string& direction)
    {
        for (const auto& object : nlohmann::json::parse(session.command("pw-dump")))
            if (object["type"] == "PipeWire:Interface:Port" && object["info"]["props"].value("port.alias", "") == port)
                for (const auto& latency : object["info"]["params"]["Latency"])
                    if (latency["direction"] == direction)
                        return latency["minRate"];
        return -1;
    }

    // With the clock's quantum, waits until the side has this delay.
    testing::AssertionResult isLate(const std::string& side, std::uint32_t quantum, std::uint32_t frames)
    {
        nlohmann::json now;
        const bool reached = within(patience, [&] {
            now = session.status()[side];
            return now["quantum"] == quantum && now["added_frames"] == frames;
        });
        return (reached ? testing::AssertionSuccess() : testing::AssertionFailure()) << now;
    }

    // Whether any link goes from the one node to the other.
    bool links(const std::string& from, const std::string& to)
    {
        const nlohmann::json all = nlohmann::json::parse(session.command("pw-dump"));
        std::map<int, std::string> names;
        for (const auto& object : all)
            if (object["type"] == "PipeWire:Interface:Node")
                names[object["id"]] = object["info"]["props"].value("node.name", "");
        return std::any_of(all.begin(), all.end(), [&](const nlohmann::json& object) {
            return object["type"] == "PipeWire:Interface:Link" && names[object["info"]["output-node-id"]] == from &&
                   names[object["info"]["input-node-id"]] == to;
        });
    }
};

TEST_F(LiveDevices, AreThoseThatItsOptionsName)
{
    const auto live = session.live({"--output", "headset", "--input", "boom"});
    EXPECT_TRUE(linkedTo("speaker", "headset"));
    EXPECT_TRUE(linkedTo("microphone", "boom"));
    choose("sink", "headset");
    choose("sink", "speakers");
    choose("source", "boom");
    choose("source", "testmic");
    std::this_thread::sleep_for(500ms); // the session manager moves other streams by now
    EXPECT_TRUE(linkedTo("speaker", "headset"));
    EXPECT_TRUE(linkedTo("microphone", "boom"));
}

TEST_F(LiveDevices, AreTheDefaultOnesAndNeverItsOwn)
{
    const auto live = session.live();
    EXPECT_TRUE(linkedTo("speaker", "Test speakers"));
    EXPECT_TRUE(linkedTo("microphone", "Test microphone"));
    choose("sink", "headset");
    choose("source", "boom");
    EXPECT_TRUE(linkedTo("speaker", "headset"));
    EXPECT_TRUE(linkedTo("microphone", "boom"));
    choose("sink", "quorel.speaker");
    choose("source", "quorel.microphone");
    std::this_thread::sleep_for(500ms);
    EXPECT_TRUE(within(patience, [&] {
        const nlohmann::json status = session.status();
        return !status["speaker"]["devices"].empty() && !status["microphone"]["devices"].empty();
    }));
    EXPECT_FALSE(links("quorel.speaker.output", "quorel.speaker"));
    EXPECT_FALSE(links("quorel.microphone", "quorel.microphone.input"));
    choose("sink", "speakers");
    EXPECT_TRUE(linkedTo("speaker", "Test speakers"));
}

// 240 - gcd(1024, 240) = 224 and 240 - gcd(480, 240) = 0; what has been added stays.
TEST_F(LiveDevices, TellTheMicrophonesLatencyAsItGrows)
{
    const auto live = session.live({"--microphone"});
    GraphClient client({"MONO"}, {"MONO"});
    client.setQuantum(480);
    client.link({"testmic:input_MONO"}, {"quorel.microphone:capture_MONO"});
    const std::string port = "QUOREL microphone:capture_MONO";
    ASSERT_TRUE(isLate("microphone", 480, 0));
    EXPECT_EQ(latencyAt(port, "Output"), 0);
    const double before = session.status()["microphone"]["total_ms"];

    client.setQuantum(1024);
    ASSERT_TRUE(isLate("microphone", 1024, 224));
    EXPECT_TRUE(within(patience, [&] { return latencyAt(port, "Output") == 224; })) << latencyAt(port, "Output");
    // The server's own part is told in quanta beside it.
    EXPECT_GE(session.status()["microphone"]["total_ms"], before + 224 / 48.0);

    client.setQuantum(480);
    ASSERT_TRUE(isLate("microphone", 480, 224));
    EXPECT_EQ(latencyAt(port, "Output"), 224);
}

// 857 is a prime number above the largest slice: gathered, 256 - 1 frames late.
TEST_F(LiveDevices, TellThePlayersLatencyAsItChanges)
{
    const auto live = session.live({"--speaker"});
    GraphClient client({"FL"}, {"FL"});
    client.link({"quorel.speaker:playback_FL"}, {"speakers:monitor_FL"});
    const std::string port = "QUOREL headphones:playback_FL";
    for (const auto& [quantum, late] : {std::pair{857U, 255U}, std::pair{480U, 0U}}) {
        client.setQuantum(quantum);
        ASSERT_TRUE(isLate("speaker", quantum, late));
        EXPECT_TRUE(within(patience, [&] { return latencyAt(port, "Input") == static_cast<int>(late); }))
            << latencyAt(port, "Input");
    }
}

TEST_F(LiveDevices, TellTheDriftOfTheirClock)
{
    const auto live = session.live();
    GraphClient client({"FL", "MONO"}, {"FL", "MONO"});
    client.link({"quorel.speaker:playback_FL", "testmic:input_MONO"}, {"speakers:monitor_FL", "quorel.microphone:capture_MONO"});
    for (const double ppm : {250.0, -40.0, 0.0}) {
        client.setDrift(1 + ppm * 1e-6);
        for (const char* side : {"speaker", "microphone"})
            EXPECT_TRUE(within(patience, [&] {
                return std::abs(session.status()[side].value("drift_ppm", 1e6) - ppm) < 1e-6; // of 1, rounded to 2^-53
            })) << side;
    }
}

// The server resamples, so that calls differ in length: 256 - 1 and 240 - 1 frames late. The down-mix's gain is 0.8.
TEST_F(LiveDevices, WorkInAGraphAtAnotherRate)
{
    const auto live = session.live();
    session.command("pw-metadata -n settings 0 clock.force-rate 44100");
    GraphClient client({"FL", "MONO"}, {"FL", "MONO"}, GraphClient::Clock::ofTheDevice);
    client.link({"quorel.speaker:playback_FL", "testmic:input_MONO"}, {"speakers:monitor_FL", "quorel.microphone:capture_MONO"});
    EXPECT_TRUE(hears(client, Channels(2, std::vector<float>(9600, 0.25F)), {0.2F, 0.25F}));
    const nlohmann::json status = session.status();
    for (const auto& [side, block] : {std::pair{"speaker", 256}, std::pair{"microphone", 240}}) {
        EXPECT_EQ(status[side]["rate"], 44100) << status;
        EXPECT_EQ(status[side]["block"], block) << status;
        EXPECT_EQ(status[side]["added_frames"], block - 1) << status;
        EXPECT_EQ(status[side]["refused_blocks"], 0) << status;
    }
}

// Every input frame leaves once, in order, behind silence where the delay grows. The effect copies: its settings are all zero.
TEST_F(LiveDevices, GiveEveryFrameOfTheMicrophoneOnce)
{
    const auto live = session.live({"--microphone"});
    GraphClient client({"MONO"}, {"MONO"});
    client.setQuantum(480);
    client.link({"testmic:input_MONO"}, {"quorel.microphone:capture_MONO"});
    ASSERT_TRUE(isLate("microphone", 480, 0));

    constexpr std::size_t frames = 1U << 22U;
    Channels ramp(1, std::vector<float>(frames));
    for (std::size_t i = 0; i < frames; ++i)
        ramp[0][i] = static_cast<float>(i + 1) * 0x1p-22F;
    auto played = std::async(std::launch::async, [&] { return client.play(ramp, frames + 4096); });
    ASSERT_TRUE(within(patience, [&] { return client.playedAt() != 0; }));
    for (const std::uint32_t quantum : {1024U, 128U, 480U}) {
        client.setQuantum(quantum);
        std::this_thread::sleep_for(20ms); // many cycles, and a small part of the sound
    }
    ASSERT_TRUE(played.get());
    const auto& heard = client.recorded()[0];
    std::size_t next = 0;
    std::size_t silent = 0; // frames within the sound
    for (auto i = static_cast<std::size_t>(std::find(heard.begin(), heard.end(), 0x1p-22F) - heard.begin());
         i < heard.size() && next < frames; ++i)
        if (heard[i] == 0.0F)
            ++silent;
        else
            ASSERT_EQ(heard[i], ramp[0][next++]) << i;
    EXPECT_EQ(next, frames);
    EXPECT_EQ(silent, 224U);
    EXPECT_EQ(session.status()["microphone"]["added_frames"], 224);
}

TEST_F(LiveDevices, TellTheirFiguresOnceASecondWhereAsked)
{
    const auto live = session.live({"--speaker", "--verbose"});
    const auto lines = [&] { return linesOf(live->written(), "quorel-live: speaker: quantum "); };
    const auto begin = std::chrono::steady_clock::now();
    const int first = lines();
    EXPECT_TRUE(within(patience, [&] { return lines() >= first + 4; })) << live->written();
    // The first of the four may have been due at once, and up to a second late.
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 2s);
    EXPECT_THAT(live->written(), testing::ContainsRegex("gaps [0-9]+, refused 0\n"));
    EXPECT_EQ(linesOf(live->written(), "microphone"), 0);
}

} // namespace
} // namespace quorel

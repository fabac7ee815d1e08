// SPDX-License-Identifier: MIT
// What quorel-live survives, and that it loses no sound by settings and costs nothing when nothing plays.
#include "tests/live/session/live_behaviour.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <thread>

namespace quorel {
namespace {

using namespace std::chrono_literals;

using LiveSurvival = LiveBehaviour;

// What is in a process' folder of the system's, such as its files or its threads.
std::size_t entriesOf(const char* kind, pid_t process)
{
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(process) + '/' + kind);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

TEST_F(LiveSurvival, SurvivesTheAudioServer)
{
    const auto live = session.live();
    std::size_t files = 0; // open behind the first round
    std::size_t threads = 0;
    for (int round = 1; round <= 5; ++round) {
        session.killServer();
        session.startServer();
        session.startManager();
        const auto begin = std::chrono::steady_clock::now();
        ASSERT_TRUE(within(patience, [&] { return session.status().value("reconnects", 0) == round; })) << session.status();
        EXPECT_TRUE(sounds()) << "round " << round;
        std::cout << "sound is back within " << std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count()
                  << " s of the server, its session manager and a playing client\n";
        ASSERT_TRUE(within(patience, [&] { return session.status()["speaker"].value("running", true) == false; }));
        if (round == 1) {
            files = entriesOf("fd", live->id());
            threads = entriesOf("task", live->id());
        }
    }
    EXPECT_TRUE(within(patience, [&] { return entriesOf("fd", live->id()) <= files; })) << files;
    EXPECT_EQ(entriesOf("task", live->id()), threads);
    EXPECT_EQ(linesOf(live->written(), "the audio server is gone; waiting for it\n"), 5);
    EXPECT_EQ(linesOf(live->written(), "the audio server is back\n"), 5);
    EXPECT_FALSE(live->ended(0ms));
}

TEST_F(LiveSurvival, SurvivesTheSessionManager)
{
    const auto live = session.live();
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(sounds()) << "round " << round;
        session.killManager();
        session.replugSpeakers();
        session.startManager();
    }
    EXPECT_TRUE(sounds());
    EXPECT_EQ(session.status()["reconnects"], 0);
}

TEST_F(LiveSurvival, SurvivesItsOutputBeingUnplugged)
{
    const auto live = session.live();
    session.command("pw-cli destroy speakers");
    EXPECT_TRUE(within(patience, [this] { return !linked(); }));
    session.replugSpeakers();
    EXPECT_TRUE(within(patience, [this] { return linked(); }));
    EXPECT_TRUE(sounds());
}

TEST_F(LiveSurvival, GoesOnAfterASuspend)
{
    const auto live = session.live();
    live->signal(SIGSTOP);
    std::this_thread::sleep_for(500ms);
    live->signal(SIGCONT);
    EXPECT_TRUE(sounds());
    EXPECT_FALSE(live->ended(0ms));
}

TEST_F(LiveSurvival, LosesNoFrameOverAThousandChangesOfSettings)
{
    const auto live = session.live({"--speaker"});
    control("set Settings=1 Reverb=120");
    GraphClient client({"FL", "FR"}, {"FL", "FR"});
    client.link({"quorel.speaker:playback_FL", "quorel.speaker:playback_FR"}, {"speakers:monitor_FL", "speakers:monitor_FR"});
    const Channels tone(2, std::vector<float>(48000, 0.1F));
    ASSERT_TRUE(client.play(tone, 48000));
    const auto before = session.status()["speaker"];
    auto changes = std::async(std::launch::async, [] {
        return std::system("for i in $(seq 1000); do timeout 60 " QUOREL_CONTROL
                           " set EQBand5=$((i % 100)) >/dev/null || exit 1; done");
    });
    const auto begin = client.recordedAt();
    for (int rounds = 0; rounds < 6 || changes.wait_for(0s) != std::future_status::ready; ++rounds)
        ASSERT_TRUE(client.play(tone, 48000));
    EXPECT_EQ(changes.get(), 0);
    const auto after = session.status()["speaker"];
    EXPECT_EQ(after["gaps"], before["gaps"]);
    EXPECT_EQ(after["refused_blocks"], 0);
    EXPECT_EQ(after["lost_frames"], before["lost_frames"]);
    EXPECT_EQ(after["first_tick"], before["first_tick"]);
    EXPECT_GT(client.recordedAt() - begin, 48000U * 5);
}

// Seconds of processor time that a process has taken.
double processorTime(pid_t process)
{
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw std::runtime_error("no clock of that process");
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

TEST_F(LiveSurvival, HoldsTheGraphForTheWholeTailAndCostsNothingThen)
{
    const auto live = session.live({"--speaker"});
    control("set Settings=1 Reverb=255");
    constexpr std::size_t channels = 8;
    constexpr std::size_t length = 28800; // the player drops what comes in its last quantum
    std::vector<float> click(length * channels);
    std::fill_n(click.begin() + 20000 * channels, channels, 0.9F);
    const std::string in = (session.folder / "click.wav").string();
    AudioWriter writer(in, {channels, 48000, 0x63F, SampleFormat::float32}, length);
    writer.write(click.data(), length);
    writer.commit();
    const std::string out = (session.folder / "tail.wav").string();
    session.command(std::string(QUOREL_RENDER) + " --Reverb 255 --tail 10 " + in + " " + out);
    AudioReader reader(out, [] {});
    std::vector<float> whole(11 * 48000 * 2);
    const std::uint64_t frames = reader.read(whole.data(), 11 * 48000);
    std::uint64_t tail = 0; // frames until all is below -100 dB
    for (std::uint64_t i = 0; i < 2 * frames; ++i)
        if (std::abs(whole[i]) >= 1e-5F)
            tail = i / 2 + 1;
    ASSERT_GT(tail, length + 4800); // most of it comes when the player has gone

    session.command("pw-cat -p --target quorel.speaker " + in); // this clock runs in real time
    EXPECT_EQ(session.code, 0);
    EXPECT_TRUE(within(patience, [&] { return session.status()["speaker"]["running"] == false; }));
    const auto told = session.status()["speaker"];
    EXPECT_GE(told["frames"], tail) << told;
    std::cout << "the tail lasts " << tail << " frames, the graph ran for " << told["frames"] << '\n';

    std::this_thread::sleep_for(500ms); // the last answer and the graph's end are behind it
    constexpr auto silence = 10s;
    const double before = processorTime(live->id());
    std::this_thread::sleep_for(silence);
    const double spent = processorTime(live->id()) - before;
    std::cout << "idle, it takes " << 100 * spent / silence.count() << " % of a processor\n";
    EXPECT_LT(spent, 0.001 * silence.count());
    EXPECT_EQ(session.status()["speaker"]["frames"], told["frames"]);
}

} // namespace
} // namespace quorel

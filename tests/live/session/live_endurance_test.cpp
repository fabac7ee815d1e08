// SPDX-License-Identifier: MIT
// quorel-live in real time at a small quantum, for a minute, or for as many seconds as QUOREL_LIVE_SECONDS says. It can only
// keep up where the system keeps up itself: with real-time scheduling, on a machine that does not stand still meanwhile.
#include "tests/live/session/endurance_verdict.h"
#include "tests/live/session/graph_client.h"
#include "tests/live/session/private_session.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <pthread.h>
#include <thread>

namespace quorel {
namespace {

using namespace std::chrono_literals;

// How long the machine stood still at worst: an idle thread, ahead of all others where that is granted, that wakes every
// millisecond.
class StallProbe {
public:
    StallProbe()
        : thread([this](const std::stop_token& stop) {
              sched_param highest{};
              highest.sched_priority = sched_get_priority_max(SCHED_FIFO);
              pthread_setschedparam(pthread_self(), SCHED_FIFO, &highest);
              while (!stop.stop_requested()) {
                  const auto begin = std::chrono::steady_clock::now();
                  std::this_thread::sleep_for(1ms);
                  longest = std::max(longest.load(), std::chrono::steady_clock::now() - begin - 1ms);
              }
          })
    {
    }

    // Since this was asked before, or since the start; in ms.
    double longestMs() { return std::chrono::duration<double, std::milli>(longest.exchange({})).count(); }

private:
    std::atomic<std::chrono::steady_clock::duration> longest{};
    std::jthread thread;
};

TEST(LiveEndurance, LosesNoFrameAtQuantum128)
{
    const int seconds = static_cast<int>(wished("QUOREL_LIVE_SECONDS", 60));
    constexpr int part = 10; // seconds

    PrivateSession session;
    const auto live = session.live({"--speaker"});
    session.command(QUOREL_CONTROL " set Settings=1 Reverb=120");
    ASSERT_EQ(session.code, 0);
    session.command("pw-metadata -n settings 0 clock.force-quantum 128");
    const std::vector<std::string> names{"FL", "FR", "FC", "LFE", "RL", "RR", "SL", "SR"};
    std::vector<std::string> ports;
    for (const std::string& name : names)
        ports.push_back("quorel.speaker:playback_" + name);
    GraphClient client(names, {"FL"}, GraphClient::Clock::ofTheDevice);
    client.link(ports, {"speakers:monitor_FL"});
    ASSERT_TRUE(within(patience, [&] {
        const auto told = session.status()["speaker"];
        return told["quantum"] == 128 && told["block"] == 128 && told["frames"] > 4096;
    }));

    Channels sound(8, std::vector<float>(part * 48000));
    for (std::size_t c = 0; c < sound.size(); ++c)
        for (std::size_t i = 0; i < sound[c].size(); ++i)
            sound[c][i] = 0.1F * std::sin(static_cast<float>(i % 4800) * static_cast<float>(c + 1) * 0.01F);

    const auto before = session.status()["speaker"];
    StallProbe probe;
    Stalls stalls;
    std::this_thread::sleep_for(1s);
    stalls.before = probe.longestMs();
    for (int done = 0; done < seconds; done += part)
        ASSERT_TRUE(client.play(sound, sound[0].size()));
    stalls.meanwhile = probe.longestMs();
    std::this_thread::sleep_for(1s);
    stalls.after = probe.longestMs();
    const auto told = session.status();
    const auto& speaker = told["speaker"];
    const std::string scheduling = told["scheduling"];
    const auto gaps = speaker["gaps"].get<long>() - before["gaps"].get<long>();
    std::cout << seconds << " s at quantum 128, 7.1 with room: load " << speaker["load_mean"] << " % of the period, worst "
              << speaker["load_worst"] << " %, " << gaps << " gaps; scheduling " << scheduling << ", the machine stood still for "
              << stalls.before << " ms at most before, " << stalls.meanwhile << " ms meanwhile, " << stalls.after
              << " ms after\n";
    EXPECT_EQ(speaker["refused_blocks"], 0);
    EXPECT_EQ(speaker["lost_frames"], before["lost_frames"]);
    EXPECT_NE(verdictOn(gaps, scheduling, stalls), Verdict::failed);
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0);
}

} // namespace
} // namespace quorel

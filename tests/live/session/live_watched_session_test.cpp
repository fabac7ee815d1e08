// SPDX-License-Identifier: MIT
// All that happens to a running quorel-live, in the build that a sanitizer watches: it ends well, and nothing was found.
#include "tests/live/session/graph_client.h"
#include "tests/live/session/private_session.h"
#include "tests/support/control_application.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string>

// quorel-live is watched, not this program: its clock is the server's memory as well.
extern "C" const char* __tsan_default_options()
{
    return "report_bugs=0";
}

namespace quorel {
namespace {

TEST(LiveWatchedSession, EndsWellWhateverHappened)
{
    // What the audio server's libraries do among themselves: they are built without the sanitizer, which does not see how their
    // threads wait for each other.
    const char* given = std::getenv("TSAN_OPTIONS");
    const std::string options = std::string(given == nullptr ? "" : given) + " ignore_noninstrumented_modules=1";
    setenv("TSAN_OPTIONS", options.c_str(), 1);
    PrivateSession session;
    const auto live = session.live();
    {
        GraphClient client({"FL", "MONO"}, {"FL", "MONO"});
        client.link({"quorel.speaker:playback_FL", "testmic:input_MONO"},
                    {"speakers:monitor_FL", "quorel.microphone:capture_MONO"});
        Channels sound(2, std::vector<float>(9600));
        for (auto& row : sound)
            for (std::size_t i = 0; i < row.size(); ++i)
                row[i] = i % 64 < 32 ? 0.25F : -0.25F;
        sound[0][100] = 1e30F; // no sample, and taken for silence

        ControlApplication control;
        SettingsRecord all;
        all.Settings = 1;
        all.Reverb = 120;
        all.MicNR = 1;
        all.micEq = 1;
        all.noiseGate = 60;
        all.levelsEnabled = 1;
        for (const std::uint32_t quantum : {1024U, 480U, 441U, 857U, 32U}) {
            client.setQuantum(quantum);
            all.EQBand[4] = static_cast<std::int32_t>(quantum % 60);
            control.update(all);
            EXPECT_TRUE(within(patience, [&] { return session.status()["speaker"]["quantum"] == quantum; }));
            session.command(QUOREL_LIVE " --bypass on");
            EXPECT_TRUE(client.play(sound, 9600)) << quantum;
            session.command(QUOREL_LIVE " --bypass off");
            EXPECT_TRUE(client.play(sound, 9600)) << quantum;
        }
        for (const auto& row : client.recorded())
            EXPECT_TRUE(std::any_of(row.begin(), row.end(), [](float x) { return x != 0.0F; }));
        const auto told = session.status()["speaker"];
        EXPECT_GT(told["path_changes"], 0) << told;
        EXPECT_GT(told["bad_samples"], 0) << told;
    }
    session.killServer();
    session.startServer();
    session.startManager();
    EXPECT_TRUE(within(patience, [&] { return session.status()["reconnects"] == 1; }));
    live->signal(SIGTERM);
    EXPECT_EQ(live->ended(patience), 0); // a finding ends it with another code, and with what was found
    EXPECT_EQ(live->written(), "quorel-live: the audio server is gone; waiting for it\n"
                               "quorel-live: the audio server is back\n");
}

} // namespace
} // namespace quorel

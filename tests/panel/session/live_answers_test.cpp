// SPDX-License-Identifier: MIT
// LiveWatch against a host that answers, one that refuses and one that is stopped.
#include "panel/live_watch.h"

#include "tests/panel/followed_panel.h"
#include "tests/support/control_application.h"
#include "tests/support/fake_host.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <atomic>

namespace quorel {
namespace {

TEST(LiveAnswers, TellWhatTheHostDoes)
{
    const FakeHost host([](const std::string&) { return hostStatus(false); });
    const LiveWatch watch([] {});
    ASSERT_TRUE(eventually([&] { return watch.view().state == LiveView::State::there; }));
    EXPECT_FALSE(watch.view().bypass);
    EXPECT_NE(watch.view().text.find("scheduling FIFO"), std::string::npos);
}

TEST(LiveAnswers, TellTheSpeakersOfTheHeadphoneDevice)
{
    const FakeHost host([](const std::string&) { return hostStatus(false, R"(, "speaker": )" + hostSide("", true, 6)); });
    const LiveWatch watch([] {});
    EXPECT_TRUE(eventually([&] { return watch.view().speakers == 0x3FU; })) << watch.view().text; // 5.1
}

TEST(LiveAnswers, TellEachSideApart)
{
    const FakeHost host([](const std::string&) {
        return hostStatus(false, R"(, "microphone": )" +
                                     hostSide("headset", true, 1, R"(, "frames": 4800, "in_energy": 2.5, "out_energy": 0.5)"));
    });
    const LiveWatch watch([] {});
    ASSERT_TRUE(eventually([&] { return watch.view().microphone.has_value(); })) << watch.view().text;
    EXPECT_FALSE(watch.view().headphones);
    const LiveSide side = *watch.view().microphone;
    EXPECT_EQ(side.device, "headset");
    EXPECT_TRUE(side.running);
    EXPECT_EQ(side.quantum, 256U);
    EXPECT_EQ(side.gaps, 3U);
    EXPECT_EQ(side.load, 1.5);
    EXPECT_EQ(side.lateMs, 10.5);
    EXPECT_EQ(side.frames, 4800U);
    EXPECT_EQ(side.inEnergy, 2.5);
    EXPECT_EQ(side.outEnergy, 0.5);
}

// However many came since: a window that reads twice shows no two of them.
TEST(LiveAnswers, AreSeenOnceTheyAreTaken)
{
    std::atomic<int> answers = 0;
    const FakeHost host([&](const std::string&) { return hostStatus(++answers > 1); });
    FollowedPanel panel;
    ASSERT_TRUE(eventually([&] { return answers > 1; }));
    EXPECT_EQ(panel.session.live().state, LiveView::State::unknown);
    EXPECT_FALSE(panel.session.bypassed());
    EXPECT_TRUE(eventually([&] {
        panel.follow();
        return panel.session.bypassed();
    }));
    EXPECT_EQ(panel.session.live().state, LiveView::State::there);
}

TEST(LiveAnswers, FollowABypassAlsoWhileNobodyWatches)
{
    std::atomic<bool> bypass = false;
    const FakeHost host([&](const std::string& command) {
        if (command.starts_with("bypass"))
            bypass = command == "bypass on";
        return hostStatus(bypass);
    });
    LiveWatch watch([] {});
    watch.watch(false);
    watch.bypass(true);
    EXPECT_TRUE(eventually([&] { return bypass && watch.view().bypass; }));
    watch.bypass(false);
    EXPECT_TRUE(eventually([&] { return !bypass && !watch.view().bypass; }));
}

// When the answer to the command is there the watch waits for the next one alone.
TEST(LiveAnswers, AreNotAskedForWhileNobodyWatches)
{
    std::atomic<int> questions = 0;
    std::atomic<bool> bypass = false;
    const FakeHost host([&](const std::string& command) {
        ++questions;
        bypass = bypass || command == "bypass on";
        return hostStatus(bypass);
    });
    LiveWatch watch([] {});
    watch.watch(false);
    watch.bypass(true);
    ASSERT_TRUE(eventually([&] { return watch.view().bypass; }));
    const int before = questions;
    std::this_thread::sleep_for(std::chrono::milliseconds(1100)); // two questions' time
    EXPECT_EQ(questions, before);
    watch.watch(true);
    EXPECT_TRUE(eventually([&] { return questions > before; }));
}

TEST(LiveAnswers, AreNoneFromAHostThatSpeaksNonsense)
{
    const FakeHost host([](const std::string&) { return R"({"bypass": "often"})"; });
    const LiveWatch watch([] {});
    EXPECT_TRUE(eventually([&] { return watch.view().state == LiveView::State::mute && !watch.view().text.empty(); }));
}

// Only the watch's own thread waits.
TEST(LiveAnswers, AStoppedHostKeepsNobodyFromGoingOn)
{
    const FakeHost host(nullptr);
    LiveWatch watch([] {});
    ASSERT_TRUE(eventually([&] { return host.called(); })); // the watch waits for its answer
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i) {
        watch.bypass(i % 2 == 0);
        EXPECT_NE(watch.view().state, LiveView::State::there);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1)); // a question waits for two
    EXPECT_TRUE(eventually([&] { return watch.view().state == LiveView::State::mute; }));
}

} // namespace
} // namespace quorel

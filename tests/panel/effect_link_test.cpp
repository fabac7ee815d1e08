// SPDX-License-Identifier: MIT
#include "panel/effect_link.h"

#include "platform/named_lock.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/running_effect.h"

#include <gtest/gtest.h>

#include <atomic>

namespace quorel {
namespace {

using namespace std::chrono_literals;
const SettingsField& reverb = *settingsField("Reverb");

class EffectLinkTest : public RunningEffect {
protected:
    EffectLinkTest()
    {
        oneEffect().signalled = [this] { ++updates; };
    }

    std::atomic<int> updates = 0;
    std::atomic<int> looks = 0;
};

TEST_F(EffectLinkTest, ShowsTheEffectAndAnotherProgramsChange)
{
    block.levels.fill(-33);
    EffectLink link([this] { ++looks; });
    ASSERT_TRUE(eventually([&] { return link.view().state == EffectView::State::there; }));
    EXPECT_EQ(link.view().channelMask, 0x63FU);
    EXPECT_EQ(link.view().framesPerSecond, 48000);
    EXPECT_EQ(link.view().levels.at(8), -33);
    ControlClient().update([](SettingsRecord& record) { record.Reverb = 99; });
    EXPECT_TRUE(eventually([&] { return link.view().settings.Reverb == 99; }));
}

// A set for eight channels, and the stream that was locked last has two speakers: refused, unless the host tells of eight. Of a
// microphone's one channel nothing is known of the speakers.
TEST_F(EffectLinkTest, TellsARefusalByWhatTheHostTellsOfItsSpeakers)
{
    ControlClient().update([](SettingsRecord& record) {
        record.hrtfId = 0x180;
        record.hrtfLength = 1024;
        record.hrtfChannels = 8;
    });
    block.activeChannelMask = 0x3;
    EffectLink link([this] { ++looks; });
    EXPECT_TRUE(eventually([&] { return link.view().refusal.find("the stream has 2") != std::string::npos; }));
    link.hostTells(0x63F);
    EXPECT_TRUE(eventually([&] { return link.view().refusal.empty(); }));
    link.hostTells(0x3);
    EXPECT_TRUE(eventually([&] { return !link.view().refusal.empty(); }));
    link.hostTells(std::nullopt);
    block.activeChannelMask = 0;
    EXPECT_TRUE(eventually([&] { return link.view().refusal.empty(); }));
}

TEST_F(EffectLinkTest, TellsTheFileThatTheResponsesCameFrom)
{
    rememberFile(0x180, "head.sofa");
    EffectLink link([this] { ++looks; });
    ASSERT_TRUE(eventually([&] { return link.view().state == EffectView::State::there; }));
    EXPECT_EQ(link.view().responsesFile, "");
    ControlClient().update([](SettingsRecord& record) { record.hrtfId = 0x180; });
    EXPECT_TRUE(eventually([&] { return link.view().responsesFile.ends_with("head.sofa"); }));
    ControlClient().update([](SettingsRecord& record) { record.hrtfId = 0x280; }); // delivered by who remembers no file
    EXPECT_TRUE(eventually([&] { return link.view().responsesFile.empty(); }));
}

TEST_F(EffectLinkTest, WritesWhatIsSentAndTellsItsNumber)
{
    EffectLink link([this] { ++looks; });
    link.send({7, {{&reverb, 120}}});
    ASSERT_TRUE(eventually([&] { return link.view().written == 7; }));
    EXPECT_EQ(link.view().settings.Reverb, 120U);
    EXPECT_EQ(link.view().trouble, "");
}

// However long it takes: at most one update at once and one more for each 10 ms that have passed.
TEST_F(EffectLinkTest, WritesAtMostAHundredTimesASecond)
{
    const auto start = std::chrono::steady_clock::now();
    {
        EffectLink link([this] { ++looks; });
        for (std::uint64_t i = 1; i <= 300; ++i) {
            link.send({i, {{&reverb, static_cast<std::int64_t>(i % 256)}}});
            std::this_thread::sleep_for(1ms);
        }
    }
    const auto passed = std::chrono::steady_clock::now() - start;
    EXPECT_LE(updates.load(), passed / 10ms + 2); // the last goes at the end, due or not
    EXPECT_EQ(settings().Reverb, 300U % 256);
}

TEST_F(EffectLinkTest, SaysThatNoEffectIsThereAndFindsItWhenItCame)
{
    oneEffect().block = nullptr;
    {
        EffectLink link([this] { ++looks; });
        link.send({1, {{&reverb, 5}}});
        ASSERT_TRUE(eventually([&] { return link.view().written == 1; }));
        EXPECT_EQ(link.view().state, EffectView::State::absent);
        EXPECT_EQ(link.view().trouble, "no effect is running");
    }
    oneEffect().block = &block;
    const EffectLink link([this] { ++looks; });
    EXPECT_TRUE(eventually([&] { return link.view().state == EffectView::State::there; }));
}

// It goes on the link's own thread, between two looks.
TEST_F(EffectLinkTest, SaysThatAnEffectHasGone)
{
    std::atomic<bool> gone = false;
    const EffectLink link([&] {
        if (gone)
            oneEffect().block = nullptr;
    });
    ASSERT_TRUE(eventually([&] { return link.view().state == EffectView::State::there; }));
    gone = true;
    EXPECT_TRUE(eventually([&] { return link.view().state == EffectView::State::absent; }));
}

// Somebody who has the turn and does not give it back: the sender goes on at once, and the change arrives when there is a turn.
TEST_F(EffectLinkTest, NoSenderWaitsForAnothersTurn)
{
    EffectLink link([this] { ++looks; });
    {
        const platform::NamedLock turn("Global\\QUORELControl", nullptr, 1000);
        ASSERT_TRUE(static_cast<bool>(turn));
        for (std::uint64_t i = 1; i <= 1000; ++i)
            link.send({i, {{&reverb, static_cast<std::int64_t>(i % 256)}}});
        EXPECT_EQ(settings().Reverb, 0U);
    }
    EXPECT_TRUE(eventually([&] { return settings().Reverb == 1000 % 256; }));
}

TEST_F(EffectLinkTest, LevelsAreOnWhileTheyAreWantedAndThenAsTheyWere)
{
    {
        EffectLink link([this] { ++looks; });
        link.measureLevels(true);
        ASSERT_TRUE(eventually([&] { return link.view().settings.levelsEnabled == 1; }));
        link.watch(false);
        ASSERT_TRUE(eventually([&] { return settings().levelsEnabled == 0; }));
        link.watch(true);
        ASSERT_TRUE(eventually([&] { return settings().levelsEnabled == 1; }));
    }
    EXPECT_EQ(settings().levelsEnabled, 0);

    ControlClient().update([](SettingsRecord& record) { record.levelsEnabled = 1; });
    {
        EffectLink link([this] { ++looks; });
        link.measureLevels(true);
        ASSERT_TRUE(eventually([&] { return link.view().state == EffectView::State::there; }));
    }
    EXPECT_EQ(settings().levelsEnabled, 1); // another program's
}

// After the last look that was under way a hidden panel looks no more, but writes.
TEST_F(EffectLinkTest, LooksNoMoreWhileHiddenButWrites)
{
    EffectLink link([this] { ++looks; });
    ASSERT_TRUE(eventually([&] { return looks > 0; }));
    link.watch(false);
    std::this_thread::sleep_for(EffectLink::interval); // a look that was due may still come; what follows needs no luck
    const int before = looks;
    std::this_thread::sleep_for(10 * EffectLink::interval);
    EXPECT_LE(looks.load(), before + 1);
    link.send({1, {{&reverb, 9}}});
    EXPECT_TRUE(eventually([&] { return settings().Reverb == 9; }));
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
// Either process may be killed at any moment: the other one goes on, a new one attaches, and what was kept is whole. Each test
// kills a hundred processes, or as many as QUOREL_KILLS says, at moments that QUOREL_SEED chooses.
#include "core/signal_path.h"
#include "settings/settings_handler.h"

#include "tests/process/child.h"
#include "tests/support/control_application.h"
#include "tests/support/stamp.h"
#include "tests/support/temporary_home.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <thread>

namespace quorel {
namespace {

const int kills = static_cast<int>(wished("QUOREL_KILLS", 100));

class KillTest : public testing::Test {
protected:
    // A moment of up to so many microseconds.
    void wait(int most) { std::this_thread::sleep_for(std::chrono::microseconds(random() % static_cast<unsigned>(most))); }

    // Tells how many processes it has killed.
    ~KillTest() override { std::printf("%d killed\n", killed); }

    void kill(Child& child)
    {
        child.kill();
        ++killed;
    }

    TemporaryHome home;
    std::mt19937 random{wished("QUOREL_SEED", 20)};
    int killed = 0;
};

// An effect in this process, heard block by block.
class Effect {
public:
    std::shared_ptr<SettingsHandler> handler = SettingsHandler::instance(SettingsHandler::layoutVersion);

    // False when the block was refused or is not finite.
    bool block()
    {
        handler->poll(record());
        path->process(in.data(), frames, out.data(), frames);
        for (const float x : out) {
            if (!std::isfinite(x))
                return false;
        }
        return true;
    }

    SettingsRecord& record() { return *path->settings(); }

private:
    static constexpr std::uint64_t frames = 480;
    SignalPath path{SignalPath::Speaker{}, 8, 0x63F, frames, 48000};
    std::vector<float> in = std::vector<float>(frames * 8, 0.01F);
    std::vector<float> out = std::vector<float>(frames * 8);
};

TEST_F(KillTest, TheEffectOutlivesAKilledControlApplicationAndHearsTheNext)
{
    Effect effect;
    ASSERT_TRUE(effect.block());
    for (int i = 0; i < kills; ++i) {
        Child control(SETTINGS_PEER, {"control"});
        ASSERT_EQ(control.line(), "ready");
        const auto before = effect.record().generation;
        wait(5000);
        ASSERT_TRUE(effect.block());
        ASSERT_TRUE(eventually([&] { return effect.block() && effect.record().generation > before; })) << "kill " << i;
        kill(control);
        ASSERT_TRUE(effect.block());
    }
    // A half-written update stands in the block; the next whole one counts.
    ControlApplication control;
    control.update(stamped(60));
    EXPECT_TRUE(eventually([&] { return effect.block() && isWhole(effect.record()) && effect.record().Reverb == 60; }));
}

TEST_F(KillTest, TheEffectGoesOnWhenADeliveryOfASetIsKilledInTheMiddle)
{
    Effect effect;
    for (int i = 0; i < kills; ++i) {
        Child control(SETTINGS_PEER, {"deliver"});
        ASSERT_EQ(control.line(), "ready");
        const auto before = effect.record().generation;
        wait(5000);
        ASSERT_TRUE(eventually([&] { return effect.block() && effect.record().generation > before; })) << "kill " << i;
        kill(control);
        for (int block = 0; block < 5; ++block)
            ASSERT_TRUE(effect.block());
    }
}

// An effect that is killed holds its objects no more, so the next one starts from what was kept.
TEST_F(KillTest, AKilledEffectLosesNoSavedSettingAndHalfWritesNone)
{
    std::uint32_t saved = 0;
    for (int i = 0; i < kills; ++i) {
        Child effect(SETTINGS_PEER, {"save", std::to_string(saved + 1)});
        ASSERT_TRUE(effect.line()) << "it has saved once";
        ++saved;
        wait(30000);
        kill(effect);
        while (const auto line = effect.line())
            saved = static_cast<std::uint32_t>(std::atoi(line->c_str()));

        const auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
        SettingsRecord record;
        handler->poll(record);
        const auto [least, most] = stampsOf(record);
#ifdef _WIN32
        // The registry takes value by value: each is the last one or the one that was being saved.
        ASSERT_TRUE(least >= saved && most <= saved + 1) << least << ' ' << most << " after " << saved;
#else
        ASSERT_TRUE(isWhole(record) && least >= saved && most <= saved + 1) << least << ' ' << most << " after " << saved;
#endif
        saved = most; // kept once more when this handler goes
    }
}

// The other way round: a control application that holds the block keeps it over the effect's death.
TEST_F(KillTest, AHeldBlockOutlivesTheEffectAndTheNextEffectTakesIt)
{
    std::optional<ControlApplication> control;
    {
        Child effect(SETTINGS_PEER, {"stream", "1000000"});
        ASSERT_TRUE(eventually(effectIsThere));
        control.emplace();
        control->update(stamped(77));
        wait(20000);
        kill(effect);
    }
    for (int i = 0; i < kills / 5; ++i) {
        Child effect(SETTINGS_PEER, {"stream", "1000000"});
        wait(20000);
        kill(effect);
        SettingsRecord held;
        copySettings(*control->block, held);
        ASSERT_TRUE(isWhole(held) && held.Reverb == 77);
    }
    const auto handler = SettingsHandler::instance(SettingsHandler::layoutVersion);
    SettingsRecord record;
    handler->poll(record);
    EXPECT_TRUE(isWhole(record));
    EXPECT_EQ(record.Reverb, 77U);
}

} // namespace
} // namespace quorel

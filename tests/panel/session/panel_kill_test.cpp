// SPDX-License-Identifier: MIT
// A panel may be killed at any moment: the effect goes on, what its user had chosen is there again as soon as the next panel puts
// back what a bypass had turned off, and its preset is whole. Fifty are killed, or as many as QUOREL_KILLS says, at moments that
// QUOREL_SEED chooses.
#include "client/control_client.h"
#include "client/preset.h"
#include "tests/panel/followed_panel.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/session/choice.h"
#include "tests/panel/sounding_effect.h"
#include "tests/process/child.h"
#include "tests/support/control_application.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>

namespace quorel {
namespace {

// A killed writing may have reached some of the fields.
void expectOneOf(const SettingsRecord& record, std::int64_t number, std::int64_t following)
{
    for (const auto& [field, value] : choiceWith(number))
        EXPECT_TRUE(settingOf(record, *field) == value || settingOf(record, *field) == choiceWith(following).at(field))
            << field->name << ' ' << settingOf(record, *field) << " with " << number << ", then " << following;
}

void expectWhole(const SettingsRecord& record)
{
    for (const auto& [field, value] : choiceWith(record.Reverb))
        EXPECT_EQ(settingOf(record, *field), value) << field->name << " of the preset";
}

TEST(KilledPanel, LosesNothingOfItsUsersChoice)
{
    const auto kills = wished("QUOREL_KILLS", 50);
    std::mt19937 random(wished("QUOREL_SEED", 1));
    SoundingEffect effect;
    long choice = 0;
    std::uint32_t taken = 0; // bypasses that a killed panel left to the next
    for (std::uint32_t i = 0; i < kills; ++i) {
        Child killed(PANEL_PEER, {std::to_string(choice)});
        const auto hear = [&] {
            const auto line = killed.line();
            if (line && *line != "off" && *line != "on")
                choice = std::stol(*line);
            return line.has_value();
        };
        for (auto lines = 1 + random() % 7; lines > 0; --lines)
            ASSERT_TRUE(hear()) << "kill " << i;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 2000)); // of which every writing is a part
        killed.kill();
        while (hear())
            continue;

        FollowedPanel next;
        const auto follow = [&next](const auto& reached) {
            return eventually([&] {
                next.follow();
                return reached(next.session.model());
            });
        };
        ASSERT_TRUE(follow([](const PanelModel& model) { return model.usable(); })) << "kill " << i;
        taken += next.session.bypassed() ? 1 : 0;
        next.session.bypass(false);
        ASSERT_TRUE(follow([](const PanelModel& model) { return model.settled(); })) << "kill " << i;
        // What was written last may have been killed ahead of its being told; it counts with the next update.
        const std::uint8_t mark = i % 2 == 0 ? 1 : 2;
        ControlClient().update([mark](SettingsRecord& record) { record.Enabled = mark; });
        ASSERT_TRUE(eventually([&] { return effect.inForce().Enabled == mark; })) << "kill " << i;
        expectOneOf(effect.inForce(), numberOf(choice), numberOf(choice + 1));
        if (!presets().empty())
            expectWhole(loadPreset("killed", {}));
        ASSERT_FALSE(HasFailure()) << "kill " << i << " after choice " << choice;
        ++choice;
    }
    std::printf("%u killed, %u of them while all was off\n", kills, taken);
}

} // namespace
} // namespace quorel

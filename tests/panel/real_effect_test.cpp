// SPDX-License-Identifier: MIT
// Panels on the block of a real effect while its stream sounds.
#include "tests/panel/followed_panel.h"
#include "tests/panel/own_folders.h"
#include "tests/panel/sounding_effect.h"
#include "tests/support/control_application.h"

#include <gtest/gtest.h>

#include <random>

namespace quorel {
namespace {

struct Panel : FollowedPanel {
    std::vector<const SettingsField*> fields;
    Values owned; // what was set last of these
};

// Two panels write by threads of their own, at the same time, and a third program as well; each owns some of the fields, which lie
// in the same words. Whatever order the writings come in, each field has in the end what its owner set last.
TEST(RealEffect, TwoPanelsKeepTheirOwnInTenThousandEdits)
{
    SoundingEffect effect;
    std::array<Panel, 2> panels;
    const SettingsField& others = *settingsField("Enabled");
    std::size_t turn = 0;
    for (const SettingsField& field : settingsFields())
        if (field.kept && &field != &others)
            panels.at(turn++ % 2).fields.push_back(&field);
    const auto follow = [&](const std::function<bool(const Panel&)>& reached) {
        return eventually([&] {
            for (Panel& panel : panels)
                panel.follow();
            return std::ranges::all_of(panels, reached);
        });
    };
    ASSERT_TRUE(follow([](const Panel& panel) { return panel.session.model().usable(); }));

    std::mt19937 random(20261122);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    std::int64_t third = 0;
    for (int edits = 1; edits <= 10000; ++edits) {
        Panel& panel = panels.at(below(2));
        const SettingsField& field = *panel.fields.at(below(panel.fields.size()));
        const auto span = static_cast<std::size_t>(field.high - field.low + 1);
        const auto value = field.low + static_cast<std::int64_t>(below(span));
        panel.session.attempt([&](PanelModel& model) { model.edit(field, value); });
        ASSERT_EQ(panel.session.message(), "");
        panel.owned[&field] = value;
        panel.follow();
        if (below(50) == 0) {
            third = static_cast<std::int64_t>(below(256));
            ControlClient().update([&](SettingsRecord& record) { setSetting(record, others, third); });
        }
        if (edits % 100 != 0)
            continue;
        ASSERT_TRUE(follow([](const Panel& each) { return each.session.model().settled(); })) << edits;
        const auto allIsThere = [&] {
            const SettingsRecord record = effect.inForce();
            const auto isThere = [&](const auto& each) { return settingOf(record, *each.first) == each.second; };
            return settingOf(record, others) == third &&
                   std::ranges::all_of(panels, [&](const Panel& each) { return std::ranges::all_of(each.owned, isThere); });
        };
        ASSERT_TRUE(eventually(allIsThere)) << edits;
    }
}

} // namespace
} // namespace quorel

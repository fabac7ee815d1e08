// SPDX-License-Identifier: MIT
#include "panel/panel_model.h"

#include "client/control_client.h"
#include "client/preset.h"
#include "tests/client/one_effect_platform.h"
#include "tests/panel/own_folders.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace quorel {
namespace {

const SettingsField& field(const char* name)
{
    return *settingsField(name);
}

const SettingsField& surround = field("Settings");
const SettingsField& reverb = field("Reverb");
const SettingsField& band1 = field("EQBand1");
const SettingsField& gate = field("noiseGate");

// A panel and an effect that takes at once what is written.
class PanelModelTest : public testing::Test {
protected:
    PanelModelTest()
    {
        effect.state = EffectView::State::there;
        model.see(effect);
    }

    // What the link does: it writes what there is, and looks.
    void write()
    {
        if (const auto changes = model.take()) {
            for (const auto& [field, value] : changes->values)
                setSetting(effect.settings, *field, value);
            effect.written = changes->number;
        }
        model.see(effect);
    }

    void another(const SettingsField& changed, std::int64_t value)
    {
        setSetting(effect.settings, changed, value);
        model.see(effect);
    }

    EffectView effect;
    PanelModel model;
};

TEST_F(PanelModelTest, AnEditIsShownAtOnceAndInForceWhenWritten)
{
    model.edit(reverb, 120);
    EXPECT_EQ(model.shown(reverb), 120);
    EXPECT_EQ(model.inForce(reverb), 0);
    write();
    EXPECT_EQ(model.inForce(reverb), 120);
    EXPECT_FALSE(model.take().has_value());
}

TEST_F(PanelModelTest, AnOlderLookDoesNotTakeAnEditBack)
{
    model.edit(reverb, 120);
    const auto changes = model.take();
    model.see(effect); // looked before the writing
    EXPECT_EQ(model.shown(reverb), 120);
    effect.written = changes->number; // tried, and somebody else was faster or refused it
    model.see(effect);
    EXPECT_EQ(model.shown(reverb), 0);
}

TEST_F(PanelModelTest, AnotherProgramsChangeIsShown)
{
    another(reverb, 77);
    EXPECT_EQ(model.shown(reverb), 77);
}

TEST_F(PanelModelTest, OnlyWhatWasTouchedIsWritten)
{
    model.edit(reverb, 120);
    model.edit(band1, 0); // as it is already
    const auto changes = model.take();
    ASSERT_TRUE(changes.has_value());
    EXPECT_EQ(changes->values, (Values{{&reverb, 120}}));
}

TEST_F(PanelModelTest, AValueOutOfRangeChangesNothing)
{
    EXPECT_THROW(model.edit(Values{{&reverb, 5}, {&band1, 128}}), std::runtime_error);
    EXPECT_EQ(model.shown(reverb), 0);
    EXPECT_FALSE(model.take().has_value());
    EXPECT_FALSE(model.canUndo());
}

TEST_F(PanelModelTest, WithoutAnEffectNothingIsEdited)
{
    model.edit(reverb, 5);
    effect.state = EffectView::State::absent;
    model.see(effect);
    model.edit(band1, 5);
    EXPECT_FALSE(model.take().has_value());
    EXPECT_EQ(model.shown(reverb), 0);
}

TEST_F(PanelModelTest, UndoAndRedoGoThroughTheSteps)
{
    model.edit(reverb, 10);
    model.edit(band1, -20);
    write();
    model.undo();
    write();
    EXPECT_EQ(model.inForce(band1), 0);
    EXPECT_EQ(model.inForce(reverb), 10);
    model.undo();
    EXPECT_FALSE(model.canUndo());
    write();
    EXPECT_EQ(model.inForce(reverb), 0);
    model.redo();
    model.redo();
    EXPECT_FALSE(model.canRedo());
    write();
    EXPECT_EQ(model.inForce(reverb), 10);
    EXPECT_EQ(model.inForce(band1), -20);
}

TEST_F(PanelModelTest, AnEditEndsWhatCouldBeRedone)
{
    model.edit(reverb, 10);
    model.undo();
    model.edit(band1, 1);
    EXPECT_FALSE(model.canRedo());
}

TEST_F(PanelModelTest, OneMoveOfASliderIsOneStep)
{
    model.edit(reverb, 10);
    for (int value = 11; value <= 60; ++value)
        model.edit(reverb, value, PanelModel::Step::joined);
    model.edit(band1, 5, PanelModel::Step::joined); // another field: a step of its own
    model.undo();
    EXPECT_EQ(model.shown(reverb), 60);
    model.undo();
    EXPECT_EQ(model.shown(reverb), 0);
}

TEST_F(PanelModelTest, UndoLeavesWhatAnotherProgramHasSetSince)
{
    model.edit(Values{{&reverb, 10}, {&band1, 20}});
    write();
    another(reverb, 99);
    model.undo();
    write();
    EXPECT_EQ(model.inForce(reverb), 99);
    EXPECT_EQ(model.inForce(band1), 0);
}

TEST_F(PanelModelTest, ABypassTurnsAllOffAndPutsAllBack)
{
    const Values chosen = {{&surround, 1}, {&reverb, 120},       {&band1, 3},         {&field("EQBand9"), -127},
                           {&gate, 128},   {&field("MicNR"), 1}, {&field("micEq"), 2}};
    model.edit(chosen);
    write();
    model.bypass(true);
    write();
    EXPECT_TRUE(model.bypassed());
    for (const auto& [each, value] : chosen)
        EXPECT_EQ(model.inForce(*each), 0) << each->name;
    model.bypass(false);
    write();
    EXPECT_FALSE(model.bypassed());
    for (const auto& [each, value] : chosen)
        EXPECT_EQ(model.inForce(*each), value) << each->name;
}

// And a bypass of all takes over what is off already.
TEST_F(PanelModelTest, ABypassOfTheMicrophoneLeavesTheSpeakersAlone)
{
    using Part = PanelModel::Part;
    const Values chosen = {{&reverb, 120}, {&gate, 128}, {&field("MicNR"), 1}, {&field("micEq"), 2}};
    model.edit(chosen);
    write();
    model.bypass(true, Part::microphone);
    write();
    EXPECT_TRUE(model.bypassed(Part::microphone));
    EXPECT_TRUE(model.bypassed());
    EXPECT_EQ(model.inForce(reverb), 120);
    for (const char* name : {"MicNR", "micEq", "noiseGate"})
        EXPECT_EQ(model.inForce(field(name)), 0) << name;
    model.bypass(true);
    write();
    EXPECT_EQ(model.inForce(reverb), 0);
    model.bypass(false, Part::microphone);
    write();
    EXPECT_FALSE(model.bypassed(Part::microphone));
    EXPECT_EQ(model.inForce(reverb), 0);
    EXPECT_EQ(model.inForce(gate), 128);
    model.bypass(false);
    write();
    for (const auto& [each, value] : chosen)
        EXPECT_EQ(model.inForce(*each), value) << each->name;
}

TEST_F(PanelModelTest, WhatIsSetDuringABypassStays)
{
    model.edit(Values{{&reverb, 120}, {&band1, 3}, {&gate, 7}});
    write();
    model.bypass(true);
    write();
    model.edit(reverb, 50);
    write();
    another(gate, 9);
    model.bypass(false);
    write();
    EXPECT_EQ(model.inForce(reverb), 50);
    EXPECT_EQ(model.inForce(gate), 9);
    EXPECT_EQ(model.inForce(band1), 3);
}

TEST_F(PanelModelTest, ABypassEndsWhenEveryKeptFieldIsSetElsewhere)
{
    model.edit(reverb, 120);
    write();
    model.bypass(true);
    write();
    another(reverb, 30);
    EXPECT_FALSE(model.bypassed());
}

TEST_F(PanelModelTest, WhatAnotherPanelHasKeptIsPutBack)
{
    model.keepValues({{&reverb, 120}});
    model.see(effect);
    EXPECT_TRUE(model.bypassed());
    model.bypass(false);
    write();
    EXPECT_EQ(model.inForce(reverb), 120);
}

TEST_F(PanelModelTest, APresetIsMarkedWhenItIsChanged)
{
    EXPECT_TRUE(model.changed());
    model.edit(reverb, 120);
    model.savePreset("evening");
    EXPECT_EQ(model.presetName(), "evening");
    EXPECT_FALSE(model.changed());
    model.edit(reverb, 121);
    EXPECT_TRUE(model.changed());
    model.revert();
    EXPECT_FALSE(model.changed());
    EXPECT_EQ(model.shown(reverb), 120);
    another(band1, 5);
    EXPECT_TRUE(model.changed());
}

TEST_F(PanelModelTest, APresetIsLoadedAsOneStep)
{
    model.edit(Values{{&reverb, 120}, {&band1, 4}});
    model.savePreset("both");
    model.edit(Values{{&reverb, 1}, {&band1, 1}});
    model.loadPreset("both");
    EXPECT_EQ(model.shown(reverb), 120);
    EXPECT_EQ(model.shown(band1), 4);
    model.undo();
    EXPECT_EQ(model.shown(reverb), 1);
    EXPECT_EQ(model.shown(band1), 1);
}

TEST_F(PanelModelTest, ALoadedPresetIsTheOneInUse)
{
    model.edit(reverb, 120);
    model.savePreset("first");
    model.edit(reverb, 50);
    model.savePreset("second");
    model.loadPreset("first");
    EXPECT_EQ(model.presetName(), "first");
    EXPECT_FALSE(model.changed());
}

TEST_F(PanelModelTest, AllIsSettledWhenItIsWritten)
{
    EXPECT_TRUE(model.settled());
    model.edit(reverb, 120);
    EXPECT_FALSE(model.settled());
    write();
    EXPECT_TRUE(model.settled());
}

TEST_F(PanelModelTest, APresetThatIsNotThereChangesNothing)
{
    model.edit(reverb, 120);
    model.savePreset("there");
    EXPECT_THROW(model.loadPreset("not-there"), std::runtime_error);
    EXPECT_EQ(model.presetName(), "there");
    EXPECT_THROW(model.savePreset("no/name"), std::runtime_error);
    EXPECT_EQ(model.presetName(), "there");
}

TEST_F(PanelModelTest, APresetSavedDuringABypassHoldsTheChoice)
{
    model.edit(reverb, 120);
    write();
    model.bypass(true);
    write();
    model.savePreset("bypassed");
    EXPECT_EQ(loadPreset("bypassed", {}).Reverb, 120U);
}

TEST_F(PanelModelTest, APresetLoadedDuringABypassEndsIt)
{
    model.edit(band1, 5);
    model.savePreset("dry"); // Reverb 0
    model.edit(reverb, 120);
    write();
    model.bypass(true);
    write();
    model.loadPreset("dry");
    write();
    EXPECT_FALSE(model.bypassed());
    EXPECT_FALSE(model.changed());
    EXPECT_EQ(model.inForce(reverb), 0);
    EXPECT_EQ(model.inForce(band1), 5);
}

TEST_F(PanelModelTest, ComparesTwoChoices)
{
    model.edit(reverb, 10);
    model.compare();
    EXPECT_EQ(model.side(), 'B');
    EXPECT_EQ(model.shown(reverb), 10);
    model.edit(reverb, 20);
    model.compare();
    EXPECT_EQ(model.side(), 'A');
    EXPECT_EQ(model.shown(reverb), 10);
    model.compare();
    EXPECT_EQ(model.shown(reverb), 20);
    write();
    EXPECT_EQ(model.inForce(reverb), 20);
}

// Two panels with a control client each, on one effect. The first moves some fields, the second others, and a third program one
// more; now and then each writes, looks, undoes. What a panel does not touch has at each moment the value that its owner set last.
TEST(TwoPanels, NeverOverwriteEachOtherInTenThousandEdits)
{
    ControlBlock block{};
    std::vector<std::byte> share(hrtfShareBytes);
    oneEffect() = {&block, share.data(), true, {}};

    struct Panel {
        PanelModel model;
        std::vector<const SettingsField*> fields;
        Values owned; // what the effect holds when all is written
        std::uint64_t written = 0;

        void write()
        {
            if (const auto changes = model.take()) {
                ControlClient().update([&](SettingsRecord& record) {
                    for (const auto& [each, value] : changes->values)
                        setSetting(record, *each, value);
                });
                written = changes->number;
            }
        }
        void look()
        {
            EffectView view;
            view.state = EffectView::State::there;
            view.settings = ControlClient().settings();
            view.written = written;
            model.see(view);
        }
    };
    std::array<Panel, 2> panels;
    std::size_t turn = 0;
    for (const SettingsField& each : settingsFields()) // one-byte fields of one word fall to both
        if (std::strcmp(each.name, "Enabled") != 0)
            panels.at(turn++ % 2).fields.push_back(&each);
    for (Panel& panel : panels)
        panel.look();

    std::mt19937 random(20261122);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    std::int64_t enabled = 0; // the third program's
    for (int edits = 0; edits < 10000; ++edits) {
        Panel& panel = panels.at(below(2));
        const SettingsField& each = *panel.fields.at(below(panel.fields.size()));
        const auto span = static_cast<std::size_t>(each.high - each.low + 1);
        panel.model.edit(each, each.low + static_cast<std::int64_t>(below(span)));
        if (below(20) == 0)
            panel.model.undo();
        for (const SettingsField* own : panel.fields)
            panel.owned[own] = panel.model.shown(*own);
        if (below(2) == 0)
            panel.write();
        if (below(3) == 0)
            panels.at(below(2)).look();
        if (below(10) == 0) {
            enabled = static_cast<std::int64_t>(below(256));
            ControlClient().update([&](SettingsRecord& record) { setSetting(record, field("Enabled"), enabled); });
        }
        if (below(100) != 0)
            continue;
        for (Panel& both : panels) {
            both.write();
            both.look();
        }
        panels.front().look();
        for (const Panel& seeing : panels) {
            ASSERT_EQ(seeing.model.shown(field("Enabled")), enabled) << edits;
            for (const Panel& owner : panels)
                for (const auto& [own, value] : owner.owned)
                    ASSERT_EQ(seeing.model.shown(*own), value) << own->name << " after edit " << edits;
        }
    }
}

} // namespace
} // namespace quorel

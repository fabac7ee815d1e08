// SPDX-License-Identifier: MIT
// What a user and other programs may do to the panel's model, in any order.
#include "panel/panel_model.h"
#include "platform/programs/process.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/private_home.h"

#include <array>
#include <filesystem>
#include <stdexcept>

namespace {

using namespace quorel;

const SettingsField& anyField(FuzzInput& input)
{
    const auto fields = settingsFields();
    return fields[input.below(static_cast<std::uint32_t>(fields.size()))];
}

bool inRange(const SettingsField& field, std::int64_t value)
{
    return value >= field.low && value <= field.high;
}

Values shownBy(const PanelModel& panel)
{
    Values values;
    for (const SettingsField& field : settingsFields())
        values[&field] = panel.shown(field);
    return values;
}

// By one of these names, the last of which is none; nobody else changes what is shown meanwhile.
void usePreset(PanelModel& panel, FuzzInput& input)
{
    constexpr std::array<const char*, 4> names = {"one", "two", "three", "no name"};
    const std::string name = names.at(input.below(names.size()));
    const auto act = input.below(3);
    const Values before = shownBy(panel);
    try {
        if (act == 0)
            panel.savePreset(name);
        else if (act == 1)
            panel.loadPreset(name);
        else
            panel.revert();
        require(act == 2 || panel.presetName() == name, "a preset that is saved or loaded is in use");
        require(panel.presetName().empty() || (act != 0 && !panel.usable()) || !panel.changed(),
                "the choice is that of the preset");
    } catch (const std::runtime_error&) {
        require(act != 2 && shownBy(panel) == before, "a preset that is refused changes nothing");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    static const std::filesystem::path presets = std::filesystem::path(platform::userFolder()) / "presets";
    std::filesystem::remove_all(presets);
    PanelModel panel;
    EffectView view;
    std::uint64_t taken = 0; // number of the newest changes that were to be written
    for (int operation = 0; operation < 256 && !input.ended(); ++operation) {
        switch (input.below(11)) {
        case 0: // a look at the effect
            view.state = static_cast<EffectView::State>(input.below(3));
            view.written = input.below(2) == 0 ? taken : input.below(256) % (taken + 1); // of what was taken
            panel.see(view);
            require(panel.usable() || panel.settled(), "without an effect nothing waits to be written");
            break;
        case 1: { // another program
            const SettingsField& field = anyField(input);
            setSetting(view.settings, field, field.low + input.below(static_cast<std::uint32_t>(field.high - field.low + 1)));
            break;
        }
        case 2:
        case 3: {
            const SettingsField& field = anyField(input);
            const std::int64_t value = input.number<std::int16_t>();
            const Values before = shownBy(panel);
            try {
                panel.edit(field, value, input.below(2) == 0 ? PanelModel::Step::own : PanelModel::Step::joined);
                require(inRange(field, value), "what is out of range is refused");
                require(!panel.usable() || panel.shown(field) == value, "what was changed is shown");
            } catch (const std::runtime_error&) {
                require(!inRange(field, value) && shownBy(panel) == before, "what is refused changes nothing");
            }
            break;
        }
        case 4: {
            const bool could = panel.canUndo() && panel.usable();
            panel.undo();
            require(!could || panel.canRedo(), "what was undone can be redone");
            break;
        }
        case 5:
            panel.redo();
            break;
        case 6: {
            const auto part = input.below(2) == 0 ? PanelModel::Part::all : PanelModel::Part::microphone;
            const Values before = shownBy(panel);
            const bool was = panel.bypassed();
            panel.bypass(true, part);
            if (!was) {
                PanelModel other = panel;
                other.bypass(false, part);
                require(shownBy(other) == before, "a bypass that ends puts back what it turned off");
            }
            break;
        }
        case 7:
            panel.bypass(false, input.below(2) == 0 ? PanelModel::Part::all : PanelModel::Part::microphone);
            break;
        case 8: {
            const char side = panel.side();
            panel.compare();
            require((panel.side() != side) == panel.usable(), "there are two sides where there is an effect");
            break;
        }
        case 9:
            usePreset(panel, input);
            break;
        default:
            if (const auto changes = panel.take()) {
                require(changes->number > taken && !changes->values.empty(), "newer changes have larger numbers");
                taken = changes->number;
                for (const auto& [field, value] : changes->values)
                    require(inRange(*field, value) && panel.shown(*field) == value, "what is written is what is shown");
            }
            require(!panel.take(), "nothing is taken twice");
        }
        for (const auto& [field, value] : shownBy(panel))
            require(inRange(*field, value), "what is shown is in its range");
        static_cast<void>(panel.chosen());
    }
    return 0;
}

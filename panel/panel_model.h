// SPDX-License-Identifier: MIT
// PanelModel is the panel without a window: what is in force, what its user has changed, and how to go back.
//
// It owns no setting. What the user changes is shown at once, is taken to be written, and counts as the user's until a look at
// the effect that is younger than the writing; from then on what is in force is shown, whoever set it. Only fields that the user
// touched are ever written. No thread, no clock, no file but those of the presets.
#pragma once

#include "panel/effect_view.h"
#include "panel/values.h"

#include <string>
#include <vector>

namespace quorel {

class PanelModel {
public:
    enum class Part : std::uint8_t { all, microphone }; // of what can be turned off
    enum class Step : std::uint8_t { own, joined };     // joined: one undoing with the step before, if that is of the same fields

    void see(const EffectView& view);
    const EffectView& seen() const { return view; }
    bool usable() const { return view.state == EffectView::State::there; }

    std::int64_t inForce(const SettingsField& field) const { return settingOf(view.settings, field); }
    std::int64_t shown(const SettingsField& field) const;

    // Nothing while no effect is there. Throws std::runtime_error with a text for the user, and changes nothing, when a value is
    // out of its range.
    void edit(const Values& values, Step step = Step::own);
    void edit(const SettingsField& field, std::int64_t value, Step step = Step::own) { edit(Values{{&field, value}}, step); }

    // Whether all that the user has changed has been written, or refused.
    bool settled() const { return unwritten.empty(); }

    // What is to be written since the last call; nothing when nothing is.
    std::optional<Changes> take();

    // Fields that somebody else has changed since stay as they are.
    bool canUndo() const { return !done.empty(); }
    bool canRedo() const { return !undone.empty(); }
    void undo();
    void redo();

    // Everything off that settings can turn off. What was there is kept, and put back where it is still off: a field that the
    // user or another program sets meanwhile is bypassed no longer.
    bool bypassed(Part part = Part::all) const;
    void bypass(bool on, Part part = Part::all);
    const Values& keptValues() const { return kept; }
    void keepValues(const Values& values) { kept = values; } // of a panel that ended while it was bypassed

    // The settings that are the user's choice, a bypass or not: what a preset holds.
    SettingsRecord chosen() const;

    // These throw std::runtime_error with a text for the user. Saving and loading make the preset the one in use.
    void savePreset(const std::string& name);
    void loadPreset(const std::string& name);
    void revert(); // to the preset in use; nothing without one
    const std::string& presetName() const { return name; }
    bool changed() const; // the choice is another than the preset in use, or there is none

    // Two choices to compare: each keeps what was changed while it was the one in use. At first they are the same.
    char side() const { return inUse == 0 ? 'A' : 'B'; }
    void compare();

private:
    struct Done {
        Values before;
        Values after;
    };

    void put(const Values& values);
    void move(std::vector<Done>& from, std::vector<Done>& to, Values Done::*wanted, Values Done::*expected);
    static Values choiceOf(const SettingsRecord& record);

    EffectView view;
    std::uint64_t number = 0;                                // of the newest changes
    std::map<const SettingsField*, std::uint64_t> unwritten; // fields of the user's and the number of their newest change
    Values edited;                                           // their values
    Values pending;                                          // of these, what nobody has taken yet
    std::vector<Done> done;
    std::vector<Done> undone;
    Values kept; // by a bypass; empty: there is none
    std::string name;
    SettingsRecord preset; // the one in use, as it was loaded or saved
    std::size_t inUse = 0; // of `sides`
    std::array<std::optional<Values>, 2> sides;
};

} // namespace quorel

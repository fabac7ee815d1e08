// SPDX-License-Identifier: MIT
#include "panel/panel_model.h"

#include "client/preset.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

namespace quorel {

namespace {

constexpr std::size_t mostSteps = 1000; // that can be undone

// What can be turned off by a setting.
constexpr auto bypassNames =
    std::to_array<const char*>({"Settings", "Reverb", "EQBand1", "EQBand2", "EQBand3", "EQBand4", "EQBand5", "EQBand6", "EQBand7",
                                "EQBand8", "EQBand9", "MicNR", "micEq", "noiseGate"});

constexpr std::size_t ofMicrophone = 3; // the last of these

std::span<const char* const> namesOf(PanelModel::Part part)
{
    const std::span<const char* const> all(bypassNames);
    return part == PanelModel::Part::all ? all : all.last(ofMicrophone);
}

bool sameFields(const Values& a, const Values& b)
{
    return std::ranges::equal(a, b, [](const auto& x, const auto& y) { return x.first == y.first; });
}

} // namespace

void PanelModel::see(const EffectView& next)
{
    view = next;
    if (!usable()) {
        unwritten.clear();
        edited.clear();
        pending.clear();
        return;
    }
    std::erase_if(unwritten, [&](const auto& change) {
        const bool settled = change.second <= view.written;
        if (settled)
            edited.erase(change.first);
        return settled;
    });
    std::erase_if(kept, [&](const auto& value) { return shown(*value.first) != neutralValue; });
}

std::int64_t PanelModel::shown(const SettingsField& field) const
{
    const auto own = edited.find(&field);
    return own != edited.end() ? own->second : inForce(field);
}

void PanelModel::put(const Values& values)
{
    ++number;
    for (const auto& [field, value] : values) {
        edited[field] = value;
        pending[field] = value;
        unwritten[field] = number;
    }
}

void PanelModel::edit(const Values& values, Step step)
{
    SettingsRecord checked;
    Done change;
    for (const auto& [field, value] : values) {
        setSetting(checked, *field, value);
        if (value == shown(*field))
            continue;
        change.before[field] = shown(*field);
        change.after[field] = value;
    }
    if (!usable())
        return;
    for (const auto& [field, value] : values)
        kept.erase(field);
    if (change.after.empty())
        return;

    put(change.after);
    undone.clear();
    if (step == Step::joined && !done.empty() && sameFields(done.back().after, change.after)) {
        done.back().after = change.after;
        return;
    }
    if (done.size() == mostSteps)
        done.erase(done.begin());
    done.push_back(std::move(change));
}

std::optional<Changes> PanelModel::take()
{
    if (pending.empty())
        return std::nullopt;
    return Changes{number, std::exchange(pending, {})};
}

void PanelModel::undo()
{
    move(done, undone, &Done::before, &Done::after);
}

void PanelModel::redo()
{
    move(undone, done, &Done::after, &Done::before);
}

void PanelModel::move(std::vector<Done>& from, std::vector<Done>& to, Values Done::*wanted, Values Done::*expected)
{
    if (from.empty() || !usable())
        return;
    Values values;
    for (const auto& [field, value] : from.back().*wanted)
        if (shown(*field) == (from.back().*expected).at(field))
            values[field] = value;
    to.push_back(std::move(from.back()));
    from.pop_back();
    if (!values.empty())
        put(values);
}

bool PanelModel::bypassed(Part part) const
{
    return std::ranges::any_of(namesOf(part), [this](const char* field) { return kept.contains(settingsField(field)); });
}

void PanelModel::bypass(bool on, Part part)
{
    if (!usable())
        return;
    Values values;
    for (const char* each : namesOf(part)) {
        const SettingsField* field = settingsField(each);
        const auto value = shown(*field);
        if (on && value != neutralValue) {
            kept[field] = value;
            values[field] = neutralValue;
        } else if (const auto put = on ? kept.end() : kept.find(field); put != kept.end()) {
            values.insert(kept.extract(put));
        }
    }
    if (!values.empty())
        put(values);
}

SettingsRecord PanelModel::chosen() const
{
    SettingsRecord record = view.settings;
    for (const Values* values : {&edited, &kept})
        for (const auto& [field, value] : *values)
            setSetting(record, *field, value);
    return record;
}

Values PanelModel::choiceOf(const SettingsRecord& record)
{
    Values values;
    for (const SettingsField& field : settingsFields())
        if (field.kept)
            values[&field] = settingOf(record, field);
    return values;
}

void PanelModel::savePreset(const std::string& as)
{
    const SettingsRecord record = chosen();
    quorel::savePreset(as, record);
    name = as;
    preset = record;
}

void PanelModel::loadPreset(const std::string& of)
{
    const SettingsRecord record = quorel::loadPreset(of, chosen());
    edit(choiceOf(record));
    name = of;
    preset = record;
}

void PanelModel::revert()
{
    if (!name.empty())
        edit(choiceOf(preset));
}

bool PanelModel::changed() const
{
    return name.empty() || choiceOf(preset) != choiceOf(chosen());
}

void PanelModel::compare()
{
    if (!usable())
        return;
    sides.at(inUse) = choiceOf(chosen());
    inUse = 1 - inUse;
    if (const auto& other = sides.at(inUse))
        edit(*other);
}

} // namespace quorel

// SPDX-License-Identifier: MIT
// SettingsRecord is the unit in which settings are copied: one process-wide snapshot, and one in each path.
//
// Its layout is a format: bytes 16 to 83 stand at the same offsets in the control block that other processes write. Fields
// bear the names of their registry values. A path that finds `applied` 0 at the start of a block takes the record over and
// sets `applied` to 1.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace quorel {

struct SettingsRecord {
    std::uint64_t generation = 0;             // raised by one with each refresh of the snapshot
    std::uint8_t applied = 0;                 // 0 in the snapshot, always
    std::array<std::uint8_t, 3> reserved9{};  // zero
    std::uint32_t blockSequence = 0;          // the control block's sequence at the last refresh
    std::uint8_t Enabled = 0;                 // kept and saved, read by no path
    std::uint8_t carried17 = 0;               // copied along, read by nobody
    std::uint8_t Settings = 0;                // surround effect: non-zero binaural, 0 stereo down-mix
    std::uint8_t MicNR = 0;                   // microphone noise reduction: non-zero on
    std::uint32_t micEq = 0;                  // microphone curve: 0 off, 1, 2; above is refused by the path
    std::array<std::int32_t, 9> EQBand{};     // EQBand1 to EQBand9: gain in dB = value / 127 * 6
    std::uint32_t noiseGate = 0;              // microphone gate: 0 off, else 1 to 255, larger ones cut
    std::uint32_t Reverb = 0;                 // reverb: 0 off, else gain in dB = value * 27 / 255 - 18
    std::uint8_t levelsEnabled = 0;           // non-zero: the microphone path measures its nine levels
    std::array<std::uint8_t, 3> carried69{};  // copied along, read by nobody
    std::uint32_t hrtfId = 0;                 // identity of the delivered HRTF set, 0 none
    std::uint32_t hrtfLength = 0;             // samples in one response of that set
    std::uint32_t hrtfChannels = 0;           // source channels of that set
    std::array<std::uint8_t, 4> reserved84{}; // zero
    const float* hrtfData = nullptr;          // this process's view of the delivered set
};

static_assert(sizeof(SettingsRecord) == 96);
static_assert(std::is_trivially_copyable_v<SettingsRecord> && std::is_standard_layout_v<SettingsRecord>);
static_assert(offsetof(SettingsRecord, generation) == 0);
static_assert(offsetof(SettingsRecord, applied) == 8);
static_assert(offsetof(SettingsRecord, reserved9) == 9);
static_assert(offsetof(SettingsRecord, blockSequence) == 12);
static_assert(offsetof(SettingsRecord, Enabled) == 16);
static_assert(offsetof(SettingsRecord, carried17) == 17);
static_assert(offsetof(SettingsRecord, Settings) == 18);
static_assert(offsetof(SettingsRecord, MicNR) == 19);
static_assert(offsetof(SettingsRecord, micEq) == 20);
static_assert(offsetof(SettingsRecord, EQBand) == 24);
static_assert(offsetof(SettingsRecord, noiseGate) == 60);
static_assert(offsetof(SettingsRecord, Reverb) == 64);
static_assert(offsetof(SettingsRecord, levelsEnabled) == 68);
static_assert(offsetof(SettingsRecord, carried69) == 69);
static_assert(offsetof(SettingsRecord, hrtfId) == 72);
static_assert(offsetof(SettingsRecord, hrtfLength) == 76);
static_assert(offsetof(SettingsRecord, hrtfChannels) == 80);
static_assert(offsetof(SettingsRecord, reserved84) == 84);
static_assert(offsetof(SettingsRecord, hrtfData) == 88);

} // namespace quorel

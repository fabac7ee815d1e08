// SPDX-License-Identifier: MIT
// The control block: what the effect and the control application, each in a process of its own, tell each other.
//
// It stands in named shared memory; a fresh one is all zero. The control application
//   1. opens the memory and the event by name,
//   2. writes the settings,
//   3. changes `sequence`: an update counts from this moment on, and only that it differs from the last seen value matters,
//   4. signals the event, which the effect resets.
// The levels and the active format can be read at any time. No lock spans the processes: an update may be seen half-written
// until its sequence number changes.
#pragma once

#include "core/settings_record.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace quorel {

// Bytes 16 to 83 of a SettingsRecord and of the block are the same.
inline constexpr std::size_t settingsOffset = 16;
inline constexpr std::size_t settingsBytes = 68;

struct ControlBlock {
    std::uint32_t sequence;                        // changed by the control application after each update of `settings`
    std::uint32_t layoutVersion;                   // 0 for this layout
    std::uint32_t activeChannelMask;               // speaker mask of the locked stream's input; 0: no effect is there
    float activeFramesPerSecond;                   // rate of the locked stream; 0: no effect is there
    std::array<std::byte, settingsBytes> settings; // written by the control application
    std::array<std::byte, 940> reserved84;         // neither read nor written
    std::array<float, 9> levels;                   // dB, band levels of the microphone; -120.0 when idle
};

static_assert(sizeof(ControlBlock) == 1060);
static_assert(std::is_trivially_copyable_v<ControlBlock> && std::is_standard_layout_v<ControlBlock>);
static_assert(offsetof(ControlBlock, sequence) == 0);
static_assert(offsetof(ControlBlock, layoutVersion) == 4);
static_assert(offsetof(ControlBlock, activeChannelMask) == 8);
static_assert(offsetof(ControlBlock, activeFramesPerSecond) == 12);
static_assert(offsetof(ControlBlock, settings) == settingsOffset);
static_assert(offsetof(ControlBlock, reserved84) == 84);
static_assert(offsetof(ControlBlock, levels) == 1024);
static_assert(offsetof(SettingsRecord, Enabled) == settingsOffset);
static_assert(offsetof(SettingsRecord, hrtfChannels) + 4 == settingsOffset + settingsBytes);

// The HRTF share, the second piece of shared memory: `hrtfChannels` left-ear responses of `hrtfLength` floats, then the
// right-ear responses, each a packed spectrum as speaker/direct_path.h tells it. Nothing else: no header, no checksum.
inline constexpr std::size_t hrtfShareBytes = 65536;

inline constexpr const char* controlBlockName = "Global\\QUORELMem";
inline constexpr const char* hrtfShareName = "Global\\QUORELHRTF";
inline constexpr const char* controlEventName = "Global\\QUORELEvent";

// Administrators, users, the local service and the system may do everything: the service that runs the effect and a plain
// user's control application meet in these objects.
inline constexpr const char* sharedAccess = "D:(A;OICI;GA;;;BA)(A;OICI;FA;;;BU)(A;OICI;FA;;;LS)(A;OICI;FA;;;SY)";

inline void copySettings(const ControlBlock& block, SettingsRecord& record)
{
    std::memcpy(reinterpret_cast<std::byte*>(&record) + settingsOffset, block.settings.data(), settingsBytes);
}

inline void copySettings(const SettingsRecord& record, ControlBlock& block)
{
    std::memcpy(block.settings.data(), reinterpret_cast<const std::byte*>(&record) + settingsOffset, settingsBytes);
}

} // namespace quorel

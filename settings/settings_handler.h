// SettingsHandler joins the audio thread, which must never wait, to a control application in another process.
//
// There is one handler in a process, shared by all its effect objects. It owns the shared memory and the event, keeps one
// snapshot of the settings, and runs a thread that refreshes the snapshot whenever the control application signals. Every
// path has a record of its own and brings it up to date by `poll`, which never blocks:
//
//   control application -> block, sequence, event -> memory thread -> snapshot, generation -> poll -> the path's record
//
// The snapshot belongs to the process and outlives the handler with all its fields. The settings are read from the user's
// registry when a handler has made the block anew, and written back when the last effect object goes.
#pragma once

#include "core/settings_record.h"
#include "platform/lock.h"
#include "platform/sharing.h"
#include "settings/control_block.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

namespace quorel {

class SettingsHandler {
public:
    // The layout of the block: major part in the upper 16 bits, minor part in the lower ones.
    static constexpr std::uint32_t layoutVersion = 0;

    // Configuration thread. The process's handler, which is started if there is none. Throws std::runtime_error when a
    // shared object or the thread can't be made.
    static std::shared_ptr<SettingsHandler> instance(std::uint32_t version);

    // Any thread, the audio thread above all. Brings `record` up to date with the snapshot, unless it is or somebody else is
    // at the snapshot in this moment: the next block tries again. Copies at most 96 bytes, never waits.
    void poll(SettingsRecord& record) noexcept;

    // What the effect tells the control application.
    void writeActiveFormat(std::uint32_t channelMask, float framesPerSecond) noexcept;
    void writeLevels(const float* levels) noexcept; // nine, dB; audio thread
    void writeIdleLevels() noexcept;                // -120 dB

    // The mapped control block.
    ControlBlock* block = nullptr;

private:
    SettingsHandler() = default;
};

} // namespace quorel

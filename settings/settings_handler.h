// SPDX-License-Identifier: MIT
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
    //
    // Required: after a failure the handles opened so far stay open, and the mutex that this operation stands under is not
    // given up: the thread that failed may try again, any other one waits for ever.
    static std::shared_ptr<SettingsHandler> instance(std::uint32_t version);

    // Any thread of any process of the user. True when kept values are there and can't be read: effects run with zeros then and
    // save nothing. platform::lastRefusal tells what and why.
    static bool keptValuesAreUnreadable() noexcept;

    SettingsHandler(const SettingsHandler&) = delete;
    SettingsHandler& operator=(const SettingsHandler&) = delete;

    // Any thread, the audio thread above all. Brings `record` up to date with the snapshot, unless it is so already or
    // somebody else is at the snapshot in this moment: the next block tries again. Copies at most 96 bytes, never waits.
    void poll(SettingsRecord& record) noexcept;

    // What the effect tells the control application. The audio thread writes the levels, nine, in dB.
    void writeActiveFormat(std::uint32_t channelMask, float framesPerSecond) noexcept;
    void writeLevels(const float* levels) noexcept;
    void writeIdleLevels() noexcept; // -120 dB

private:
    SettingsHandler() = default;
    ~SettingsHandler() = default;

    void start(std::uint32_t version);
    static void release(SettingsHandler* handler) noexcept;
    void stop() noexcept;
    void close() noexcept;
    bool openSharedObjects(std::uint32_t version);
    void runMemoryThread() noexcept;
    void followBlock() noexcept;
    void load() noexcept;
    void save() noexcept;

    platform::Handle hMem = nullptr;       // the block's mapping
    platform::Handle hEvent = nullptr;     // the control application's signal
    platform::Handle hStop = nullptr;      // ends the memory thread
    platform::Handle hMemThread = nullptr; // the memory thread
    ControlBlock* block = nullptr;         // this process's view of the block
    platform::Handle hHrtf = nullptr;      // the HRTF share's mapping
    std::atomic<bool> running = false;     // the memory thread goes on
    std::atomic<bool> handedOver = false;  // stop or the memory thread has left: the other one closes what is open
    std::uint32_t seen = 0;                // the block's sequence at the last refresh; the memory thread's own once it runs
    platform::Lock lock;                   // guards the snapshot
};

} // namespace quorel

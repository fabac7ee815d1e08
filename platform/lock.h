// SPDX-License-Identifier: MIT
// Locks among the threads of a process.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace quorel::platform {

// A lock with a try operation: Windows' critical section; elsewhere a flag whose waiters look again and again, so that giving
// it up never enters the kernel.
class Lock {
public:
    Lock() noexcept;
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void lock() noexcept;
    bool try_lock() noexcept;
    void unlock() noexcept;

private:
    alignas(8) std::array<std::byte, 40> state;
};

// A lock for the variables of a module, whose holder may take it again. It is made without a call and never destroyed, and holds
// nothing of the system's: nothing of it is left when the module is unloaded.
class ModuleLock {
public:
    constexpr ModuleLock() noexcept = default;
    ModuleLock(const ModuleLock&) = delete;
    ModuleLock& operator=(const ModuleLock&) = delete;

    void lock() noexcept;
    void unlock() noexcept;

private:
    [[maybe_unused]] void* system = nullptr; // what Windows' threads wait on
    std::atomic<std::uintptr_t> holder{0};   // the thread that holds it, 0 is none
    std::uint32_t entries = 0;               // the holder's
};

} // namespace quorel::platform

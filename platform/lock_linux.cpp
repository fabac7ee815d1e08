// SPDX-License-Identifier: MIT
#include "platform/lock.h"

#include <atomic>
#include <ctime>
#include <new>
#include <pthread.h>

namespace quorel::platform {

namespace {

using Flag = std::atomic<bool>; // true: taken
static_assert(sizeof(Flag) <= sizeof(Lock) && alignof(Flag) <= alignof(Lock) && Flag::is_always_lock_free);

Flag& flagOf(std::array<std::byte, 40>& state)
{
    return *std::launder(reinterpret_cast<Flag*>(state.data()));
}

void letOthersRun()
{
    constexpr timespec time{0, 100'000}; // ns
    nanosleep(&time, nullptr);
}

} // namespace

Lock::Lock() noexcept
{
    new (state.data()) Flag(false);
}

Lock::~Lock()
{
    flagOf(state).~Flag();
}

void Lock::lock() noexcept
{
    while (!try_lock())
        letOthersRun();
}

bool Lock::try_lock() noexcept
{
    return !flagOf(state).exchange(true, std::memory_order_acquire);
}

void Lock::unlock() noexcept
{
    flagOf(state).store(false, std::memory_order_release);
}

void ModuleLock::lock() noexcept
{
    const std::uintptr_t self = pthread_self();
    if (holder.load(std::memory_order_relaxed) != self) {
        for (std::uintptr_t none = 0; !holder.compare_exchange_strong(none, self, std::memory_order_acquire); none = 0)
            letOthersRun();
    }
    ++entries;
}

void ModuleLock::unlock() noexcept
{
    if (--entries == 0)
        holder.store(0, std::memory_order_release);
}

} // namespace quorel::platform

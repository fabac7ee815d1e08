// SPDX-License-Identifier: MIT
#include "platform/lock.h"

#include <new>
#include <windows.h>

namespace quorel::platform {

namespace {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(Lock) && alignof(CRITICAL_SECTION) <= alignof(Lock));

CRITICAL_SECTION* sectionOf(std::array<std::byte, 40>& state)
{
    return std::launder(reinterpret_cast<CRITICAL_SECTION*>(state.data()));
}

} // namespace

Lock::Lock() noexcept
{
    InitializeCriticalSection(new (state.data()) CRITICAL_SECTION);
}

Lock::~Lock()
{
    DeleteCriticalSection(sectionOf(state));
}

void Lock::lock() noexcept
{
    EnterCriticalSection(sectionOf(state));
}

bool Lock::try_lock() noexcept
{
    return TryEnterCriticalSection(sectionOf(state)) != 0;
}

void Lock::unlock() noexcept
{
    LeaveCriticalSection(sectionOf(state));
}

void ModuleLock::lock() noexcept
{
    static_assert(sizeof(SRWLOCK) == sizeof system);
    const std::uintptr_t self = GetCurrentThreadId();
    if (holder.load(std::memory_order_relaxed) != self) {
        AcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&system));
        holder.store(self, std::memory_order_relaxed);
    }
    ++entries;
}

void ModuleLock::unlock() noexcept
{
    if (--entries != 0)
        return;
    holder.store(0, std::memory_order_relaxed);
    ReleaseSRWLockExclusive(reinterpret_cast<SRWLOCK*>(&system));
}

} // namespace quorel::platform

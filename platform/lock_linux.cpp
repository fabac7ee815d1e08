#include "platform/lock.h"

#include <atomic>
#include <ctime>
#include <new>

namespace quorel::platform {

namespace {

using Flag = std::atomic<bool>; // true: taken
static_assert(sizeof(Flag) <= sizeof(Lock) && alignof(Flag) <= alignof(Lock) && Flag::is_always_lock_free);

Flag& flagOf(std::array<std::byte, 40>& state)
{
    return *std::launder(reinterpret_cast<Flag*>(state.data()));
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
    while (!try_lock()) {
        constexpr timespec pause{0, 100'000}; // ns
        nanosleep(&pause, nullptr);
    }
}

bool Lock::try_lock() noexcept
{
    return !flagOf(state).exchange(true, std::memory_order_acquire);
}

void Lock::unlock() noexcept
{
    flagOf(state).store(false, std::memory_order_release);
}

} // namespace quorel::platform

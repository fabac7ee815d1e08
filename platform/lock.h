// A lock among the threads of a process with a try operation: Windows' critical section; elsewhere a flag whose waiters look
// again and again, so that giving it up never enters the kernel.
#pragma once

#include <array>
#include <cstddef>

namespace quorel::platform {

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

} // namespace quorel::platform

#include "platform/refusal.h"

#include "platform/lock.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <mutex>
#include <new>

namespace quorel::platform {

namespace {

struct Kept {
    Lock lock; // guards what follows
    std::array<char, 512> path{};
    std::size_t length = 0;
    int error = 0;
};

// Never destroyed: the last release of an effect may come when statics are gone.
Kept& kept()
{
    alignas(Kept) static std::byte storage[sizeof(Kept)];
    static Kept& made = *new (storage) Kept;
    return made;
}

} // namespace

Refusal lastRefusal()
{
    const std::lock_guard guard(kept().lock);
    return {std::string(kept().path.data(), kept().length), kept().error};
}

void keepRefusal(std::string_view path, int error) noexcept
{
    const std::lock_guard guard(kept().lock);
    kept().length = std::min(path.size(), kept().path.size());
    std::copy_n(path.begin(), kept().length, kept().path.begin());
    kept().error = error;
}

} // namespace quorel::platform

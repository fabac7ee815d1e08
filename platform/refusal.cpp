// SPDX-License-Identifier: MIT
#include "platform/refusal.h"

#include "platform/lock.h"
#include "platform/never_destroyed.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <mutex>

namespace quorel::platform {

namespace {

struct Kept {
    Lock lock; // guards what follows
    std::array<char, 512> path{};
    std::size_t length = 0;
    int error = 0;
};

Kept& kept()
{
    return neverDestroyed<Kept>();
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

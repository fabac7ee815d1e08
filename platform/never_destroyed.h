// SPDX-License-Identifier: MIT
// An object that stands in the module's own memory from its first use on and is never destroyed, since the last release of an
// effect may come when statics are gone.
#pragma once

#include <cstddef>
#include <new>

namespace quorel::platform {

// The one of its type.
template <typename T>
T& neverDestroyed()
{
    alignas(T) static std::byte storage[sizeof(T)];
    static T& object = *new (storage) T;
    return object;
}

} // namespace quorel::platform

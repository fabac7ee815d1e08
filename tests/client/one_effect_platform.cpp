// SPDX-License-Identifier: MIT
#include "tests/client/one_effect_platform.h"

#include "platform/sharing.h"

#include <string_view>

namespace quorel {

OneEffect& oneEffect()
{
    static OneEffect effect;
    return effect;
}

namespace platform {

struct Object {
    void* memory; // null: the event
};

Descriptor* convertDescriptor(const char*) noexcept
{
    return nullptr; // the system's own
}

void freeDescriptor(Descriptor*) noexcept {}

Handle openMapping(const char* name) noexcept
{
    void* memory = std::string_view(name) == controlBlockName ? static_cast<void*>(oneEffect().block) : oneEffect().share;
    return memory != nullptr ? new Object{memory} : nullptr;
}

void* mapView(Handle mapping, std::size_t) noexcept
{
    return mapping->memory;
}

void unmapView(void*, std::size_t) noexcept {}

Handle openEvent(const char*) noexcept
{
    return oneEffect().hasEvent ? new Object{nullptr} : nullptr;
}

bool setEvent(Handle) noexcept
{
    if (oneEffect().signalled)
        oneEffect().signalled();
    return true;
}

void closeHandle(Handle object) noexcept
{
    delete object;
}

} // namespace platform
} // namespace quorel

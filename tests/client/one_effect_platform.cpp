// SPDX-License-Identifier: MIT
#include "tests/client/one_effect_platform.h"

#include "platform/refusal.h"
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
    std::size_t bytes = 0;
};

Descriptor* convertDescriptor(const char*) noexcept
{
    return nullptr; // the system's own
}

void freeDescriptor(Descriptor*) noexcept {}

Handle openMapping(const char* name) noexcept
{
    const OneEffect& effect = oneEffect();
    const bool isBlock = std::string_view(name) == controlBlockName;
    if (isBlock && effect.opened)
        effect.opened();
    void* memory = isBlock ? static_cast<void*>(effect.block) : effect.share;
    if (isBlock && effect.refusal != 0) {
        keepRefusal("run/quorel", effect.refusal);
        return nullptr;
    }
    return memory != nullptr ? new Object{memory, isBlock ? effect.blockBytes : hrtfShareBytes} : nullptr;
}

void* mapView(Handle mapping, std::size_t bytes) noexcept
{
    return bytes <= mapping->bytes ? mapping->memory : nullptr;
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
    return oneEffect().takesSignals;
}

void closeHandle(Handle object) noexcept
{
    delete object;
}

} // namespace platform
} // namespace quorel

// SPDX-License-Identifier: MIT
// Somebody else's object under one of the fixed names keeps the effect from starting, for as long as it is there.
#include "host/effect_object.h"

#include "settings/control_block.h"
#include "tests/host/engine.h"

#include <windows.h>

namespace quorel {
namespace {

TEST(OccupiedNames, AnObjectOfAnotherKindKeepsTheEffectFromStarting)
{
    const EndpointEntry entry("Render");
    Effect effect;
    const HANDLE occupier = CreateSemaphoreA(nullptr, 0, 1, controlBlockName);
    ASSERT_NE(occupier, nullptr);
    EXPECT_EQ(effect.initialize(), E_UNEXPECTED);
    CloseHandle(occupier);
    EXPECT_EQ(effect.initialize(), S_OK);
}

} // namespace
} // namespace quorel

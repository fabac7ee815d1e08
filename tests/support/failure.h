// SPDX-License-Identifier: MIT
// How a test catches what is refused, to compare its text or its status.
#pragma once

#include "core/status.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>
#include <typeinfo>

namespace quorel {

// The text of the failure that `act` ends with, whose type must be E itself, or any for void; empty when there is none.
template <class E = void, class Act>
std::string failureText(Act&& act)
{
    try {
        act();
    } catch (const std::exception& failure) {
        if constexpr (!std::is_void_v<E>) {
            EXPECT_EQ(typeid(failure), typeid(E)) << failure.what();
        }
        return failure.what();
    }
    return {};
}

// The status of the kernel that `act` fails in; 0 when none does.
template <class Act>
std::int32_t failureStatus(Act&& act)
{
    try {
        act();
    } catch (const ipps::Error& failure) {
        return failure.status;
    }
    return 0;
}

} // namespace quorel

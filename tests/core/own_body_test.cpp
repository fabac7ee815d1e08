// SPDX-License-Identifier: MIT
#include "core/kernels/select.h"

#include <gtest/gtest.h>

#include <array>

namespace quorel::kernels {

namespace probe {
extern const KernelTable table;
}

namespace {

TEST(OwnBody, AFileAloneReplacesAKernelOfItsVariant)
{
    const std::array<float, 3> a = {1, 2, 3}, b = {10, 20, 30};
    std::array<float, 3> dst{};
    probe::table.add(a.data(), b.data(), dst.data(), 3);
    EXPECT_EQ(dst, (std::array<float, 3>{42, 42, 42}));
}

TEST(OwnBody, TheOtherKernelsKeepTheSharedBodies)
{
    const std::array<float, 3> a = {1, 2, 3}, b = {10, 20, 30};
    std::array<float, 3> dst{};
    probe::table.sub(a.data(), b.data(), dst.data(), 3);
    EXPECT_EQ(dst, (std::array<float, 3>{9, 18, 27}));
    EXPECT_STREQ(probe::table.name, "probe");
}

} // namespace
} // namespace quorel::kernels

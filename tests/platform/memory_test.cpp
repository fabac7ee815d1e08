// SPDX-License-Identifier: MIT
// The operating system's own memory operations.
#include "platform/memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

namespace quorel::platform {
namespace {

TEST(Memory, AllocatedBlocksAreAlignedAndWritable)
{
    void* block = allocateAligned(100000, 64);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U);
    std::memset(block, 1, 100000);
    freeAligned(block);
    freeAligned(nullptr);
}

TEST(Memory, AnAbsurdRequestGivesNull)
{
    EXPECT_EQ(allocateAligned(std::uint64_t{1} << 62, 64), nullptr);
}

TEST(Memory, ASmallBlockCanBeLocked)
{
    void* block = allocateAligned(4096, 64);
    ASSERT_NE(block, nullptr);
    EXPECT_TRUE(lockPages(block, 4096));
    freeAligned(block);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // a sanitizer's own mlock does nothing and never fails
TEST(Memory, PagesThatAreNotThereCannotBeLocked)
{
    EXPECT_FALSE(lockPages(nullptr, 4096));
}
#endif

TEST(Memory, TheLimitsCanBeReadAndWrittenBack)
{
    MemoryLimits limits{};
    ASSERT_TRUE(readMemoryLimits(limits));
    EXPECT_LE(limits.minimum, limits.maximum);
    EXPECT_TRUE(writeMemoryLimits(limits));
}

#ifndef _WIN32 // Wine, under which the Windows build is tested, takes any limits
TEST(Memory, AMinimumAboveTheMaximumIsRefused)
{
    EXPECT_FALSE(writeMemoryLimits({0x900000, 0x800000}));
}
#endif

} // namespace
} // namespace quorel::platform

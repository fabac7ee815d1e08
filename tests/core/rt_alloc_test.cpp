// SPDX-License-Identifier: MIT
#include "core/rt_alloc.h"

#include "tests/core/memory_faulty.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <vector>

namespace quorel {
namespace {

using platform::faultyMemory;

class RtAlloc : public testing::Test {
protected:
    void SetUp() override { faultyMemory = {}; }

    static RtPointer<void> allocate(std::uint64_t bytes) { return RtPointer<void>(rt_alloc(bytes)); }
};

TEST_F(RtAlloc, ZeroBytesGiveNullAndCallNothing)
{
    EXPECT_EQ(rt_alloc(0), nullptr);
    EXPECT_EQ(faultyMemory.allocations + faultyMemory.locks + faultyMemory.reads, 0);
    EXPECT_TRUE(faultyMemory.writes.empty());
}

TEST_F(RtAlloc, BlocksStartOn64ByteBoundaries)
{
    for (std::uint64_t bytes = 1; bytes < 300; ++bytes)
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(allocate(bytes).get()) % 64, 0U);
}

TEST_F(RtAlloc, ALockThatSucceedsLeavesTheLimitsAlone)
{
    EXPECT_NE(allocate(1000), nullptr);
    EXPECT_EQ(faultyMemory.locks, 1);
    EXPECT_EQ(faultyMemory.reads, 0);
    EXPECT_TRUE(faultyMemory.writes.empty());
}

TEST_F(RtAlloc, TheWholeBlockIsLockedAtEitherAttempt)
{
    for (const std::uint64_t bytes : {1U, 1000U, 4096U, 4097U, 1000000U})
        for (const int refused : {0, 1}) {
            faultyMemory = {};
            faultyMemory.failingLocks = refused;
            const auto block = allocate(bytes);
            const std::vector<platform::FaultyMemory::Range> whole(static_cast<std::size_t>(1 + refused), {block.get(), bytes});
            EXPECT_EQ(faultyMemory.lockedRanges, whole) << bytes;
        }
}

TEST_F(RtAlloc, ARefusedLockOfASmallBlockRaisesBothLimitsByOneMebibyte)
{
    faultyMemory.failingLocks = 1;
    EXPECT_NE(allocate(1000), nullptr);
    ASSERT_EQ(faultyMemory.writes.size(), 1U);
    EXPECT_EQ(faultyMemory.writes[0].minimum, 0x200000U + 0x100000U);
    EXPECT_EQ(faultyMemory.writes[0].maximum, 0x800000U + 0x100000U);
    EXPECT_EQ(faultyMemory.locks, 2);
}

TEST_F(RtAlloc, ARefusedLockOfALargeBlockRaisesBothLimitsByTwiceItsSize)
{
    faultyMemory.failingLocks = 1;
    EXPECT_NE(allocate(0x100000), nullptr);
    ASSERT_EQ(faultyMemory.writes.size(), 1U);
    EXPECT_EQ(faultyMemory.writes[0].minimum, 0x200000U + 0x200000U);
    EXPECT_EQ(faultyMemory.writes[0].maximum, 0x800000U + 0x200000U);
}

TEST_F(RtAlloc, TheGrowthIsCutToWholePages)
{
    faultyMemory.failingLocks = 1;
    EXPECT_NE(allocate(0x100000 + 2047), nullptr);
    EXPECT_EQ(faultyMemory.writes.at(0).minimum, 0x200000U + 0x200000U);
    faultyMemory = {};
    faultyMemory.failingLocks = 1;
    EXPECT_NE(allocate(0x100000 + 2048), nullptr);
    EXPECT_EQ(faultyMemory.writes.at(0).minimum, 0x200000U + 0x201000U);
}

TEST_F(RtAlloc, ABlockThatStaysUnpinnedIsUsedAllTheSame)
{
    faultyMemory.failingLocks = 2;
    EXPECT_NE(allocate(1000), nullptr);
    EXPECT_EQ(faultyMemory.locks, 2) << "one lock before the limits are raised and one after, no more";
}

// The system gives a page when it is first written to; to a pinned block it has given all of them.
TEST_F(RtAlloc, ABlockIsWrittenThroughOnlyWhereItStaysUnpinned)
{
    constexpr std::size_t bytes = 10000;
    for (const int refused : {0, 1, 2}) {
        faultyMemory = {};
        faultyMemory.failingLocks = refused;
        const auto block = allocate(bytes);
        const std::vector<std::uint8_t> expected(bytes, refused == 2 ? 0 : platform::unwritten);
        EXPECT_EQ(std::memcmp(block.get(), expected.data(), bytes), 0) << refused;
    }
}

TEST_F(RtAlloc, LimitsThatCannotBeReadEndTheAttempt)
{
    faultyMemory.failingLocks = 1;
    faultyMemory.readFails = true;
    EXPECT_NE(allocate(1000), nullptr);
    EXPECT_TRUE(faultyMemory.writes.empty());
    EXPECT_EQ(faultyMemory.locks, 1);
}

TEST_F(RtAlloc, LimitsThatCannotBeRaisedEndTheAttempt)
{
    faultyMemory.failingLocks = 1;
    faultyMemory.writeFails = true;
    EXPECT_NE(allocate(1000), nullptr);
    EXPECT_EQ(faultyMemory.writes.size(), 1U);
    EXPECT_EQ(faultyMemory.locks, 1);
}

TEST_F(RtAlloc, EachRefusedLockRaisesTheLimitsFurther)
{
    for (std::uint64_t i = 1; i <= 3; ++i) {
        faultyMemory.locks = 0;
        faultyMemory.failingLocks = 1;
        EXPECT_NE(allocate(1000), nullptr);
        EXPECT_EQ(faultyMemory.limits.minimum, 0x200000U + i * 0x100000U);
    }
}

TEST_F(RtAlloc, NoLimitStaysNoLimit)
{
    constexpr auto none = std::numeric_limits<std::uint64_t>::max();
    faultyMemory.limits = {0x200000, none};
    faultyMemory.failingLocks = 1;
    EXPECT_NE(allocate(1000), nullptr);
    EXPECT_EQ(faultyMemory.limits.minimum, 0x300000U);
    EXPECT_EQ(faultyMemory.limits.maximum, none);
}

TEST_F(RtAlloc, ExhaustedMemoryThrows)
{
    faultyMemory.allocationFails = true;
    EXPECT_THROW(static_cast<void>(rt_alloc(1)), std::bad_alloc);
    EXPECT_EQ(faultyMemory.locks, 0);
}

} // namespace
} // namespace quorel

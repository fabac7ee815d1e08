// SPDX-License-Identifier: MIT
// A move between overlapping rows asks the C library for a move. Its copy may do the same on the machine that a test runs on, so
// samples alone do not show which one was asked: the library's copy is watched here.
#include "core/kernels.h"

#include "tests/core/variants.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

int overlappingCopies = 0;

} // namespace

extern "C" {

void* __real_memcpy(void* to, const void* from, std::size_t bytes); // NOLINT(bugprone-reserved-identifier): the linker's name

void* __wrap_memcpy(void* to, const void* from, std::size_t bytes) // NOLINT(bugprone-reserved-identifier): the linker's name
{
    const auto begin = reinterpret_cast<std::uintptr_t>(to);
    const auto source = reinterpret_cast<std::uintptr_t>(from);
    if (begin != source && begin < source + bytes && source < begin + bytes)
        ++overlappingCopies;
    return __real_memcpy(to, from, bytes);
}

} // extern "C"

namespace quorel {
namespace {

class Overlap : public WithVariant {};

TEST_P(Overlap, AMoveBetweenOverlappingRowsIsNoCopy)
{
    std::vector<float> row(4099 + 40);
    for (const std::int32_t len : {20, 64, 480, 4099})
        for (const std::ptrdiff_t shift : {-17, -1, 1, 17}) {
            overlappingCopies = 0;
            ASSERT_EQ(ippsMove_32f(row.data() + 20, row.data() + 20 + shift, len), ippStsNoErr);
            ASSERT_EQ(overlappingCopies, 0) << len << " by " << shift;
        }
}

TEST_P(Overlap, ACopyIsWatched)
{
    std::vector<float> row(480 + 1);
    overlappingCopies = 0;
    ASSERT_EQ(ippsCopy_32f(row.data(), row.data() + 1, 480), ippStsNoErr);
    EXPECT_EQ(overlappingCopies, 1);
}

INSTANTIATE_TEST_SUITE_P(Variant, Overlap, testing::ValuesIn(testedVariants()), variantName);

} // namespace
} // namespace quorel

#include "core/status.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string_view>

namespace quorel {
namespace {

TEST(Status, AnErrorNamesItsStatus)
{
    EXPECT_STREQ(ipps::Error(Status{-6}).what(), "ippStsSizeErr");
}

TEST(Status, AStatusInAGapOfTheTableIsUnknown)
{
    EXPECT_STREQ(ipps::Error(Status{-3}).what(), "Unknown IPP Error!");
}

TEST(Status, CopyingAnErrorKeepsItsStatus)
{
    const ipps::Error error(ippStsSparseErr);
    const ipps::Error copy = error;
    EXPECT_EQ(copy.status, -194);
    EXPECT_STREQ(copy.what(), "ippStsSparseErr");
}

TEST(Status, TheTableHas134RowsInRisingOrder)
{
    constexpr std::int32_t numbers[] = {
#define QUOREL_STATUS(number, name) number,
#include "core/status_names.inc"
#undef QUOREL_STATUS
    };
    EXPECT_EQ(std::size(numbers), 134U);
    EXPECT_TRUE(std::is_sorted(std::begin(numbers), std::end(numbers), std::less_equal<>()));
}

TEST(Status, EveryNumberOutsideTheTableIsUnknown)
{
    int known = 0;
    for (std::int32_t number = -10100; number <= 200; ++number)
        known += std::string_view(statusText(Status{number})) != "Unknown IPP Error!";
    EXPECT_EQ(known, 134);
}

TEST(Status, CheckThrowsWarningsAsItThrowsErrors)
{
    EXPECT_NO_THROW(check(ippStsNoErr));
    EXPECT_THROW(check(ippStsDivByZero), ipps::Error);
    EXPECT_THROW(check(ippStsSizeErr), ipps::Error);
}

} // namespace
} // namespace quorel

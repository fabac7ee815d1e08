// SPDX-License-Identifier: MIT
#include "platform/refusal.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel::platform {
namespace {

const Refusal atFirst = lastRefusal(); // before any test, whichever comes first

TEST(Refusal, AtFirstThereIsNone)
{
    EXPECT_EQ(atFirst.error, 0);
    EXPECT_EQ(atFirst.path, "");
}

TEST(Refusal, TheLastOneIsKept)
{
    keepRefusal("/a/longer/path", 2);
    keepRefusal("/path", 13);
    EXPECT_EQ(lastRefusal().error, 13);
    EXPECT_EQ(lastRefusal().path, "/path");
}

TEST(Refusal, OfALongPathTheFirst512BytesAreKept)
{
    keepRefusal(std::string(511, 'a') + "bc", 2);
    EXPECT_EQ(lastRefusal().path, std::string(511, 'a') + 'b');
}

} // namespace
} // namespace quorel::platform

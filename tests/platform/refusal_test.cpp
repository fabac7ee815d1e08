// SPDX-License-Identifier: MIT
#include "platform/refusal.h"

#include <gtest/gtest.h>

#include <string>

namespace quorel::platform {
namespace {

TEST(Refusal, TheLastOneIsKept)
{
    EXPECT_EQ(lastRefusal().error, 0);
    EXPECT_EQ(lastRefusal().path, "");
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

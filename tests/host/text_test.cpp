// SPDX-License-Identifier: MIT
#include "host/text.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <vector>

namespace quorel {
namespace {

std::string convert(const std::vector<unsigned>& units)
{
    std::vector<WCHAR> text;
    for (const unsigned unit : units)
        text.push_back(static_cast<WCHAR>(unit));
    text.push_back(0);
    return utf8(text.data());
}

TEST(Text, NullIsAnEmptyText)
{
    EXPECT_EQ(utf8(nullptr), "");
    EXPECT_EQ(convert({}), "");
}

// The ends of each length, U+0041, U+007F, U+0080, U+07FF, U+0800, U+FFFF, U+10000, U+10FFFF, and one between them, U+00E9,
// U+20AC, U+1F3A7, in which no two neighbouring six bits are alike.
TEST(Text, EveryLengthOfUtf8IsWritten)
{
    EXPECT_EQ(convert({'A', 0x7F}), "A\x7F");
    EXPECT_EQ(convert({0x80, 0x7FF}), "\xC2\x80\xDF\xBF");
    EXPECT_EQ(convert({0x800, 0xFFFF}), "\xE0\xA0\x80\xEF\xBF\xBF");
    EXPECT_EQ(convert({0xD800, 0xDC00, 0xDBFF, 0xDFFF}), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
    EXPECT_EQ(convert({0xE9, 0x20AC, 0xD83C, 0xDFA7}), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xA7");
}

TEST(Text, HalfAPairBecomesTheReplacementCharacter)
{
    EXPECT_EQ(convert({0xD800}), "\xEF\xBF\xBD");
    EXPECT_EQ(convert({0xDC00, 'x'}), "\xEF\xBF\xBDx");
    EXPECT_EQ(convert({0xD800, 0xD800, 0xDC00}), "\xEF\xBF\xBD\xF0\x90\x80\x80");
}

// The fields of the registered properties have 256 units, the end mark among them.
TEST(Text, AFieldIsFilledCutAndEnded)
{
    WCHAR field[256];
    for (const std::size_t length : {0U, 1U, 254U, 255U, 256U, 300U}) {
        std::ranges::fill(field, WCHAR{'?'});
        fill(field, std::string(length, 'x'));
        const std::size_t kept = std::min<std::size_t>(length, 255);
        EXPECT_EQ(utf8(field), std::string(kept, 'x')) << length;
        EXPECT_EQ(std::count(field + kept, std::end(field), WCHAR{0}), static_cast<std::ptrdiff_t>(256 - kept)) << length;
    }
}

} // namespace
} // namespace quorel

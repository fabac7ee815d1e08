// SPDX-License-Identifier: MIT
#include "host/registration_properties.h"

#include "host/text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quorel {
namespace {

TEST(RegistrationProperties, EveryFieldHasItsValue)
{
    const APO_REG_PROPERTIES& p = registrationProperties;
    const CLSID clsid = {0x5B0E3C92, 0x7D14, 0x4F6A, {0xA2, 0xC8, 0x19, 0xD3, 0xE6, 0x0B, 0x7F, 0x44}};
    EXPECT_TRUE(p.clsid == clsid);
    EXPECT_EQ(p.Flags, 0xF);
    EXPECT_EQ(utf8(p.szFriendlyName), "QUOREL");
    EXPECT_FALSE(utf8(p.szCopyrightInfo).empty());
    EXPECT_EQ(p.u32MajorVersion, 1U);
    EXPECT_EQ(p.u32MinorVersion, 3U);
    EXPECT_EQ(p.u32MinInputConnections, 1U);
    EXPECT_EQ(p.u32MaxInputConnections, 1U);
    EXPECT_EQ(p.u32MinOutputConnections, 1U);
    EXPECT_EQ(p.u32MaxOutputConnections, 1U);
    EXPECT_EQ(p.u32MaxInstances, 0xFFFFFFFFU);
    EXPECT_EQ(p.u32NumAPOInterfaces, 1U);
    const IID own = {0xA4D2C6E7, 0x3B18, 0x4F05, {0x92, 0xE1, 0x6D, 0x07, 0xF1, 0xB8, 0xC3, 0x5A}};
    EXPECT_TRUE(p.iidAPOInterfaceList[0] == own);
}

TEST(RegistrationProperties, TheTextsEndInsideTheirFields)
{
    const auto ends = [](const WCHAR(&field)[256]) { return std::ranges::find(field, WCHAR{0}) != std::end(field); };
    EXPECT_TRUE(ends(registrationProperties.szFriendlyName));
    EXPECT_TRUE(ends(registrationProperties.szCopyrightInfo));
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
#include "platform/registry.h"

#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace quorel::platform {
namespace {

constexpr std::uint32_t keyRead = 0x20019;
constexpr std::uint32_t keyWrite = 0x20006;

class RegistryTest : public testing::Test {
protected:
    RegistryTest() { clean(); }
    ~RegistryTest() override { clean(); }

    static RegistryKey user() { return rootKey(RootKey::currentUser); }

    static void clean()
    {
        for (const char* path : {"Software\\QUOREL test\\inner", "Software\\QUOREL test"})
            static_cast<void>(deleteKey(user(), path, 0));
    }

    static RegistryKey make(const std::string& path)
    {
        RegistryKey key = nullptr;
        EXPECT_EQ(createKey(user(), path, keyRead | keyWrite, key), 0);
        return key;
    }

    // The 32-bit value of a key that is opened anew; the result in its place when it can't be read.
    static std::uint32_t number(const std::string& path, const std::string& name)
    {
        RegistryKey key = nullptr;
        if (const auto result = openKey(user(), path, keyRead, key); result != 0)
            return static_cast<std::uint32_t>(result);
        std::uint32_t value = 0;
        std::uint32_t bytes = sizeof value;
        const auto result = queryValue(key, name, &value, bytes);
        closeKey(key);
        return result == 0 ? value : static_cast<std::uint32_t>(result);
    }

    TemporaryHome home;
};

TEST_F(RegistryTest, AMissingKeyIsNotFound)
{
    RegistryKey key = nullptr;
    EXPECT_EQ(openKey(user(), "Software\\QUOREL test", keyRead, key), 2);
    EXPECT_EQ(deleteKey(user(), "Software\\QUOREL test", 0), 2);
}

TEST_F(RegistryTest, WhatIsSetIsThereWhenTheKeyIsOpenedAgain)
{
    const auto key = make("Software\\QUOREL test");
    EXPECT_EQ(setNumber(key, "Reverb", 170), 0);
    EXPECT_EQ(setNumber(key, "EQBand3", 0xFFFFFFD8), 0);
    closeKey(key);
    EXPECT_EQ(number("Software\\QUOREL test", "Reverb"), 170U);
    EXPECT_EQ(number("Software\\QUOREL test", "EQBand3"), 0xFFFFFFD8U);
    EXPECT_EQ(number("Software\\QUOREL test", "MicNR"), 2U) << "not found";
}

TEST_F(RegistryTest, TwoWhoSetDifferentValuesLoseNone)
{
    const auto one = make("Software\\QUOREL test");
    const auto other = make("Software\\QUOREL test");
    EXPECT_EQ(setNumber(one, "Reverb", 1), 0);
    EXPECT_EQ(setNumber(other, "MicNR", 3), 0);
    closeKey(one);
    closeKey(other);
    EXPECT_EQ(number("Software\\QUOREL test", "Reverb"), 1U);
    EXPECT_EQ(number("Software\\QUOREL test", "MicNR"), 3U);
}

TEST_F(RegistryTest, ATextComesBackInUtf16WithItsEndMark)
{
    const auto key = make("Software\\QUOREL test");
    EXPECT_EQ(setText(key, "", "C:\\a \"b\"\n\xC3\xA9"), 0);
    closeKey(key);
    RegistryKey again = nullptr;
    ASSERT_EQ(openKey(user(), "Software\\QUOREL test", keyRead, again), 0);
    std::array<char16_t, 16> text{};
    std::uint32_t bytes = sizeof text;
    EXPECT_EQ(queryValue(again, "", text.data(), bytes), 0);
    EXPECT_EQ(std::u16string(text.data()), u"C:\\a \"b\"\n\u00E9");
    EXPECT_EQ(bytes, 22U);
    std::uint32_t four = 4;
    EXPECT_EQ(queryValue(again, "", text.data(), four), 234) << "more data than asked for";
    EXPECT_EQ(four, 22U);
    closeKey(again);
}

TEST_F(RegistryTest, AKeyWithKeysBelowItStaysAndOneWithoutGoesWithItsValues)
{
    closeKey(make("Software\\QUOREL test\\inner"));
    const auto key = make("Software\\QUOREL test");
    EXPECT_EQ(setNumber(key, "Reverb", 170), 0);
    closeKey(key);
    EXPECT_NE(deleteKey(user(), "Software\\QUOREL test", 0), 0);
    EXPECT_EQ(number("Software\\QUOREL test", "Reverb"), 170U);
    EXPECT_EQ(deleteKey(user(), "Software\\QUOREL test\\inner", 0), 0);
    EXPECT_EQ(deleteKey(user(), "Software\\QUOREL test", 0), 0);
    EXPECT_EQ(number("Software\\QUOREL test", "Reverb"), 2U);
}

TEST_F(RegistryTest, AKeyOpenedForReadingAloneRefusesToBeWritten)
{
    closeKey(make("Software\\QUOREL test"));
    RegistryKey key = nullptr;
    ASSERT_EQ(openKey(user(), "Software\\QUOREL test", keyRead, key), 0);
    EXPECT_EQ(setNumber(key, "Reverb", 1), 5);
    closeKey(key);
    ASSERT_EQ(openKey(user(), "Software\\QUOREL test", keyWrite, key), 0);
    std::uint32_t value = 0;
    std::uint32_t bytes = sizeof value;
    EXPECT_EQ(queryValue(key, "Reverb", &value, bytes), 5);
    closeKey(key);
}

TEST_F(RegistryTest, KeysAreMadeAndOpenedBelowAnOpenKey)
{
    const auto key = make("Software\\QUOREL test");
    RegistryKey inner = nullptr;
    ASSERT_EQ(createKey(key, "inner", keyWrite, inner), 0);
    EXPECT_EQ(setNumber(inner, "Flags", 15), 0);
    closeKey(inner);
    closeKey(key);
    EXPECT_EQ(number("Software\\QUOREL test\\inner", "Flags"), 15U);
}

} // namespace
} // namespace quorel::platform

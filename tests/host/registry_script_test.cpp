// SPDX-License-Identifier: MIT
#include "host/registry_script.h"

#include "tests/host/registry_fake.h"
#include "tests/support/failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace quorel {
namespace {

using platform::registryFake;
using Values = platform::RegistryFake::Values;

class RegistryScriptTest : public testing::Test {
protected:
    RegistryScriptTest() { registryFake() = {}; }
    ~RegistryScriptTest() override { EXPECT_TRUE(registryFake().open.empty()); }

    static void expectNoScript(const std::string& text, const char* failure = "RegistryScript: not a script")
    {
        EXPECT_EQ((failureText<std::invalid_argument>([&] { RegistryScript(text, {}); })), failure) << text;
        EXPECT_TRUE(registryFake().calls.empty());
    }

    // The default value of the key "K" that is entered with the text s '...'.
    static std::string entered(const std::string& text, const RegistryScript::Replacements& replacements = {})
    {
        EXPECT_EQ(RegistryScript("HKCR { K = s " + text + " }", replacements).enter(), 0);
        return std::get<std::string>(registryFake().keys["K"][""]);
    }
};

TEST_F(RegistryScriptTest, KeysAndValuesAreEntered)
{
    const RegistryScript script("HKCR\r\n{\tA = s 'one'\n{ val V = s 'two' val W = s 'three' B { } C = s 'four' } }", {});
    EXPECT_EQ(script.enter(), 0);
    const decltype(registryFake().keys) expected{
        {"A", {{"", "one"}, {"V", "two"}, {"W", "three"}}}, {"A\\B", {}}, {"A\\C", {{"", "four"}}}};
    EXPECT_EQ(registryFake().keys, expected);
}

TEST_F(RegistryScriptTest, AKeyInBracesIsAName)
{
    EXPECT_EQ(RegistryScript("HKCR { {1234-5678} = s 'x' { } }", {}).enter(), 0);
    EXPECT_TRUE(registryFake().has("{1234-5678}"));
}

TEST_F(RegistryScriptTest, AKeyThatIsForcedIsReplacedWithAllThatStandsBelowIt)
{
    registryFake().keys = {
        {"P", {{"stays", 1U}}}, {"P\\F", {{"old", 1U}}}, {"P\\F\\G", {}}, {"P\\F\\G\\H", {{"old", 2U}}}, {"P\\X", {}}};
    EXPECT_EQ(RegistryScript("HKCR { P { ForceRemove F = s 'new' } }", {}).enter(), 0);
    const decltype(registryFake().keys) expected{{"P", {{"stays", 1U}}}, {"P\\F", {{"", "new"}}}, {"P\\X", {}}};
    EXPECT_EQ(registryFake().keys, expected);
}

TEST_F(RegistryScriptTest, RemovingLeavesTheKeysThatStay)
{
    registryFake().keys = {{"P", {}}, {"P\\F", {}}, {"P\\F\\G", {}}, {"P\\Q", {}}, {"P\\X", {}}};
    EXPECT_EQ(RegistryScript("HKCR { NoRemove P { ForceRemove F { } Q { } } }", {}).remove(), 0);
    const decltype(registryFake().keys) expected{{"P", {}}, {"P\\X", {}}};
    EXPECT_EQ(registryFake().keys, expected);
}

TEST_F(RegistryScriptTest, RemovingWhatIsNotThereIsNoFailure)
{
    const RegistryScript script("HKCR { NoRemove P { ForceRemove F { } } }", {});
    EXPECT_EQ(script.remove(), 0);
    registryFake().keys["P"];
    EXPECT_EQ(script.remove(), 0);
    EXPECT_TRUE(registryFake().has("P"));
}

TEST_F(RegistryScriptTest, TheFirstFailureEndsTheWork)
{
    const RegistryScript script("HKCR { A = s 'a' { val V = s 'v' B { } } C { } }", {});
    registryFake().failingCall = 2; // createKey A, setText, setText V
    EXPECT_EQ(script.enter(), registryFake().failure);
    EXPECT_THAT(registryFake().calls, testing::ElementsAre("createKey A", "setText ", "setText V", "closeKey A"));
}

TEST_F(RegistryScriptTest, AReplacementStandsForItsTextWhateverItsCharacters)
{
    const std::string path = R"(C:\It's 100% "here" %MODULE% ''{ } = s.dll)";
    EXPECT_EQ(entered("'<%MODULE%>'", {{"MODULE", path}}), '<' + path + '>');
    EXPECT_EQ(entered("'%A%%B%'", {{"A", "1"}, {"B", "2"}}), "12");
}

TEST_F(RegistryScriptTest, TwoQuotesAreOneAndTwoPerCentSignsAreOne)
{
    EXPECT_EQ(entered("'it''s'"), "it's");
    EXPECT_EQ(entered("''''"), "'");
    EXPECT_EQ(entered("''"), "");
    EXPECT_EQ(entered("'100%%'"), "100%");
    EXPECT_EQ(entered("' a { b } '"), " a { b } ");
}

TEST_F(RegistryScriptTest, AnUnknownReplacementIsRefused)
{
    expectNoScript("HKCR { K = s '%NOBODY%' }", "RegistryScript: unknown replacement");
}

TEST_F(RegistryScriptTest, WhatIsNoScriptIsRefusedBeforeAnythingIsEntered)
{
    for (const auto* text : {"",
                             "HKCR",
                             "HKCR {",
                             "HKCR { K",
                             "HKCR { K }}",
                             "HKLM { }",
                             "HKCR { } more",
                             "HKCR { K = 'x' }",
                             "HKCR { K = s x }",
                             "HKCR { K = s 'x }",
                             "HKCR { K = s 'x'' }",
                             "HKCR { K = s ' }",
                             "HKCR { val = s 'x' }",
                             "HKCR { val V 'x' }",
                             "HKCR { = s 'x' }",
                             "HKCR { { } }",
                             "HKCR { 'K' }",
                             "HKCR { K = s '%x' }",
                             "HKCR { ForceRemove }",
                             "HKCR { K = d 1 }",
                             "HKCR { K = s '' '' }"})
        expectNoScript(text);
}

} // namespace
} // namespace quorel

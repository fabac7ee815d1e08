// The test whether a key exists, on a registry that writes down how it was asked.
#include "host/registry_key.h"

#include "tests/settings/faulty_platform.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace quorel {
namespace {

std::string failureOf(const std::string& path)
{
    try {
        static_cast<void>(registryKeyExists(path));
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return "none";
}

TEST(RegistryKey, AnUnknownRootFails)
{
    for (const char* path : {"HKEY_LOCAL_MACHIN\\SOFTWARE", "hkey_local_machine\\SOFTWARE", "HKLM\\SOFTWARE", "\\SOFTWARE"})
        EXPECT_EQ(failureOf(path), "Unknown root key ") << path;
}

TEST(RegistryKey, APathWithoutABackslashFails)
{
    for (const char* path : {"", "HKEY_LOCAL_MACHINE", "HKEY_LOCAL_MACHINE/SOFTWARE"})
        EXPECT_EQ(failureOf(path), "Invalid key format") << path;
}

// 257 is 0x101: to ask for values, in the registry of 64-bit programs.
TEST(RegistryKey, AKeyThatExistsIsOpenedForQuestionsAndClosed)
{
    auto& registry = platform::faultyPlatform();
    registry.reset();
    registry.keys["?SOFTWARE\\One\\Two"];
    EXPECT_TRUE(registryKeyExists("HKEY_LOCAL_MACHINE\\SOFTWARE\\One\\Two"));
    EXPECT_EQ(registry.takeCalls(), (std::vector<std::string>{"openKey SOFTWARE\\One\\Two 257", "closeKey"}));
    EXPECT_FALSE(registryKeyExists("HKEY_LOCAL_MACHINE\\SOFTWARE\\One"));
    EXPECT_EQ(registry.takeCalls(), std::vector<std::string>{"openKey SOFTWARE\\One 257"});
}

// The faulty registry knows the current user's root from all the others.
TEST(RegistryKey, EachRootIsKnownByItsName)
{
    auto& registry = platform::faultyPlatform();
    registry.reset();
    registry.keys["?Key"];
    for (const char* root : {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_CONFIG", "HKEY_LOCAL_MACHINE", "HKEY_USERS"})
        EXPECT_TRUE(registryKeyExists(std::string(root) + "\\Key")) << root;
    EXPECT_FALSE(registryKeyExists("HKEY_CURRENT_USER\\Key"));
    registry.keys["Key"];
    EXPECT_TRUE(registryKeyExists("HKEY_CURRENT_USER\\Key"));
}

} // namespace
} // namespace quorel

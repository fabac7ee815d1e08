// SPDX-License-Identifier: MIT
// The test whether a key exists, on a registry that writes down how it was asked.
#include "host/registry_key.h"

#include "tests/host/registry_fake.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

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

// 0x101: to ask for values, in the registry of 64-bit programs.
TEST(RegistryKey, AKeyThatExistsIsOpenedForQuestionsAndClosed)
{
    auto& registry = platform::registryFake();
    registry = {};
    const std::string key = "HKEY_LOCAL_MACHINE\\SOFTWARE\\One\\Two";
    registry.keys[key];
    EXPECT_TRUE(registryKeyExists(key));
    EXPECT_EQ(registry.calls, (std::vector<std::string>{"openKey " + key, "closeKey " + key}));
    EXPECT_EQ(registry.access[key], 0x101U);
    registry.calls.clear();
    EXPECT_FALSE(registryKeyExists("HKEY_LOCAL_MACHINE\\SOFTWARE\\One"));
    EXPECT_EQ(registry.calls, std::vector<std::string>{"openKey HKEY_LOCAL_MACHINE\\SOFTWARE\\One"});
}

// Each root has a key that no other one has.
TEST(RegistryKey, EachRootIsKnownByItsName)
{
    auto& registry = platform::registryFake();
    registry = {};
    const std::vector<std::string> roots = {"HKEY_CLASSES_ROOT", "HKEY_CURRENT_CONFIG", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE",
                                            "HKEY_USERS"};
    for (const auto& root : roots)
        registry.keys[(root == "HKEY_CLASSES_ROOT" ? "" : root + "\\") + "In " + root];
    for (const auto& root : roots)
        for (const auto& key : roots)
            EXPECT_EQ(registryKeyExists(root + "\\In " + key), root == key) << root << ' ' << key;
}

} // namespace
} // namespace quorel

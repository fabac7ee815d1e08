// SPDX-License-Identifier: MIT
// A power failure leaves the old values or the new: they are on the disk before they get their name, and the name is there after.
#include "platform/registry.h"
#include "platform/user_directory_linux.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> calls; // of the two below, in their order
uid_t otherUser = 0;            // whom the process believes to be; 0: itself

} // namespace

extern "C" {
int __real_fsync(int file);
int __real_renameat(int oldFolder, const char* from, int newFolder, const char* to);
uid_t __real_geteuid();

int __wrap_fsync(int file)
{
    struct stat found {};
    fstat(file, &found);
    calls.emplace_back(S_ISDIR(found.st_mode) ? "fsync of the folder" : "fsync of the file");
    return __real_fsync(file);
}

int __wrap_renameat(int oldFolder, const char* from, int newFolder, const char* to)
{
    calls.emplace_back("rename");
    return __real_renameat(oldFolder, from, newFolder, to);
}

uid_t __wrap_geteuid()
{
    return otherUser != 0 ? otherUser : __real_geteuid();
}
}

namespace quorel::platform {
namespace {

constexpr std::uint32_t keyWrite = 0x20006;

TEST(KeptValues, AreOnTheDiskBeforeTheyGetTheirName)
{
    const TemporaryHome home;
    RegistryKey key = nullptr;
    ASSERT_EQ(createKey(rootKey(RootKey::currentUser), "Software\\Test", keyWrite, key), 0U);
    ASSERT_EQ(setNumber(key, "Number", 7), 0U);
    calls.clear();
    closeKey(key);
    EXPECT_EQ(calls, (std::vector<std::string>{"fsync of the file", "rename", "fsync of the folder"}));
}

TEST(TheUsersDirectory, IsRefusedWhenItIsSomebodyElses)
{
    const TemporaryHome home;
    const auto opened = [](Place place) { return static_cast<bool>(UserDirectory(place, IfMissing::isMade)); };
    ASSERT_TRUE(opened(Place::state));
    otherUser = geteuid() + 1; // as if the directory were not this user's
    EXPECT_FALSE(opened(Place::state));
    otherUser = 0;
    EXPECT_TRUE(opened(Place::state));
}

} // namespace
} // namespace quorel::platform

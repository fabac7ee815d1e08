// Nobody but the user gets at what processes of the user share by name.
#include "platform/user_directory_linux.h"

#include "platform/registry.h"
#include "platform/sharing.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* memory = "Global\\QUORELTestMem";

class UserDirectoryTest : public testing::Test {
protected:
    fs::path directory() const { return home.path() / ".local/state/quorel"; }

    static void write(const fs::path& file, const std::string& content)
    {
        std::ofstream(file, std::ios::binary) << content;
        fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    }

    static std::string content(const fs::path& file)
    {
        std::ostringstream text;
        text << std::ifstream(file, std::ios::binary).rdbuf();
        return text.str();
    }

    static fs::perms access(const fs::path& file) { return fs::status(file).permissions(); }

    static Handle makeMapping() { return createMapping(memory, 1060, convertDescriptor("D:(A;;GA;;;BA)")); }

    TemporaryHome home;
};

TEST_F(UserDirectoryTest, IsMadeForItsOwnerAlone)
{
    EXPECT_TRUE(UserDirectory());
    EXPECT_EQ(access(directory()), fs::perms::owner_all);
}

TEST_F(UserDirectoryTest, IsRefusedWhenAnybodyElseCouldEnterIt)
{
    fs::create_directories(directory());
    fs::permissions(directory(), fs::perms(0750));
    EXPECT_FALSE(UserDirectory());
    EXPECT_EQ(makeMapping(), nullptr);
    EXPECT_EQ(createEvent("Global\\QUORELTestEvent", nullptr), nullptr);
    RegistryKey key = nullptr;
    EXPECT_EQ(createKey(rootKey(RootKey::currentUser), "Software", 0x20006, key), 5);
}

TEST_F(UserDirectoryTest, IsRefusedWhenItIsALinkToSomewhereElse)
{
    const auto elsewhere = home.path() / "elsewhere";
    fs::create_directories(elsewhere);
    fs::permissions(elsewhere, fs::perms::owner_all);
    fs::create_directories(directory().parent_path());
    fs::create_directory_symlink(elsewhere, directory());
    EXPECT_FALSE(UserDirectory());
}

TEST_F(UserDirectoryTest, TheObjectsBelongToTheUserAloneAndAMappingHasANameThatNobodyCanGuess)
{
    const auto mapping = makeMapping();
    ASSERT_NE(mapping, nullptr);
    const auto name = content(directory() / "memory.QUORELTestMem");
    ASSERT_EQ(name.size(), 40U) << name; // "/quorel-" and 128 bits in hexadecimal digits
    EXPECT_EQ(access("/dev/shm" + name), fs::perms::owner_read | fs::perms::owner_write);
    const auto event = createEvent("Global\\QUORELTestEvent", nullptr);
    EXPECT_EQ(access(directory() / "event.QUORELTestEvent"), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(fs::is_fifo(directory() / "event.QUORELTestEvent"));
    closeHandle(event);
    closeHandle(mapping);
    shm_unlink(name.c_str());
}

TEST_F(UserDirectoryTest, WhatAProcessThatIsGoneLeftBehindIsTakenAwayWithTheNextMapping)
{
    closeHandle(makeMapping());
    const auto leftOver = content(directory() / "memory.QUORELTestMem");
    EXPECT_TRUE(fs::exists("/dev/shm" + leftOver));
    const auto mapping = makeMapping();
    const auto fresh = content(directory() / "memory.QUORELTestMem");
    EXPECT_FALSE(fs::exists("/dev/shm" + leftOver));
    EXPECT_NE(fresh, leftOver);
    closeHandle(mapping);
    shm_unlink(fresh.c_str());
}

TEST_F(UserDirectoryTest, AnEventsPlaceThatIsTakenByAnythingButAFifoIsRefused)
{
    ASSERT_TRUE(UserDirectory());
    write(directory() / "event.QUORELTestEvent", "");
    EXPECT_EQ(createEvent("Global\\QUORELTestEvent", nullptr), nullptr);
    EXPECT_EQ(openEvent("Global\\QUORELTestEvent"), nullptr);
}

TEST_F(UserDirectoryTest, ARecordThatNamesNoMappingOfOursIsTakenForNone)
{
    ASSERT_TRUE(UserDirectory());
    for (const std::string& name :
         std::vector<std::string>{"", "/quorel-", "/../etc/passwd", "/quorel-../../../etc/passwd0000000000000",
                                  "/quorel-0123456789abcdef0123456789abcdeg"}) {
        write(directory() / "memory.QUORELTestMem", name);
        EXPECT_EQ(openMapping(memory), nullptr) << name;
    }
    const auto mapping = makeMapping();
    EXPECT_NE(mapping, nullptr);
    closeHandle(mapping);
    shm_unlink(content(directory() / "memory.QUORELTestMem").c_str());
}

TEST_F(UserDirectoryTest, AMappingThatSomebodyCutIsNotMappedBeyondItsEnd)
{
    const auto mapping = makeMapping();
    const auto name = content(directory() / "memory.QUORELTestMem");
    ASSERT_EQ(truncate(("/dev/shm" + name).c_str(), 100), 0);
    const auto opened = openMapping(memory);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(mapView(opened, 1060), nullptr);
    closeHandle(opened);
    closeHandle(mapping);
    shm_unlink(name.c_str());
}

TEST_F(UserDirectoryTest, KeptValuesAreReadableLines)
{
    RegistryKey key = nullptr;
    ASSERT_EQ(createKey(rootKey(RootKey::currentUser), "Software\\VEDRA\\QUOREL", 0x20006, key), 0);
    EXPECT_EQ(setNumber(key, "Reverb", 170), 0);
    EXPECT_EQ(setText(key, "Name", "a \"b\" \\"), 0);
    closeKey(key);
    const auto file = directory() / "registry/HKEY_CURRENT_USER/Software/VEDRA/QUOREL/.values";
    EXPECT_EQ(content(file), "\"Name\"=\"a \\\"b\\\" \\\\\"\n\"Reverb\"=dword:000000aa\n");
    EXPECT_EQ(access(file), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(UserDirectoryTest, LinesThatSayNothingArePassedOver)
{
    RegistryKey key = nullptr;
    ASSERT_EQ(createKey(rootKey(RootKey::currentUser), "Key", 0x20006, key), 0);
    closeKey(key);
    write(directory() / "registry/HKEY_CURRENT_USER/Key/.values", "\"A\"=dword:00000001\nnonsense\n\"B\"=dword:xyz\n\"C=dword:"
                                                                  "00000003\n\"D\"=dword:100000000\n@\n\"E\"=\"x\n\"F\"=dword:6");
    ASSERT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x20019, key), 0);
    const auto result = [&](const char* name) {
        std::uint32_t value = 0;
        std::uint32_t bytes = sizeof value;
        const auto failure = queryValue(key, name, &value, bytes);
        return failure == 0 ? value : 1000 + static_cast<std::uint32_t>(failure);
    };
    EXPECT_EQ(result("A"), 1U);
    for (const char* name : {"B", "C", "D", "E", ""})
        EXPECT_EQ(result(name), 1002U) << name;
    EXPECT_EQ(result("F"), 6U);
    closeKey(key);
}

TEST_F(UserDirectoryTest, PathsThatWouldLeaveTheTreeAreRefused)
{
    RegistryKey key = nullptr;
    for (const char* path : {"..", "a\\..\\b", "a/b", ".values", "a\\\\b"}) {
        EXPECT_EQ(createKey(rootKey(RootKey::currentUser), path, 0x20006, key), 87) << path;
        EXPECT_EQ(openKey(rootKey(RootKey::currentUser), path, 0x20019, key), 2) << path;
    }
}

// A power failure in the middle of a write leaves a half-written new file beside the old one.
TEST_F(UserDirectoryTest, AHalfWrittenReplacementIsPassedOverAndTheOldValuesStand)
{
    RegistryKey key = nullptr;
    ASSERT_EQ(createKey(rootKey(RootKey::currentUser), "Key", 0x2001F, key), 0);
    EXPECT_EQ(setNumber(key, "Reverb", 170), 0);
    closeKey(key);
    const auto folder = directory() / "registry/HKEY_CURRENT_USER/Key";
    write(folder / ".values.new", "\"Reverb\"=dwo");
    ASSERT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x2001F, key), 0);
    std::uint32_t value = 0;
    std::uint32_t bytes = sizeof value;
    EXPECT_EQ(queryValue(key, "Reverb", &value, bytes), 0);
    EXPECT_EQ(value, 170U);
    EXPECT_EQ(setNumber(key, "Reverb", 171), 0);
    closeKey(key);
    EXPECT_EQ(content(folder / ".values"), "\"Reverb\"=dword:000000ab\n");
    EXPECT_FALSE(fs::exists(folder / ".values.new"));
}

} // namespace
} // namespace quorel::platform

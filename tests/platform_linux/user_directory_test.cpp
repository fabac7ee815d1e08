// SPDX-License-Identifier: MIT
// Nobody but the user gets at what processes of the user share by name.
#include "platform/user_directory_linux.h"

#include "platform/refusal.h"
#include "platform/registry.h"
#include "platform/sharing.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace quorel::platform {
namespace {

namespace fs = std::filesystem;

constexpr const char* memory = "Global\\QUORELTestMem";

class UserDirectoryTest : public testing::Test {
protected:
    fs::path runtime() const { return home.path() / "run/quorel"; }
    fs::path state() const { return home.path() / ".local/state/quorel"; }

    static UserDirectory made(Place place) { return {place, IfMissing::isMade}; }

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

    std::vector<fs::path> fifos() const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(runtime())) {
            if (entry.path().filename().string().starts_with("event."))
                found.push_back(entry.path());
        }
        return found;
    }

    static Handle makeMapping() { return createMapping(memory, 1060, convertDescriptor("D:(A;;GA;;;BA)")); }

    TemporaryHome home;
};

TEST_F(UserDirectoryTest, IsMadeForItsOwnerAlone)
{
    EXPECT_TRUE(made(Place::runtime));
    EXPECT_TRUE(made(Place::state));
    EXPECT_EQ(access(runtime()), fs::perms::owner_all);
    EXPECT_EQ(access(state()), fs::perms::owner_all);
}

TEST_F(UserDirectoryTest, IsRefusedWhenAnybodyElseCouldEnterIt)
{
    for (const auto& directory : {runtime(), state()}) {
        fs::create_directories(directory);
        fs::permissions(directory, fs::perms(0750));
    }
    EXPECT_FALSE(made(Place::runtime));
    EXPECT_EQ(makeMapping(), nullptr);
    EXPECT_EQ(createEvent("Global\\QUORELTestEvent", nullptr), nullptr);
    EXPECT_EQ(lastRefusal().path, runtime());
    EXPECT_EQ(lastRefusal().error, EACCES);
    RegistryKey key = nullptr;
    EXPECT_EQ(createKey(rootKey(RootKey::currentUser), "Software", 0x20006, key), 5);
    EXPECT_EQ(lastRefusal().path, state());
}

TEST_F(UserDirectoryTest, IsRefusedWhenItIsALinkToSomewhereElse)
{
    const auto elsewhere = home.path() / "elsewhere";
    fs::create_directories(elsewhere);
    fs::permissions(elsewhere, fs::perms::owner_all);
    fs::create_directories(state().parent_path());
    fs::create_directory_symlink(elsewhere, state());
    fs::create_directory_symlink(elsewhere, runtime());
    EXPECT_FALSE(made(Place::state));
    EXPECT_FALSE(made(Place::runtime));
}

TEST_F(UserDirectoryTest, WithoutARuntimeDirectoryOfTheUserTheOtherOneServes)
{
    for (const std::string& none : {std::string(), std::string("run"), (home.path() / "missing").string()}) {
        setenv("XDG_RUNTIME_DIR", none.c_str(), 1);
        const auto mapping = makeMapping();
        ASSERT_NE(mapping, nullptr) << none;
        const auto name = content(state() / "memory.QUORELTestMem");
        EXPECT_EQ(name.size(), 40U) << none;
        closeHandle(mapping);
        shm_unlink(name.c_str());
    }
    EXPECT_FALSE(fs::exists(runtime()));
}

TEST_F(UserDirectoryTest, AHomeThatTakesNothingStopsNoSharedObject)
{
    setenv("HOME", "/proc", 1); // nobody makes a directory there
    const auto mapping = makeMapping();
    const auto event = createEvent("Global\\QUORELTestEvent", nullptr);
    EXPECT_NE(mapping, nullptr);
    EXPECT_NE(event, nullptr);
    closeHandle(mapping);
    closeHandle(event);
    RegistryKey key = nullptr;
    EXPECT_EQ(openKey(rootKey(RootKey::currentUser), "Software", 0x20019, key), 2) << "a missing key is no error";
    EXPECT_NE(createKey(rootKey(RootKey::currentUser), "Software", 0x20006, key), 0);
}

TEST_F(UserDirectoryTest, WhoOnlyLooksMakesNothing)
{
    EXPECT_EQ(openMapping(memory), nullptr);
    EXPECT_EQ(openEvent("Global\\QUORELTestEvent"), nullptr);
    RegistryKey key = nullptr;
    EXPECT_EQ(openKey(rootKey(RootKey::currentUser), "Software", 0x20019, key), 2);
    EXPECT_EQ(deleteKey(rootKey(RootKey::currentUser), "Software", 0), 2);
    EXPECT_FALSE(fs::exists(runtime()));
    EXPECT_FALSE(fs::exists(home.path() / ".local"));
}

// As for root with a user's variables: what it made there would lock the user out.
TEST_F(UserDirectoryTest, NothingIsMadeInADirectoryOfSomebodyElse)
{
    fs::path others = "/";
    if (geteuid() == 0) {
        others = home.path() / "others";
        fs::create_directory(others);
        ASSERT_EQ(chown(others.c_str(), 12345, 12345), 0);
    }
    setenv("HOME", others.c_str(), 1);
    setenv("XDG_RUNTIME_DIR", others.c_str(), 1);
    EXPECT_EQ(makeMapping(), nullptr);
    EXPECT_EQ(lastRefusal().error, EPERM);
    EXPECT_EQ(lastRefusal().path, others / ".local/state/quorel");
    EXPECT_FALSE(fs::exists(others / ".local"));
    EXPECT_FALSE(fs::exists(others / "quorel"));
}

TEST_F(UserDirectoryTest, TheObjectsAreTheUsersAloneAndNobodyGuessesAMappingsName)
{
    const auto mapping = makeMapping();
    ASSERT_NE(mapping, nullptr);
    const auto name = content(runtime() / "memory.QUORELTestMem");
    ASSERT_EQ(name.size(), 40U) << name; // "/quorel-" and 128 bits in hexadecimal digits
    EXPECT_EQ(access("/dev/shm" + name), fs::perms::owner_read | fs::perms::owner_write);
    const auto event = createEvent("Global\\QUORELTestEvent", nullptr);
    const auto fifo = fifos();
    ASSERT_EQ(fifo.size(), 1U);
    EXPECT_EQ(access(fifo[0]), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(fs::is_fifo(fifo[0]));
    closeHandle(event);
    closeHandle(mapping);
    shm_unlink(name.c_str());
}

// The next program of any kind takes it away, and be it one that only looks.
TEST_F(UserDirectoryTest, WhatProcessesThatAreGoneLeftBehindIsTakenAway)
{
    const auto one = makeMapping();
    const auto two = createMapping("Global\\QUORELTestOther", 4096, convertDescriptor("D:(A;;GA;;;BA)"));
    const auto leftOver = content(runtime() / "memory.QUORELTestMem");
    const auto other = content(runtime() / "memory.QUORELTestOther");
    closeHandle(one);
    closeHandle(two);
    ASSERT_TRUE(fs::exists("/dev/shm" + leftOver));
    ASSERT_TRUE(fs::exists("/dev/shm" + other));
    EXPECT_EQ(openMapping(memory), nullptr);
    EXPECT_FALSE(fs::exists("/dev/shm" + leftOver));
    EXPECT_FALSE(fs::exists("/dev/shm" + other));
    EXPECT_FALSE(fs::exists(runtime() / "memory.QUORELTestMem"));

    ASSERT_EQ(mkfifo((runtime() / "event.QUORELTestEvent.1.2").c_str(), 0600), 0);
    EXPECT_EQ(openEvent("Global\\QUORELTestEvent"), nullptr);
    EXPECT_TRUE(fifos().empty());
}

TEST_F(UserDirectoryTest, WhatIsHeldIsTakenAwayByNobody)
{
    const auto held = makeMapping();
    EXPECT_EQ(openMapping("Global\\QUORELTestOther"), nullptr);
    const auto opened = openMapping(memory);
    EXPECT_NE(opened, nullptr);
    closeHandle(opened);
    closeHandle(held);
}

TEST_F(UserDirectoryTest, AnythingButAFifoAmongAnEventsOnesIsPassedOver)
{
    ASSERT_TRUE(made(Place::runtime));
    write(runtime() / "event.QUORELTestEvent.1", "");
    EXPECT_EQ(openEvent("Global\\QUORELTestEvent"), nullptr);
    write(runtime() / "event.QUORELTestEvent.1", "");
    const auto event = createEvent("Global\\QUORELTestEvent", nullptr);
    ASSERT_NE(event, nullptr);
    write(runtime() / "event.QUORELTestEvent.1", "");
    EXPECT_TRUE(setEvent(event));
    EXPECT_TRUE(waitFor(event, 0));
    EXPECT_EQ(content(runtime() / "event.QUORELTestEvent.1"), "");
    closeHandle(event);
}

TEST_F(UserDirectoryTest, ARecordThatNamesNoMappingOfOursIsTakenForNone)
{
    ASSERT_TRUE(made(Place::runtime));
    for (const std::string& name :
         std::vector<std::string>{"", "/quorel-", "/../etc/passwd", "/quorel-../../../etc/passwd0000000000000",
                                  "/quorel-0123456789abcdef0123456789abcdeg"}) {
        write(runtime() / "memory.QUORELTestMem", name);
        EXPECT_EQ(openMapping(memory), nullptr) << name;
    }
    const auto mapping = makeMapping();
    EXPECT_NE(mapping, nullptr);
    closeHandle(mapping);
    shm_unlink(content(runtime() / "memory.QUORELTestMem").c_str());
}

TEST_F(UserDirectoryTest, AMappingThatSomebodyCutIsNotMappedBeyondItsEnd)
{
    const auto mapping = makeMapping();
    const auto name = content(runtime() / "memory.QUORELTestMem");
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
    const auto file = state() / "registry/HKEY_CURRENT_USER/Software/VEDRA/QUOREL/.values";
    EXPECT_EQ(content(file), "\"Name\"=\"a \\\"b\\\" \\\\\"\n\"Reverb\"=dword:000000aa\n");
    EXPECT_EQ(access(file), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(UserDirectoryTest, LinesThatSayNothingArePassedOver)
{
    RegistryKey key = nullptr;
    ASSERT_EQ(createKey(rootKey(RootKey::currentUser), "Key", 0x20006, key), 0);
    closeKey(key);
    write(state() / "registry/HKEY_CURRENT_USER/Key/.values", "\"A\"=dword:00000001\nnonsense\n\"B\"=dword:xyz\n\"C=dword:"
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
    const auto folder = state() / "registry/HKEY_CURRENT_USER/Key";
    const auto half = folder / ".new.0123456789abcdef0123456789abcdef";
    write(half, "\"Reverb\"=dwo");
    ASSERT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x2001F, key), 0);
    std::uint32_t value = 0;
    std::uint32_t bytes = sizeof value;
    EXPECT_EQ(queryValue(key, "Reverb", &value, bytes), 0);
    EXPECT_EQ(value, 170U);
    EXPECT_EQ(setNumber(key, "Reverb", 171), 0);
    closeKey(key);
    EXPECT_EQ(content(folder / ".values"), "\"Reverb\"=dword:000000ab\n");
    EXPECT_FALSE(fs::exists(half));
}

// What somebody is writing in this moment has its lock.
TEST_F(UserDirectoryTest, AReplacementThatIsBeingWrittenStays)
{
    ASSERT_TRUE(made(Place::state));
    const auto half = state() / ".new.0123456789abcdef0123456789abcdef";
    write(half, "half");
    const File writer(open(half.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(flock(writer.get(), LOCK_EX | LOCK_NB), 0);
    EXPECT_TRUE(replaceFile(made(Place::state).get(), "file", "whole"));
    EXPECT_EQ(content(state() / "file"), "whole");
    EXPECT_TRUE(fs::exists(half));
}

// ---- Values that are there and can't be read ------------------------------------------------------------------------

class UnreadableValuesTest : public UserDirectoryTest {
protected:
    UnreadableValuesTest()
    {
        RegistryKey key = nullptr;
        EXPECT_EQ(createKey(rootKey(RootKey::currentUser), "Key", 0x20006, key), 0);
        EXPECT_EQ(setNumber(key, "Reverb", 170), 0);
        closeKey(key);
    }

    fs::path values() const { return state() / "registry/HKEY_CURRENT_USER/Key/.values"; }

    // Neither for reading nor for writing is the key opened, and the last refusal tells why.
    void expectRefused(int error, RegistryResult result) const
    {
        RegistryKey key = nullptr;
        EXPECT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x20019, key), result);
        EXPECT_EQ(lastRefusal().error, error);
        EXPECT_EQ(lastRefusal().path, values());
        EXPECT_NE(createKey(rootKey(RootKey::currentUser), "Key", 0x20006, key), 0);
    }
};

TEST_F(UnreadableValuesTest, AFileThatOthersCouldUseIsRefusedAndStays)
{
    fs::permissions(values(), fs::perms(0644));
    expectRefused(EACCES, 5);
    EXPECT_EQ(content(values()), "\"Reverb\"=dword:000000aa\n");
}

TEST_F(UnreadableValuesTest, ALinkInItsPlaceIsRefusedAndStays)
{
    fs::rename(values(), home.path() / "values");
    fs::create_symlink(home.path() / "values", values());
    expectRefused(ELOOP, 5);
    EXPECT_TRUE(fs::is_symlink(values()));
    EXPECT_EQ(content(home.path() / "values"), "\"Reverb\"=dword:000000aa\n");
}

TEST_F(UnreadableValuesTest, AFileOfMoreThan64KiBIsRefusedAndStays)
{
    const std::string line = "\"Reverb\"=dword:000000aa\n";
    write(values(), line + std::string(65536 - line.size(), '\n'));
    RegistryKey key = nullptr;
    EXPECT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x20019, key), 0);
    closeKey(key);
    write(values(), line + std::string(65537 - line.size(), '\n'));
    expectRefused(EFBIG, 29);
    EXPECT_EQ(content(values()).size(), 65537U);
}

// What this process had no descriptors to read it does not write over later, when it has some.
TEST_F(UnreadableValuesTest, WithoutDescriptorsAKeyIsRefusedUntilItHasBeenRead)
{
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    rlimit least = usual;
    least.rlim_cur = static_cast<rlim_t>(File(open("/dev/null", O_RDONLY | O_CLOEXEC)).get()) + 2; // not enough for the file too
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &least), 0);
    RegistryKey key = nullptr;
    const auto refused = openKey(rootKey(RootKey::currentUser), "Key", 0x20019, key);
    setrlimit(RLIMIT_NOFILE, &usual);
    EXPECT_EQ(refused, 29);
    EXPECT_EQ(lastRefusal().error, EMFILE);
    EXPECT_EQ(createKey(rootKey(RootKey::currentUser), "Key", 0x20006, key), 5);

    ASSERT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x20019, key), 0);
    closeKey(key);
    EXPECT_EQ(createKey(rootKey(RootKey::currentUser), "Key", 0x20006, key), 0);
    closeKey(key);
}

TEST_F(UnreadableValuesTest, AKeyWithoutValuesIsLikeOthers)
{
    fs::remove(values());
    RegistryKey key = nullptr;
    EXPECT_EQ(openKey(rootKey(RootKey::currentUser), "Key", 0x20019, key), 0);
    closeKey(key);
}

TEST_F(UserDirectoryTest, WithoutAHomeInTheEnvironmentTheAccountsIsTaken)
{
    const passwd* const account = getpwuid(geteuid());
    ASSERT_NE(account, nullptr);
    const std::string wanted = std::string(account->pw_dir) + "/.local/state/quorel/x";
    unsetenv("HOME");
    EXPECT_EQ(UserDirectory(Place::state, IfMissing::isNone).pathOf("x"), wanted);
    setenv("HOME", "not/absolute", 1);
    EXPECT_EQ(UserDirectory(Place::state, IfMissing::isNone).pathOf("x"), wanted);
}

} // namespace
} // namespace quorel::platform

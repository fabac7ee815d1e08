// SPDX-License-Identifier: MIT
// An effect process for which the system has nothing left: it starts, or tells why not, at once, and what was kept stays kept.
#include "platform/refusal.h"
#include "platform/registry.h"
#include "tests/settings_linux/effect_process.h"
#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace {

// What the system refuses to the calling process, each with this error.
struct Refused {
    int lock = 0;
    int sharedMemory = 0;
    int room = 0; // in the shared memory
};

Refused refused;

} // namespace

extern "C" {
int __real_flock(int file, int how);
int __real_shm_open(const char* name, int how, mode_t mode);
int __real_posix_fallocate(int file, off_t begin, off_t bytes);

int __wrap_flock(int file, int how)
{
    errno = refused.lock;
    return refused.lock != 0 ? -1 : __real_flock(file, how);
}

int __wrap_shm_open(const char* name, int how, mode_t mode)
{
    errno = refused.sharedMemory;
    return refused.sharedMemory != 0 ? -1 : __real_shm_open(name, how, mode);
}

int __wrap_posix_fallocate(int file, off_t begin, off_t bytes)
{
    return refused.room != 0 ? refused.room : __real_posix_fallocate(file, begin, bytes);
}
}

namespace quorel {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ResourcesTest : public testing::Test {
protected:
    ResourcesTest() { keep(170); }

    static constexpr const char* key = "Software\\VEDRA\\QUOREL";
    inline static const platform::RegistryKey user = platform::rootKey(platform::RootKey::currentUser);

    static void keep(std::uint32_t reverb)
    {
        platform::RegistryKey opened = nullptr;
        EXPECT_EQ(platform::createKey(user, key, 0x20006, opened), 0);
        EXPECT_EQ(platform::setNumber(opened, "Reverb", reverb), 0);
        EXPECT_EQ(platform::setNumber(opened, "Another", 5), 0); // that no effect knows
        platform::closeKey(opened);
    }

    static std::uint32_t kept()
    {
        platform::RegistryKey opened = nullptr;
        EXPECT_EQ(platform::openKey(user, key, 0x20019, opened), 0);
        const auto value = [opened](const char* name) {
            std::uint32_t number = 0;
            std::uint32_t bytes = sizeof number;
            EXPECT_EQ(platform::queryValue(opened, name, &number, bytes), 0) << name;
            return number;
        };
        const auto reverb = value("Reverb");
        EXPECT_EQ(value("Another"), 5U);
        platform::closeKey(opened);
        return reverb;
    }

    // Set before the home is made, which comes and goes often.
    struct InMemory {
        InMemory() { setenv("TMPDIR", "/dev/shm", 1); }
    } inMemory;
    TemporaryHome home;
};

// With each number of free descriptors up to more than enough. Values that were not read for lack of them are not written over
// when there are some again.
TEST_F(ResourcesTest, WithoutDescriptorsAStartFailsOrRunsAndLosesNothing)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "A sanitizer needs descriptors itself.";
#endif
    rlimit usual{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
    std::map<std::string, int> starts;
    for (rlim_t free = 0; free < 20; ++free) {
        keep(170);
        EffectProcess effect([free, usual] {
            const auto used = std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}) - 1;
            const rlimit few{static_cast<rlim_t>(used) + free, usual.rlim_max};
            setrlimit(RLIMIT_NOFILE, &few);
        });
        const auto answer = effect.ask("start");
        ++starts[answer.substr(0, answer.find(';'))];
        ASSERT_EQ(prlimit(effect.process(), RLIMIT_NOFILE, &usual, nullptr), 0);
        if (answer.starts_with("started ")) {
            ControlApplication control;
            SettingsRecord settings;
            settings.Reverb = 171;
            control.update(settings);
            EXPECT_EQ(effect.ask("await 171"), "there") << free;
            EXPECT_EQ(effect.ask("stop"), "stopped") << free;
        } else
            ASSERT_THAT(answer, StartsWith("failed ")) << free;
        ASSERT_EQ(kept(), answer == "started 170" ? 171U : 170U) << free << " descriptors, " << answer;
    }
    EXPECT_GT(starts["started 170"], 0);
    EXPECT_GT(starts["started 0"], 0);
    EXPECT_GT(starts["failed CreateFileMapping for SHARED_MEM failed"], 0);
}

TEST_F(ResourcesTest, WithoutADiskAStartFailsAndSaysWhy)
{
    EffectProcess effect([] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit none{0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
    });
    EXPECT_THAT(effect.ask("start"), StartsWith("failed CreateFileMapping for SHARED_MEM failed; "));
    EXPECT_EQ(kept(), 170U);
}

TEST_F(ResourcesTest, WithoutSharedMemoryAStartFailsAndSaysWhy)
{
    for (const int error : {ENOENT, EACCES, EROFS, ENOSPC}) {
        EffectProcess effect([error] { refused.sharedMemory = error; });
        EXPECT_THAT(effect.ask("start"), testing::AllOf(StartsWith("failed CreateFileMapping for SHARED_MEM failed; /dev/shm/"),
                                                        testing::EndsWith(' ' + std::to_string(error))));
    }
    EffectProcess full([] { refused.room = ENOSPC; });
    EXPECT_THAT(full.ask("start"), testing::EndsWith(' ' + std::to_string(ENOSPC)));
    EXPECT_EQ(kept(), 170U);
    EffectProcess next;
    EXPECT_EQ(next.ask("start"), "started 170");
}

// Whoever makes the shared objects has to lock them, so where they stand on such a file system too nothing starts.
TEST_F(ResourcesTest, AHomeWithoutLocksKeepsSettingsAllTheSame)
{
    for (const int error : {ENOLCK, EOPNOTSUPP}) {
        keep(170);
        refused.lock = error;
        keep(171);
        EXPECT_EQ(kept(), 171U);
        refused.lock = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home.path() / ".local"))
            EXPECT_FALSE(entry.path().filename().string().starts_with(".new.")) << entry.path();
        EffectProcess effect([error] { refused.lock = error; });
        EXPECT_THAT(effect.ask("start"), testing::AllOf(StartsWith("failed CreateFileMapping for SHARED_MEM failed; "),
                                                        testing::EndsWith(' ' + std::to_string(error))));
    }
}

} // namespace
} // namespace quorel

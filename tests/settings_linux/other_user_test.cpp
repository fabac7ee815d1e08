// SPDX-License-Identifier: MIT
// Another user of the machine tries to read, write, take, hold or block what belongs to a running effect, from outside and with
// our own operations. The home and the folder of running programs let everybody in here, which is the worst there is.
//
// Only root can be somebody else, so for others this is skipped.
#include "platform/registry.h"
#include "platform/sharing.h"
#include "settings/control_block.h"
#include "tests/settings_linux/effect_process.h"
#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <grp.h>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace quorel {
namespace {

namespace fs = std::filesystem;

constexpr uid_t nobodyElse = 54321; // an account that no system gives out

// What an attacker reached.
class Attack {
public:
    void tried(const std::string& what, bool reached)
    {
        ++count;
        if (!reached)
            return;
        ++successes;
        std::fprintf(stderr, "the other user can %s\n", what.c_str());
    }

    void path(const fs::path& target)
    {
        for (const int how : {O_RDONLY, O_WRONLY, O_RDWR | O_TRUNC}) {
            const int file = open(target.c_str(), how | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW);
            tried("open " + target.string(), file >= 0);
            tried("lock " + target.string(), file >= 0 && flock(file, LOCK_SH | LOCK_NB) == 0);
        }
        tried("let others in to " + target.string(), chmod(target.c_str(), 0777) == 0);
        tried("cut " + target.string(), truncate(target.c_str(), 0) == 0);
        tried("rename " + target.string(), rename(target.c_str(), (target.string() + "2").c_str()) == 0);
        tried("link " + target.string(), link(target.c_str(), "/dev/shm/quorel_other_user") == 0);
        tried("remove " + target.string(), remove(target.c_str()) == 0);
    }

    void inside(const fs::path& folder)
    {
        tried("make a file in " + folder.string(), open((folder / "mine").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666) >= 0);
        tried("make a folder in " + folder.string(), mkdir((folder / "folder").c_str(), 0777) == 0);
        tried("make a FIFO in " + folder.string(), mkfifo((folder / "event.QUORELEvent.1.1").c_str(), 0666) == 0);
    }

    void process(pid_t id)
    {
        int word = 0;
        iovec own{&word, sizeof word};
        iovec theirs{&word, sizeof word};
        const std::string files = "/proc/" + std::to_string(id);
        tried("signal the effect", ::kill(id, 0) == 0);
        tried("stop the effect", ::kill(id, SIGSTOP) == 0);
        tried("trace the effect", ptrace(PTRACE_ATTACH, id, nullptr, nullptr) == 0);
        tried("read the effect's memory", process_vm_readv(id, &own, 1, &theirs, 1, 0) > 0);
        tried("open the effect's memory", open((files + "/mem").c_str(), O_RDWR | O_CLOEXEC) >= 0);
        tried("list the effect's files", access((files + "/fd/0").c_str(), F_OK) == 0);
        tried("see where the effect's memory stands",
              open((files + "/map_files").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC) >= 0);
    }

    // With the variables of the one who is attacked, as by a program that changes its user.
    void ownOperations()
    {
        auto* access = platform::convertDescriptor("D:(A;;GA;;;BU)");
        tried("open the block", platform::openMapping(controlBlockName) != nullptr);
        tried("make the block", platform::createMapping(controlBlockName, sizeof(ControlBlock), access) != nullptr);
        tried("open the event", platform::openEvent(controlEventName) != nullptr);
        tried("make the event", platform::createEvent(controlEventName, access) != nullptr);
        const platform::UserTurn turn(100);
        tried("take the turn", static_cast<bool>(turn));
        platform::RegistryKey key = nullptr;
        const auto user = platform::rootKey(platform::RootKey::currentUser);
        tried("read the kept values", platform::openKey(user, "Software\\VEDRA\\QUOREL", 0x20019, key) == 0);
        tried("write the kept values", platform::createKey(user, "Software\\VEDRA\\QUOREL", 0x20006, key) == 0);
    }

    int count = 0;
    int successes = 0;
};

TEST(OtherUser, ReachesNothingOfARunningEffect)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "Only root can be somebody else.";
    const TemporaryHome home;
    const fs::path runtime = home.path() / "run/quorel";
    const fs::path state = home.path() / ".local/state/quorel";
    EffectProcess effect;
    ASSERT_EQ(effect.ask("start"), "started 0");
    ASSERT_EQ(effect.ask("stop"), "stopped"); // keeps the values
    ASSERT_EQ(effect.ask("start"), "started 0");
    std::vector<fs::path> targets{runtime, state};
    for (const auto& folder : {runtime, state}) {
        for (const auto& entry : fs::recursive_directory_iterator(folder))
            targets.push_back(entry.path());
    }
    for (const char* record : {"memory.QUORELMem", "memory.QUORELHRTF"}) {
        std::string name;
        ASSERT_TRUE(std::ifstream(runtime / record) >> name);
        targets.push_back("/dev/shm" + name);
    }
    ASSERT_GE(targets.size(), 14U); // both folders, what is in them, and the memory
    for (const auto& open : {home.path(), home.path() / "run", home.path() / ".local", home.path() / ".local/state"})
        fs::permissions(open, fs::perms(0755));

    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (setgroups(0, nullptr) != 0 || setresgid(nobodyElse, nobodyElse, nobodyElse) != 0 ||
            setresuid(nobodyElse, nobodyElse, nobodyElse) != 0)
            _exit(254);
        Attack attack;
        for (const auto& target : targets)
            attack.path(target);
        for (const auto& folder : {home.path(), home.path() / "run", runtime, home.path() / ".local", state, state / "registry"})
            attack.inside(folder);
        attack.process(effect.process());
        attack.ownOperations();
        std::printf("%d attacks, %d successes\n", attack.count, attack.successes);
        std::fflush(nullptr);
        _exit(std::min(attack.successes, 253));
    }
    int status = -1;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    ASSERT_NE(WEXITSTATUS(status), 254) << "it could not become somebody else";
    EXPECT_EQ(WEXITSTATUS(status), 0);

    ControlApplication control;
    SettingsRecord settings;
    settings.Reverb = 170;
    control.update(settings);
    EXPECT_EQ(effect.ask("await 170"), "there");
    EXPECT_EQ(effect.ask("stop"), "stopped");
    EXPECT_EQ(effect.ask("start"), "started 170");
}

} // namespace
} // namespace quorel

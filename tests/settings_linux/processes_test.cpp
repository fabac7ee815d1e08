// SPDX-License-Identifier: MIT
// What several effect processes of one user, and its control application, have of each other.
#include "settings/settings_handler.h"

#include "platform/registry.h"
#include "tests/settings_linux/effect_process.h"
#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <sys/file.h>
#include <sys/resource.h>
#include <vector>

namespace quorel {
namespace {

// In memory, since every end of a handler waits for the disk to have the kept values.
struct QuickHome {
    QuickHome() { setenv("TMPDIR", "/dev/shm", 1); }
};

class ProcessesTest : public testing::Test {
protected:
    static void update(ControlApplication& control, std::uint32_t reverb)
    {
        SettingsRecord settings;
        settings.Reverb = reverb;
        control.update(settings);
    }

    static void update(std::uint32_t reverb)
    {
        ControlApplication control;
        update(control, reverb);
    }

    // The value that is kept on the disk, which this process has not made.
    static std::uint32_t kept()
    {
        platform::RegistryKey key = nullptr;
        if (platform::openKey(platform::rootKey(platform::RootKey::currentUser), "Software\\VEDRA\\QUOREL", 0x20019, key) != 0)
            return 0;
        std::uint32_t value = 0;
        std::uint32_t bytes = sizeof value;
        static_cast<void>(platform::queryValue(key, "Reverb", &value, bytes));
        platform::closeKey(key);
        return value;
    }

    QuickHome quick;
    TemporaryHome home;
};

// ---- The event ------------------------------------------------------------------------------------------------------

TEST_F(ProcessesTest, EachUpdateReachesEachOfFourProcesses)
{
    std::array<EffectProcess, 4> effects;
    for (auto& effect : effects)
        ASSERT_EQ(effect.ask("start"), "started 0");
    ControlApplication control;
    const auto updates = wished("QUOREL_UPDATES", 2000);
    const auto all = [&](std::uint32_t value) {
        return std::all_of(effects.begin(), effects.end(), [](auto& effect) { return effect.answer() == "there"; }) ? value : 0;
    };
    for (std::uint32_t value = 1; value <= updates; ++value) { // sent when all have the one before
        for (auto& effect : effects)
            effect.tell("await " + std::to_string(value));
        update(control, value);
        ASSERT_EQ(all(value), value);
    }
    const auto last = 2 * updates;
    for (auto value = updates + 1; value <= last; ++value)
        update(control, value);
    for (auto& effect : effects)
        effect.tell("await " + std::to_string(last));
    EXPECT_EQ(all(last), last) << "the newest";
}

TEST_F(ProcessesTest, AStoppedProcessAndAKilledOneDisturbNoOther)
{
    std::array<EffectProcess, 4> effects;
    for (auto& effect : effects)
        ASSERT_EQ(effect.ask("start"), "started 0");
    ControlApplication control;
    alarm(30); // ends this program when the others do wait
    effects[2].signal(SIGSTOP);
    effects[3].kill();
    for (const auto& entry : std::filesystem::directory_iterator(home.path() / "run/quorel")) {
        if (!entry.is_fifo())
            continue;
        const int fifo = open(entry.path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        const std::vector<char> marks(65536);
        while (write(fifo, marks.data(), marks.size()) > 0) // full: the stopped process takes nothing out
            continue;
        close(fifo);
    }
    for (std::uint32_t value = 1; value <= 50; ++value) {
        update(control, value);
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(effects.at(static_cast<std::size_t>(i)).ask("await " + std::to_string(value)), "there");
    }
    effects[2].signal(SIGCONT);
    EXPECT_EQ(effects[2].ask("await 50"), "there");
    alarm(0);
}

// ---- The kept settings ----------------------------------------------------------------------------------------------

TEST_F(ProcessesTest, ASecondProcessNeverFindsTheFirstOnesBlockBeforeItIsLoaded)
{
    const int rounds = static_cast<int>(wished("QUOREL_STARTS", 60));
    {
        EffectProcess effect;
        ASSERT_EQ(effect.ask("start"), "started 0");
        update(170);
        ASSERT_EQ(effect.ask("await 170"), "there");
        ASSERT_EQ(effect.ask("stop"), "stopped");
    }
    std::array<EffectProcess, 2> effects;
    for (int round = 0; round < rounds; ++round) {
        for (auto& effect : effects)
            effect.tell("start");
        for (auto& effect : effects)
            ASSERT_EQ(effect.answer(), "started 170") << round;
        for (auto& effect : effects)
            ASSERT_EQ(effect.ask("stop"), "stopped");
    }
    EXPECT_EQ(kept(), 170U);
}

// Two or three processes start, end and are killed at once, and updates come in between. What every running process had
// taken over, and one that then ended regularly, is kept.
TEST_F(ProcessesTest, WhatAllHadTakenOverAndOneThatEndedIsKept)
{
    const auto seed = wished("QUOREL_SEED", 1);
    const int interleavings = static_cast<int>(wished("QUOREL_INTERLEAVINGS", 50));
    std::printf("seeds %u to %u\n", seed, seed + static_cast<std::uint32_t>(interleavings) - 1);
    std::uint32_t keptValue = 0;
    std::uint32_t newest = 0;
    for (int round = 0; round < interleavings; ++round) {
        std::mt19937 random(seed + static_cast<std::uint32_t>(round));
        std::vector<std::unique_ptr<EffectProcess>> effects(2 + random() % 2);
        std::set<std::size_t> running;
        std::uint32_t current = keptValue;
        const auto hurry = [&] { std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500)); };
        for (int step = 0; step < 8; ++step) {
            SCOPED_TRACE("seed " + std::to_string(seed + static_cast<std::uint32_t>(round)) + " step " + std::to_string(step));
            // A burst: each process may do something, and nobody waits for another one.
            std::set<std::size_t> starting;
            std::set<std::size_t> stopping;
            const auto before = running;
            for (std::size_t i = 0; i < effects.size(); ++i) {
                auto& effect = effects.at(i);
                const auto what = random() % 4;
                if (!effect)
                    effect = std::make_unique<EffectProcess>();
                if (what == 0 || what == 1) {
                    if (!running.contains(i)) {
                        effect->tell("start");
                        starting.insert(i);
                    } else if (what == 0) {
                        effect->tell("stop");
                        stopping.insert(i);
                    }
                }
                hurry();
            }
            if (random() % 3 == 0) { // a death, in the middle of whatever it does, but for an end that is to count
                const auto victim = random() % effects.size();
                if (!stopping.contains(victim)) {
                    effects.at(victim).reset();
                    running.erase(victim);
                    starting.erase(victim);
                }
            }
            for (const auto i : stopping) {
                ASSERT_EQ(effects.at(i)->answer(), "stopped");
                running.erase(i);
                keptValue = current;
            }
            std::set<std::string> found;
            for (const auto i : starting) {
                found.insert(effects.at(i)->answer());
                running.insert(i);
            }
            // The block's value where anybody held it, else the kept one; and the same for all.
            if (!found.empty()) {
                ASSERT_EQ(found.size(), 1U) << *found.begin() << " and " << *found.rbegin();
                const bool held = std::any_of(before.begin(), before.end(),
                                              [&](std::size_t i) { return running.contains(i) && !starting.contains(i); });
                const auto taken = *found.begin();
                ASSERT_TRUE(taken == "started " + std::to_string(current) ||
                            (!held && taken == "started " + std::to_string(keptValue)))
                    << taken << " where " << current << " was current and " << keptValue << " kept";
                current = static_cast<std::uint32_t>(std::stoul(taken.substr(8)));
            } else if (running.empty())
                current = keptValue;

            if (!running.empty() && random() % 2 == 0) { // an update, perhaps while one more process starts
                const auto more = random() % effects.size();
                const bool meanwhile = effects.at(more) && !running.contains(more);
                if (meanwhile) {
                    effects.at(more)->tell("start");
                    hurry();
                }
                current = ++newest;
                update(current);
                if (meanwhile) {
                    ASSERT_EQ(effects.at(more)->answer().substr(0, 7), "started");
                    running.insert(more);
                }
                for (const auto i : running)
                    ASSERT_EQ(effects.at(i)->ask("await " + std::to_string(current)), "there") << i;
            }
        }
        for (const auto i : running) {
            if (random() % 2 == 0)
                continue; // killed with its object
            ASSERT_EQ(effects.at(i)->ask("stop"), "stopped");
            keptValue = current;
        }
        effects.clear();
        ASSERT_EQ(kept(), keptValue) << "seed " << seed + static_cast<std::uint32_t>(round);
    }
    EXPECT_GT(newest, 0U);
}

// An audio engine may keep an effect object in a static one of its own.
TEST_F(ProcessesTest, ALastReleaseAtTheProcesssExitKeepsTheSettings)
{
    EffectProcess effect;
    ASSERT_EQ(effect.ask("start"), "started 0");
    update(170);
    ASSERT_EQ(effect.ask("await 170"), "there");
    effect.tell("leave");
    EXPECT_EQ(effect.end(), 0);
    EXPECT_EQ(kept(), 170U);
}

TEST_F(ProcessesTest, AHomeThatTakesNothingStopsNoSound)
{
    EffectProcess effect([] { setenv("HOME", "/proc", 1); }); // nobody makes a directory there
    ASSERT_EQ(effect.ask("start"), "started 0");
    update(170);
    EXPECT_EQ(effect.ask("await 170"), "there");
    EXPECT_EQ(effect.ask("stop"), "stopped");
}

TEST_F(ProcessesTest, KeptValuesThatCantBeReadStayAsTheyAre)
{
    const auto values = home.path() / ".local/state/quorel/registry/HKEY_CURRENT_USER/Software/VEDRA/QUOREL/.values";
    EffectProcess effect;
    ASSERT_EQ(effect.ask("start"), "started 0");
    update(170);
    ASSERT_EQ(effect.ask("await 170"), "there");
    ASSERT_EQ(effect.ask("stop"), "stopped");
    const auto content = [&] {
        std::ostringstream text;
        text << std::ifstream(values, std::ios::binary).rdbuf();
        return text.str();
    };
    const auto before = content();
    std::filesystem::permissions(values, std::filesystem::perms(0644));

    EXPECT_TRUE(SettingsHandler::keptValuesAreUnreadable());
    EXPECT_EQ(effect.ask("start"), "started 0") << "the effect runs all the same";
    update(9);
    EXPECT_EQ(effect.ask("await 9"), "there");
    EXPECT_EQ(effect.ask("stop"), "stopped");
    EXPECT_EQ(content(), before);

    std::filesystem::permissions(values, std::filesystem::perms(0600));
    EXPECT_FALSE(SettingsHandler::keptValuesAreUnreadable());
    EXPECT_EQ(effect.ask("start"), "started 170");
}

// ---- Who holds a lock and does not give it up -----------------------------------------------------------------------

class HeldDirectory {
public:
    explicit HeldDirectory(const std::filesystem::path& path) : file(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        EXPECT_EQ(flock(file, LOCK_EX | LOCK_NB), 0) << path;
    }
    ~HeldDirectory() { close(file); }
    HeldDirectory(const HeldDirectory&) = delete;
    HeldDirectory& operator=(const HeldDirectory&) = delete;

private:
    int file;
};

TEST_F(ProcessesTest, AStartWaitsTwoSecondsForAnotherOneAndFails)
{
    ASSERT_EQ(EffectProcess().ask("start"), "started 0");
    const auto turn = home.path() / "run/quorel/lock.QUORELTurn";
    const HeldDirectory held(turn);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(EffectProcess().ask("start"),
              "failed CreateFileMapping for SHARED_MEM failed; " + turn.string() + ' ' + std::to_string(EBUSY));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(ProcessesTest, ASaveWaitsTwoSecondsForTheDirectoryAndGoesOn)
{
    EffectProcess effect;
    ASSERT_EQ(effect.ask("start"), "started 0");
    ASSERT_EQ(effect.ask("stop"), "stopped");
    ASSERT_EQ(effect.ask("start"), "started 0");
    update(170);
    ASSERT_EQ(effect.ask("await 170"), "there");
    const HeldDirectory held(home.path() / ".local/state/quorel");
    EXPECT_EQ(effect.ask("stop"), "stopped");
    EXPECT_EQ(kept(), 170U);
}

// ---- Many lives -----------------------------------------------------------------------------------------------------

TEST_F(ProcessesTest, AProcessLeavesNoMoreAfterManyHandlersThanAfterTwo)
{
    EffectProcess effect([] {
        rlimit files{};
        getrlimit(RLIMIT_NOFILE, &files);
        files.rlim_cur = 64;
        setrlimit(RLIMIT_NOFILE, &files);
    });
    effect.tell("lives " + std::to_string(wished("QUOREL_LIVES", 300)));
    std::istringstream counts(effect.answer());
    std::size_t early = 0;
    std::size_t late = 0;
    counts >> early >> late;
    EXPECT_GT(early, 0U) << counts.str();
    EXPECT_EQ(late, early);
}

} // namespace
} // namespace quorel

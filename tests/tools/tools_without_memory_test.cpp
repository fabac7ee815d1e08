// SPDX-License-Identifier: MIT
// The tools where memory runs out at any of their allocations: they end at once, with one line that says why or as they should,
// and nothing is written by halves. A check lets some allocations fail, each as the only one or as the first of all; with
// QUOREL_FAILURES it is as many as that of each tool's, in both ways.
#include "settings/settings_handler.h"
#include "tests/support/control_application.h"
#include "tests/support/temporary_home.h"
#include "tests/support/wished.h"
#include "tests/tools/tool_test.h"

#include <cstdio>
#include <set>

namespace quorel {
namespace {

class WithoutMemory : public ToolTest {
protected:
    using Arguments = std::vector<std::string>;

    WithoutMemory() : ToolTest(QUOREL_RENDER, "quorel-render") {}

    void become(const char* program, const char* name)
    {
        tool = program;
        calledAs = name;
    }

    // Runs the tool with each of the failures, of which a check has `usual`; `check(outcome)` sees what became of it, `prepare()`
    // comes ahead of each run.
    template <typename Prepare, typename Check>
    void sweep(const Arguments& arguments, Prepare prepare, Check check, const char* counted = nullptr, std::uint32_t usual = 50)
    {
        const auto runWith = [&](const char* variable, const std::string& value) {
            prepare();
            return run(arguments, [=] {
                setenv("LD_PRELOAD", FAILING_MEMORY, 1);
                setenv(variable, value.c_str(), 1);
                if (counted != nullptr)
                    setenv("QUOREL_COUNTED", counted, 1);
                alarm(120); // so that a hang ends it
            });
        };
        const std::string told = (home.path() / "allocations").string();
        check(runWith("QUOREL_ALLOCATIONS", told));
        long all = 0;
        std::ifstream(told) >> all;
        ASSERT_GT(all, 100);
        const long wanted = wished("QUOREL_FAILURES", usual);
        for (const auto& [allocation, onward] : failures(all, wanted)) {
            const Outcome outcome = runWith("QUOREL_FAILING_ALLOCATION", std::to_string(allocation) + (onward ? "+" : ""));
            SCOPED_TRACE("allocation " + std::to_string(allocation) + (onward ? " and on of " : " of ") + std::to_string(all));
            ASSERT_TRUE(WIFEXITED(outcome.status)) << outcome;
            if (outcome.exited(2))
                expectOneLine(outcome.err, "");
            check(outcome);
            if (HasFailure())
                return;
            ++failed;
        }
    }

    ~WithoutMemory() override { std::printf("%ld allocations failed\n", failed); }

    // Which allocations fail, and whether all behind them do as well: half of them all over, half at the end, where the work is.
    static std::set<std::pair<long, bool>> failures(long all, long wanted)
    {
        std::set<std::pair<long, bool>> chosen;
        for (long k = 0; k < wanted; ++k) {
            const bool both = wanted >= all;
            const long allocation = both ? 1 + k % all : k % 2 == 0 ? 1 + all * k / wanted : all - all / 8 * k / wanted;
            chosen.insert({allocation, k / 2 % 2 == 0});
            if (both)
                chosen.insert({allocation, k / 2 % 2 != 0});
        }
        return chosen;
    }

    // An audio file's way: the whole output or none.
    void sweepFiles(const Arguments& options)
    {
        const std::string input = save("in.wav", 2, noise(2, 3000));
        Arguments arguments{input, path("out.wav")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        std::string whole;
        sweep(
            arguments, [&] { store("out.wav", "an older file"); },
            [&](const Outcome& outcome) {
                const std::string made = bytes("out.wav");
                if (outcome.exited(0)) {
                    whole = whole.empty() ? made : whole;
                    EXPECT_TRUE(made == whole);
                    EXPECT_EQ(outcome.err, "");
                } else {
                    EXPECT_TRUE(outcome.exited(2)) << outcome;
                    EXPECT_TRUE(made == "an older file");
                }
                EXPECT_EQ(entries(), (std::vector<fs::path>{input, path("out.wav")}));
            });
        EXPECT_GT(whole.size(), 20000U);
    }

    TemporaryHome home;
    long failed = 0;
};

TEST_F(WithoutMemory, RenderMakesAWholeFileOrSaysWhyNot)
{
    sweepFiles({"--Reverb", "100"});
}

TEST_F(WithoutMemory, CleanMakesAWholeFileOrSaysWhyNot)
{
    become(QUOREL_CLEAN, "quorel-clean");
    sweepFiles({"--noiseGate", "100"});
}

// What the reading library takes by itself is its own affair: it reads in a process of its own.
TEST_F(WithoutMemory, HrtfShowsAFileOrSaysWhyNot)
{
    become(QUOREL_HRTF, "quorel-hrtf");
    std::string whole;
    sweep(
        {"show", "/usr/share/libmysofa/MIT_KEMAR_normal_pinna.sofa"}, [] {},
        [&](const Outcome& outcome) {
            if (!outcome.exited(0)) {
                EXPECT_TRUE(outcome.exited(2)) << outcome;
                return;
            }
            whole = whole.empty() ? outcome.out : whole;
            EXPECT_EQ(outcome.out, whole);
        },
        "own", 10);
    EXPECT_FALSE(whole.empty());
}

// With an effect that takes settings.
class ControlWithoutMemory : public WithoutMemory {
protected:
    ControlWithoutMemory()
    {
        become(QUOREL_CONTROL, "quorel-control");
        before.Reverb = 30;
        before.micEq = 1;
        control.update(before);
    }

    std::shared_ptr<SettingsHandler> settings = SettingsHandler::instance(SettingsHandler::layoutVersion);
    ControlApplication control;
    SettingsRecord before;
};

// The setting is the old or the new one, the others stay, and the effect goes on taking settings.
TEST_F(ControlWithoutMemory, SetsAllOrNothing)
{
    SettingsRecord behind = before;
    behind.Reverb = 170;
    behind.EQBand[2] = -5;
    ControlBlock older{};
    ControlBlock newer{};
    copySettings(before, older);
    copySettings(behind, newer);
    sweep(
        {"set", "Reverb=170", "EQBand3=-5"}, [&] { control.update(before); },
        [&](const Outcome& outcome) {
            const bool set = control.block->settings == newer.settings;
            EXPECT_TRUE(set || (!outcome.exited(0) && control.block->settings == older.settings)) << outcome;
        });
}

TEST_F(ControlWithoutMemory, SavesAWholePresetOrNone)
{
    sweep(
        {"preset", "save", "night"},
        [&] {
            run({"preset", "delete", "night"});
        },
        [&](const Outcome& outcome) {
            const Outcome loaded = run({"preset", "load", "night"});
            EXPECT_TRUE(loaded.exited(0) || !outcome.exited(0)) << outcome << loaded;
            EXPECT_TRUE(loaded.exited(0) || loaded.err.find("No such file or directory") != std::string::npos)
                << outcome << loaded;
        });
}

#ifdef QUOREL_LIVE
// Up to the audio server, which is not there. What its client library takes by itself does not fail: it ends a program for it.
TEST_F(WithoutMemory, TheLiveHostStartsOrSaysWhyNot)
{
    become(QUOREL_LIVE, "quorel-live");
    setenv("PIPEWIRE_REMOTE", (home.path() / "none").c_str(), 1);
    sweep(
        {}, [] {}, [](const Outcome& outcome) { EXPECT_TRUE(outcome.exited(2)) << outcome; }, "own");
    unsetenv("PIPEWIRE_REMOTE");
}
#endif

} // namespace
} // namespace quorel

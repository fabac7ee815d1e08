// SPDX-License-Identifier: MIT
#include "tests/process/child.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <stdexcept>
#include <thread>

namespace quorel {
namespace {

using namespace std::chrono_literals;

TEST(Child, GivesItsLinesAndItsExitCode)
{
    Child child(ownProgram(), {"--say", "two words", "more"});
    EXPECT_EQ(child.line(), "two words");
    EXPECT_EQ(child.line(), "more");
    EXPECT_EQ(child.line(), std::nullopt);
    EXPECT_EQ(child.exitCode(10s), 7);
    EXPECT_EQ(child.exitCode(0s), 7);
}

TEST(Child, StillRunsUntilItIsKilled)
{
    Child child(ownProgram(), {"--wait"});
    EXPECT_EQ(child.line(), "waiting");
    EXPECT_EQ(child.exitCode(20ms), std::nullopt);
    child.kill();
    EXPECT_EQ(child.exitCode(0s), Child::killed);
    EXPECT_EQ(child.line(), std::nullopt);
}

TEST(Child, ACrashIsNoExitCode)
{
    Child child(ownProgram(), {"--abort"});
    EXPECT_TRUE(child.exitCode(10s).has_value());
    EXPECT_NE(child.exitCode(0s), 0);
}

// Error 2 is "no such file" on every system.
TEST(Child, AProgramThatIsNotThereFailsWithTheSystemsError)
{
    const auto program = ownProgram() + ".missing";
    std::string told;
    try {
        const Child child(program, {}, 0ms);
    } catch (const std::runtime_error& error) {
        told = error.what();
    }
    EXPECT_TRUE(told.starts_with("Can't start " + program + ": ")) << told;
    EXPECT_TRUE(told.ends_with(", error 2")) << told;
}

TEST(Child, AStartThatIsRefusedAtFirstIsTriedAgain)
{
    const auto program = ownProgram() + ".late.exe";
    const auto prepared = ownProgram() + ".prepared";
    std::filesystem::remove(program);
    std::filesystem::copy_file(ownProgram(), prepared, std::filesystem::copy_options::overwrite_existing);
    auto late = std::async(std::launch::async, [&] {
        std::this_thread::sleep_for(250ms);
        std::filesystem::rename(prepared, program);
    });
    {
        Child child(program, {"--say", "here"}, 1min);
        EXPECT_EQ(child.line(), "here");
        EXPECT_EQ(child.exitCode(1min), 7);
    }
    late.get();
    std::filesystem::remove(program);
}

int runAsChild(int count, char** words)
{
    if (std::strcmp(words[1], "--wait") == 0) {
        std::puts("waiting");
        std::fflush(stdout);
        std::this_thread::sleep_for(1min);
    }
    if (std::strcmp(words[1], "--abort") == 0)
        std::abort();
    for (int i = 2; i < count; ++i)
        std::puts(words[i]);
    return 7;
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    if (count > 1 && std::strstr("--say --wait --abort", words[1]) != nullptr)
        return quorel::runAsChild(count, words);
    testing::InitGoogleTest(&count, words);
    return RUN_ALL_TESTS();
}

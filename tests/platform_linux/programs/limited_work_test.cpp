// SPDX-License-Identifier: MIT
#include "platform/programs/limited_work.h"

#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace quorel::platform {
namespace {

constexpr WorkLimits limits = {1, 20, std::uint64_t{256} << 20, 1000000};

std::string refusalOf(const std::function<std::string()>& work, const WorkLimits& under = limits)
{
    try {
        doLimited(work, under, [] {});
    } catch (const std::runtime_error& reason) {
        return reason.what();
    }
    return "none";
}

[[noreturn]] void spin()
{
    for (volatile unsigned turns = 0;;)
        turns = turns + 1;
}

TEST(LimitedWork, GivesWhatTheWorkGives)
{
    const std::string bytes("with \0 in it", 12);
    EXPECT_EQ(doLimited([&] { return bytes; }, limits, [] {}), bytes);
    EXPECT_EQ(doLimited([] { return std::string(); }, limits, [] {}), "");
    EXPECT_EQ(doLimited([] { return std::string(1000000, 'x'); }, limits, [] {}), std::string(1000000, 'x'));
}

TEST(LimitedWork, ThrowsWhatTheWorkThrows)
{
    EXPECT_EQ(refusalOf([]() -> std::string { throw std::runtime_error("it is empty"); }), "it is empty");
}

TEST(LimitedWork, ChangesNothingOfItsCaller)
{
    int value = 1;
    doLimited(
        [&] {
            value = 2;
            return std::string();
        },
        limits, [] {});
    EXPECT_EQ(value, 1);
}

TEST(LimitedWork, EndsWithTheProcessorsTime)
{
    EXPECT_EQ(refusalOf([]() -> std::string { spin(); }), "it takes more than 1 s of the processor's time");
}

TEST(LimitedWork, EndsWithTheTimeByTheClock)
{
    EXPECT_EQ(refusalOf(
                  []() -> std::string {
                      for (;;)
                          pause();
                  },
                  {60, 1, limits.memoryBytes, limits.resultBytes}),
              "it takes more than 1 s");
}

TEST(LimitedWork, EndsWithTheMemory)
{
    const auto hoard = [] {
        std::vector<std::string> all;
        for (int i = 0; i < 64; ++i) // 1 GiB
            all.emplace_back(std::size_t{16} << 20, 'x');
        return std::string();
    };
    EXPECT_NE(refusalOf(hoard), "none"); // a sanitizer's allocator ends the process instead of telling
}

TEST(LimitedWork, EndsWithACrash)
{
    EXPECT_EQ(refusalOf([]() -> std::string {
                  std::signal(SIGSEGV, SIG_DFL);
                  std::raise(SIGSEGV);
                  return "";
              }),
              "it ends what reads it: Segmentation fault");
    EXPECT_EQ(refusalOf([]() -> std::string { _exit(0); }), "it ends what reads it");
}

TEST(LimitedWork, EndsWithTooLongAResult)
{
    EXPECT_EQ(refusalOf([] { return std::string(1000001, 'x'); }), "it gives more than 1000000 bytes");
}

TEST(LimitedWork, EndsWhenItsCallerGivesUp)
{
    struct GivenUp {};
    int waits = 0;
    const auto giveUp = [&waits] {
        if (++waits == 3)
            throw GivenUp();
    };
    const WorkLimits wide = {10, 10, limits.memoryBytes, limits.resultBytes};
    EXPECT_THROW(doLimited([]() -> std::string { spin(); }, wide, giveUp), GivenUp);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
}

TEST(LimitedWork, WritesNoFileAndNoWord)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int errors = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    const std::string wrote = doLimited(
        [] {
            std::signal(SIGXFSZ, SIG_IGN);
            std::fprintf(stderr, "a library's word\n");
            std::FILE* file = std::tmpfile();
            const bool done = file != nullptr && std::fputs("x", file) >= 0 && std::fflush(file) == 0;
            return std::string(done ? "wrote" : "could not");
        },
        limits, [] {});
    dup2(errors, STDERR_FILENO);
    close(errors);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 0);
    close(ends[0]);
    EXPECT_EQ(wrote, "could not");
}

// Each of these would succeed in the process that asks for the work.
TEST(LimitedWork, AsksTheSystemForNothingButReading)
{
    const TemporaryHome home;
    const std::string path = (home.path() / "file").string();
    std::ofstream(path) << "kept";
    const int there = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const pid_t caller = getpid();
    const std::string done = doLimited(
        [&] {
            std::string could;
            const auto attempt = [&could](const char* what, long result) {
                if (result >= 0 || (errno != EPERM && errno != EBADF))
                    could += std::string(what) + ' ';
            };
            attempt("program", execl("/bin/true", "true", nullptr));
            attempt("process", fork());
            attempt("connection", socket(AF_UNIX, SOCK_STREAM, 0));
            attempt("signal", kill(caller, 0));
            attempt("writing", open(path.c_str(), O_WRONLY | O_CLOEXEC));
            attempt("new file", open((path + "2").c_str(), O_CREAT | O_RDONLY | O_CLOEXEC, 0600));
            attempt("overwriting", pwrite(there, "lost", 4, 0));
            attempt("open file", write(there, "lost", 4));
            void* shared = mmap(nullptr, 4, PROT_READ | PROT_WRITE, MAP_SHARED, there, 0);
            attempt("mapping", shared == MAP_FAILED ? -1 : 0);
            attempt("cutting", ftruncate(there, 0));
            attempt("removal", unlink(path.c_str()));
            attempt("name", rename(path.c_str(), (path + "2").c_str()));
            attempt("rights", chmod(path.c_str(), 0));
            std::string content;
            std::ifstream(path) >> content;
            return could + content;
        },
        limits, [] {});
    close(there);
    EXPECT_EQ(done, "kept");
}

} // namespace
} // namespace quorel::platform

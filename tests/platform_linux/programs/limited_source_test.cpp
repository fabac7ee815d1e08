// SPDX-License-Identifier: MIT
#include "platform/programs/limited_source.h"

#include "tests/support/failure.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <numeric>
#include <string>
#include <unistd.h>
#include <vector>

namespace quorel::platform {
namespace {

constexpr WorkLimits limits = {5, 60, std::uint64_t{256} << 20, std::size_t{1} << 30};

// More than a pipe holds, given and read in parts of other lengths.
TEST(LimitedSource, GivesAsMuchAsIsWantedPieceByPiece)
{
    std::vector<std::uint32_t> all(1'000'000);
    std::iota(all.begin(), all.end(), 0U);
    LimitedSource source(
        [&](const LimitedSource::Give& give) {
            for (std::size_t i = 0; i < all.size(); i += 12'500)
                give(all.data() + i, 12'500 * sizeof(std::uint32_t));
        },
        limits, [] {}, -1);
    std::vector<std::uint32_t> got(all.size() + 1);
    auto* to = reinterpret_cast<char*>(got.data());
    std::size_t done = 0;
    for (std::size_t part = 33'333; part == 33'333; done += part)
        part = source.read(to + done, 33'333);
    got.pop_back();
    EXPECT_EQ(done, all.size() * sizeof(std::uint32_t));
    EXPECT_EQ(got, all);
    EXPECT_EQ(source.read(to, 1), 0U) << "the end stays the end";
}

TEST(LimitedSource, WhatComesBeforeACrashIsRead)
{
    LimitedSource source(
        [](const LimitedSource::Give& give) {
            give("good", 4);
            std::signal(SIGSEGV, SIG_DFL);
            std::raise(SIGSEGV);
        },
        limits, [] {}, -1);
    std::string text(4, ' ');
    EXPECT_EQ(source.read(text.data(), 4), 4U);
    EXPECT_EQ(text, "good");
    EXPECT_EQ(failureText([&] { source.read(text.data(), 1); }), "it ends what reads it: Segmentation fault");
}

// As it would by contents that took it over: it waits for nothing any more, and never ends.
TEST(LimitedSource, AChildThatClosesItsEndAndGoesOnIsEnded)
{
    LimitedSource source(
        [](const LimitedSource::Give&) {
            for (int fd = 3; fd < 1024; ++fd)
                close(fd);
            for (volatile unsigned turns = 0;;)
                turns = turns + 1;
        },
        limits, [] {}, -1);
    char byte = 0;
    EXPECT_EQ(failureText([&] { source.read(&byte, 1); }), "it ends what reads it: Killed");
}

TEST(LimitedSource, OfItsCallersFilesItHasTheOneThatIsKept)
{
    const TemporaryHome home;
    std::ofstream(home.path() / "one") << "one";
    std::ofstream(home.path() / "two") << "two";
    const int before = open((home.path() / "one").c_str(), O_RDONLY | O_CLOEXEC);
    const int kept = open((home.path() / "two").c_str(), O_RDONLY | O_CLOEXEC);
    const int behind = fcntl(before, F_DUPFD_CLOEXEC, 100);
    LimitedSource source(
        [=](const LimitedSource::Give& give) {
            std::string text;
            char byte = 0;
            for (const int fd : {before, kept, behind})
                for (int i = 0; i < 3; ++i)
                    text += pread(fd, &byte, 1, i) == 1 ? byte : '-';
            give(text.data(), text.size());
        },
        limits, [] {}, kept);
    for (const int fd : {before, kept, behind})
        close(fd);
    std::string text(10, ' ');
    EXPECT_EQ(source.read(text.data(), 10), 9U);
    EXPECT_EQ(text, "---two--- ");
}

} // namespace
} // namespace quorel::platform

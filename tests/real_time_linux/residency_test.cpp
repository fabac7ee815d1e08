// SPDX-License-Identifier: MIT
// All sample memory of a path is in physical memory when the path has been built, and pinned there as far as the system allows.
// What has to be pinned is what the allocator gave out; what is pinned the kernel counts.
#include "core/signal_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <set>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

namespace {

// A block of the aligned allocator, which sample memory alone comes from.
struct Block {
    std::uintptr_t address;
    std::size_t bytes;
    bool gone = false;
};

std::vector<Block>& blocks()
{
    static std::vector<Block> list;
    return list;
}

enum class Pinning { granted, refused, refusedAtFirst };

Pinning pinning = Pinning::granted;
std::uintptr_t lastRefused = 0;
bool systemRefused = false;

} // namespace

// The linker sends the program's calls of these here.
extern "C" {
int __real_posix_memalign(void** block, std::size_t alignment, std::size_t bytes);
int __real_mlock(const void* address, std::size_t bytes);
int __real_setrlimit(__rlimit_resource_t resource, const rlimit* limits);
void __real_free(void* block);

int __wrap_posix_memalign(void** block, std::size_t alignment, std::size_t bytes)
{
    const int result = __real_posix_memalign(block, alignment, bytes);
    if (result == 0)
        blocks().push_back({reinterpret_cast<std::uintptr_t>(*block), bytes});
    return result;
}

int __wrap_mlock(const void* address, std::size_t bytes)
{
    const auto at = reinterpret_cast<std::uintptr_t>(address);
    if (pinning == Pinning::refused || (pinning == Pinning::refusedAtFirst && lastRefused != at)) {
        lastRefused = at;
        return -1;
    }
    lastRefused = 0;
    const int result = __real_mlock(address, bytes);
    systemRefused = systemRefused || result != 0;
    return result;
}

// A limit that this process may not raise is as good as raised: the kernel refuses what it does not grant.
int __wrap_setrlimit(__rlimit_resource_t resource, const rlimit* limits)
{
    __real_setrlimit(resource, limits);
    return 0;
}

void __wrap_free(void* block)
{
    for (auto& one : blocks())
        one.gone = one.gone || one.address == reinterpret_cast<std::uintptr_t>(block);
    __real_free(block);
}
}

namespace quorel {
namespace {

// Pages that this process keeps pinned.
std::size_t pinnedPages()
{
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmLck:") {
            std::size_t kilobytes = 0;
            status >> kilobytes;
            return kilobytes * 1024 / static_cast<std::size_t>(getpagesize());
        }
    return 0;
}

class Residency : public testing::Test {
protected:
    void SetUp() override
    {
        munlockall();
        blocks().clear();
        systemRefused = false;
    }
    void TearDown() override { pinning = Pinning::granted; }

    static void expectThereAndPinned()
    {
        const auto page = static_cast<std::uintptr_t>(getpagesize());
        std::set<std::uintptr_t> live;
        std::set<std::uintptr_t> all;
        for (const Block& block : blocks())
            for (auto at = block.address / page; at <= (block.address + block.bytes - 1) / page; ++at) {
                all.insert(at);
                if (!block.gone)
                    live.insert(at);
            }
        const auto isThere = [page](std::uintptr_t at) {
            unsigned char state = 0;
            return mincore(reinterpret_cast<void*>(at * page), page, &state) == 0 && (state & 1) != 0;
        };
        EXPECT_GT(live.size(), 20U);
        EXPECT_TRUE(std::all_of(live.begin(), live.end(), isThere));
        if (pinning == Pinning::refused)
            return;
        if (systemRefused)
            GTEST_SKIP() << "This system lets the process pin no more memory.";
        // Pages of a block that is gone again stay pinned, unless the allocator has given them back.
        EXPECT_EQ(pinnedPages(), static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isThere)));
    }
};

TEST_F(Residency, SampleMemoryThatCannotBePinnedIsThereAllTheSame)
{
    pinning = Pinning::refused;
    const SignalPath render(SignalPath::Speaker{}, 8, 0x63F, 848, 48000);
    const SignalPath capture(SignalPath::Microphone{}, 8, 0, 960, 48000);
    expectThereAndPinned();
}

TEST_F(Residency, ARenderPathsSampleMemoryIsThereAndPinned)
{
    const SignalPath path(SignalPath::Speaker{}, 8, 0x63F, 848, 48000);
    expectThereAndPinned();
}

TEST_F(Residency, ACapturePathsSampleMemoryIsThereAndPinned)
{
    const SignalPath path(SignalPath::Microphone{}, 8, 0, 960, 48000);
    expectThereAndPinned();
}

TEST_F(Residency, WhatIsPinnedAtTheSecondAttemptIsPinnedWhole)
{
    pinning = Pinning::refusedAtFirst;
    const SignalPath render(SignalPath::Speaker{}, 8, 0x63F, 848, 48000);
    const SignalPath capture(SignalPath::Microphone{}, 8, 0, 960, 48000);
    expectThereAndPinned();
}

} // namespace
} // namespace quorel

// All sample memory of a path is in physical memory when the path has been built, and pinned there as far as the system allows.
#include "core/signal_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <set>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

struct Locked {
    std::uintptr_t address;
    std::size_t bytes;
    bool refused;
    bool gone = false;
};

std::vector<Locked>& locked()
{
    static std::vector<Locked> list;
    return list;
}

bool pinningIsRefused = false;

} // namespace

// The linker sends the program's calls of these here.
extern "C" {
int __real_mlock(const void* address, std::size_t bytes);
void __real_free(void* block);

int __wrap_mlock(const void* address, std::size_t bytes)
{
    const int result = pinningIsRefused ? -1 : __real_mlock(address, bytes);
    locked().push_back({reinterpret_cast<std::uintptr_t>(address), bytes, result != 0});
    return result;
}

void __wrap_free(void* block)
{
    for (auto& one : locked())
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

void expectThereAndPinned()
{
    const auto page = static_cast<std::uintptr_t>(getpagesize());
    std::set<std::uintptr_t> live;
    std::set<std::uintptr_t> all;
    bool refused = false;
    for (const auto& block : locked()) {
        for (auto at = block.address / page; at <= (block.address + block.bytes - 1) / page; ++at) {
            all.insert(at);
            if (!block.gone)
                live.insert(at);
        }
        refused = refused || block.refused;
    }
    const auto isThere = [page](std::uintptr_t at) {
        unsigned char state = 0;
        return mincore(reinterpret_cast<void*>(at * page), page, &state) == 0 && (state & 1) != 0;
    };
    EXPECT_GT(live.size(), 20U);
    EXPECT_TRUE(std::all_of(live.begin(), live.end(), isThere));
    if (pinningIsRefused)
        return;
    if (refused)
        GTEST_SKIP() << "This system lets the process pin no more memory.";
    // Pages of a block that is gone again stay pinned, unless the allocator has given them back.
    EXPECT_EQ(pinnedPages(), static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isThere)));
}

TEST(Residency, SampleMemoryThatCannotBePinnedIsThereAllTheSame)
{
    pinningIsRefused = true;
    const SignalPath render(SignalPath::Speaker{}, 8, 0x63F, 848, 48000);
    const SignalPath capture(SignalPath::Microphone{}, 8, 0, 960, 48000);
    expectThereAndPinned();
    pinningIsRefused = false;
    locked().clear();
}

TEST(Residency, ARenderPathsSampleMemoryIsThereAndPinned)
{
    const SignalPath path(SignalPath::Speaker{}, 8, 0x63F, 848, 48000);
    expectThereAndPinned();
}

TEST(Residency, ACapturePathsSampleMemoryIsThereAndPinned)
{
    const SignalPath path(SignalPath::Microphone{}, 8, 0, 960, 48000);
    expectThereAndPinned();
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
// A host that loads the module, runs a stream and unloads it again, thousands of times in its long life: nothing of the process
// may be used up by that, but what a life of the settings leaves open by requirement.
//
// The first argument is how many times.
#include "tests/host/loaded_module.h"
#include "tests/host/memory_in_use.h"
#include "tests/process/child.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <thread>
#include <vector>
#include <windows.h>

namespace quorel {
namespace {

constexpr UINT32 frames = 480;
int cycles = 300;
constexpr int settled = 10; // so many, and the process's own first times are over

// The exit codes of the process that loads and unloads.
constexpr int nothingLost = 0;
constexpr int somethingLost = 1;
constexpr int moduleStayed = 2; // a busy machine kept the settings' thread from ending in time
constexpr int failed = 3;

// The audio thread: it outlives the module and meets each of its exceptions. It waits by the system's own events, which are
// there from the start: the library's semaphores are made when first waited for.
class AudioThread {
public:
    ~AudioThread()
    {
        stream = nullptr;
        SetEvent(begin);
        thread.join();
        CloseHandle(begin);
        CloseHandle(end);
    }

    // One good block and one that is too long for the path, which throws. True when the module makes of them what it should.
    bool runBlocks(Effect& effect)
    {
        stream = &effect;
        SetEvent(begin);
        WaitForSingleObject(end, INFINITE);
        return isRight;
    }

private:
    void run()
    {
        std::vector<float> samples((frames + 1) * 8, 0.1F);
        for (;;) {
            WaitForSingleObject(begin, INFINITE);
            if (stream == nullptr)
                return;
            isRight = stream->process(samples.data(), samples.data(), frames) == BUFFER_VALID &&
                      stream->process(samples.data(), samples.data(), frames + 1) == BUFFER_INVALID;
            SetEvent(end);
        }
    }

    Effect* stream = nullptr;
    bool isRight = false;
    HANDLE begin = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    HANDLE end = CreateEventA(nullptr, FALSE, FALSE, nullptr);
    std::thread thread{[this] { run(); }};
};

struct Held {
    MemoryInUse memory = memoryInUse();
    std::size_t views = viewsInUse();

    // Of the system and the process, but for two handles and a view that each life of the settings leaves.
    bool isThatOf(const Held& before, std::size_t lives) const
    {
        return memory.blocks == before.memory.blocks && memory.bytes == before.memory.bytes &&
               memory.freeSlots == before.memory.freeSlots && memory.handles == before.memory.handles + 2 * lives &&
               views == before.views + lives;
    }

    // Views of memory and of files, the images of modules apart.
    static std::size_t viewsInUse()
    {
        std::size_t views = 0;
        const void* last = nullptr;
        MEMORY_BASIC_INFORMATION region{};
        for (const char* at = nullptr; VirtualQuery(at, &region, sizeof region) != 0;
             at = static_cast<const char*>(region.BaseAddress) + region.RegionSize) {
            if (region.Type == MEM_MAPPED && region.AllocationBase != last)
                ++views;
            last = region.AllocationBase;
        }
        return views;
    }
};

// A life of the module: a block that throws on each of two threads, the second time the loading thread's own.
int runModule(AudioThread& audio)
{
    LoadedModule module;
    {
        Effect effect(module.create());
        if (effect.initialize() != S_OK || effect.lock(surroundFormat(), frames) != S_OK || !audio.runBlocks(effect) ||
            effect.configuration->UnlockForProcess() != S_OK || effect.lock(surroundFormat(6), frames) != E_UNEXPECTED)
            return failed;
    }
    if (module.canUnload() != S_OK)
        return failed;
    return module.unload() ? nothingLost : moduleStayed;
}

int runCycles()
{
    const EndpointEntry render("Render");
    AudioThread audio;
    const auto run = [&audio](int count) {
        int result = nothingLost;
        for (int i = 0; i < count && result == nothingLost; ++i)
            result = runModule(audio);
        return result;
    };
    if (const int result = run(settled); result != nothingLost)
        return result;
    const Held before;
    for (int done = settled; done < cycles;) {
        const int now = std::min(100, cycles - done);
        if (const int result = run(now); result != nothingLost)
            return result;
        done += now;
        const Held after;
        if (!after.isThatOf(before, static_cast<std::size_t>(done - settled))) {
            std::cout << "after " << settled << ": " << before.memory << ", " << before.views << " views\n"
                      << "after " << done << ": " << after.memory << ", " << after.views << " views\n";
            return somethingLost;
        }
    }
    std::printf("%d cycles\n", cycles);
    return nothingLost;
}

// A module that stays, stays for good: a new process begins anew then.
TEST(ModuleCycles, ManyOfThemUseUpNothing)
{
    int result = moduleStayed;
    for (int attempt = 0; attempt < 5 && result == moduleStayed; ++attempt) {
        Child child(ownProgram(), {"--cycles", std::to_string(cycles)});
        while (const auto line = child.line())
            std::puts(line->c_str());
        result = child.exitCode(std::chrono::minutes(1)).value_or(failed);
    }
    EXPECT_EQ(result, nothingLost);
}

} // namespace
} // namespace quorel

int main(int count, char** words)
{
    const bool isChild = count == 3 && std::strcmp(words[1], "--cycles") == 0;
    testing::InitGoogleTest(&count, words);
    if (count > 1)
        quorel::cycles = std::atoi(words[count - 1]);
    if (isChild)
        return quorel::runCycles();
    return RUN_ALL_TESTS();
}

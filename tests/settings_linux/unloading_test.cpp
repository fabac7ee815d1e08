// SPDX-License-Identifier: MIT
// What stays in a process that loads the module, runs a stream and unloads it, a hundred times, or as many as QUOREL_LIVES says.
#include "tests/host/loaded_module.h"
#include "tests/host/memory_in_use.h"
#include "tests/support/private_home.h"
#include "tests/support/wished.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

namespace quorel {
namespace {

constexpr UINT32 frames = 480;

// Places for threads' own variables that nobody has.
int freeSlots()
{
    std::vector<pthread_key_t> taken;
    for (pthread_key_t key = 0; pthread_key_create(&key, nullptr) == 0;)
        taken.push_back(key);
    for (const auto key : taken)
        pthread_key_delete(key);
    return static_cast<int>(taken.size());
}

int viewsOfSharedMemory()
{
    int views = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        views += line.find("/quorel-") != std::string::npos ? 1 : 0;
    return views;
}

// What this process holds of the system.
struct Held {
    MemoryInUse memory = memoryInUse();
    std::ptrdiff_t threads = std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    int views = viewsOfSharedMemory();
    int slots = freeSlots();

    // Bytes are counted where a sanitizer allocates, which itself keeps some for each load; elsewhere blocks are.
    bool isAtMost(const Held& other) const
    {
        return memory.blocks <= other.memory.blocks && memory.handles <= other.memory.handles && threads <= other.threads &&
               views <= other.views && slots >= other.slots;
    }
};

std::ostream& operator<<(std::ostream& out, const Held& held)
{
    return out << held.memory << ", " << held.threads << " threads, " << held.views << " views, " << held.slots
               << " free places of threads";
}

TEST(Unloading, AHundredLivesHoldNoMoreThanTen)
{
    const auto lives = wished("QUOREL_LIVES", 100);
    const EndpointEntry endpoint{"Render"};
    std::vector<float> samples(frames * 8, 0.1F);
    bool stays = false; // the module, behind a life
    const auto live = [&samples, &stays] {
        LoadedModule module;
        {
            Effect effect(module.create());
            ASSERT_EQ(effect.initialize(), S_OK);
            ASSERT_EQ(effect.lock(surroundFormat(), frames), S_OK);
            ASSERT_EQ(effect.process(samples.data(), samples.data(), frames), BUFFER_VALID);
        }
        stays = !module.unload();
    };
    for (int i = 0; i < 10; ++i)
        live();
    Held before;
    std::uint32_t late = 0;
    for (std::uint32_t i = 10; i < lives; ++i) {
        const int views = viewsOfSharedMemory();
        live();
        // Required: a settings' thread that a busy machine keeps from ending in time keeps the module, and what is left open then.
        if (stays && viewsOfSharedMemory() > views) {
            ++late;
            before = Held();
        }
    }
    EXPECT_LE(late, 2 + lives / 500) << "of " << lives << " lives";
    // A busy machine can keep the last settings' thread from ending in time; what it holds it closes when it does.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!Held().isAtMost(before) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const Held after;
    EXPECT_TRUE(after.isAtMost(before)) << after << " after " << lives << ", " << before << " after ten";
    std::printf("%u lives\n", lives);
}

} // namespace
} // namespace quorel

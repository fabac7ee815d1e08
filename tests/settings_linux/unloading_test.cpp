// SPDX-License-Identifier: MIT
// What stays in a process that loads the module, runs a stream and unloads it, again and again.
#include "tests/host/loaded_module.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <thread>

namespace quorel {
namespace {

// Files that are open, and views of shared memory.
struct Held {
    std::ptrdiff_t files;
    int views;

    bool isAtMost(const Held& other) const { return files <= other.files && views <= other.views; }
};

std::ostream& operator<<(std::ostream& out, const Held& held)
{
    return out << held.files << " files, " << held.views << " views";
}

Held held()
{
    Held now{std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}), 0};
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        now.views += line.find("/quorel-") != std::string::npos ? 1 : 0;
    return now;
}

TEST(Unloading, AHundredLoadsHoldNoMoreThanTen)
{
    const EndpointEntry endpoint{"Render"};
    const auto cycle = [] {
        LoadedModule module;
        Effect effect(module.create());
        ASSERT_EQ(effect.initialize(), S_OK);
        ASSERT_EQ(effect.lock(surroundFormat()), S_OK);
    };
    for (int i = 0; i < 10; ++i)
        cycle();
    const Held before = held();
    for (int i = 10; i < 100; ++i)
        cycle();
    // A busy machine can keep the last settings' thread from ending in time; what it holds it closes when it does.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!held().isAtMost(before) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const Held after = held();
    EXPECT_TRUE(after.isAtMost(before)) << after << " after a hundred, " << before << " after ten";
}

} // namespace
} // namespace quorel

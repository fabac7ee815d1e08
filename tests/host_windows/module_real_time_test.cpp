// SPDX-License-Identifier: MIT
// The module's own code allocates nothing on the audio thread: what it calls of the C library's allocator and of the system's is
// counted at the addresses that the loader put into it. (The other tests count in programs that the same code is linked into.)
#include "tests/host/loaded_module.h"
#include "tests/real_time/effect_session.h"
#include "tests/support/private_home.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <windows.h>

namespace quorel {
namespace {

std::atomic<std::int64_t> calls = 0;

void* countedMalloc(std::size_t bytes)
{
    ++calls;
    return std::malloc(bytes);
}

void* countedCalloc(std::size_t number, std::size_t bytes)
{
    ++calls;
    return std::calloc(number, bytes);
}

void* countedRealloc(void* block, std::size_t bytes)
{
    ++calls;
    return std::realloc(block, bytes);
}

void countedFree(void* block)
{
    ++calls;
    std::free(block);
}

void* countedAlignedMalloc(std::size_t bytes, std::size_t alignment)
{
    ++calls;
    return _aligned_malloc(bytes, alignment);
}

void countedAlignedFree(void* block)
{
    ++calls;
    _aligned_free(block);
}

template <class Function>
void replace(const LoadedModule& module, const char* name, Function* replacement)
{
    module.replaceImport("msvcrt.dll", name, reinterpret_cast<void*>(replacement));
}

class ModuleRealTime : public testing::TestWithParam<Kind> {
protected:
    ModuleRealTime()
    {
        replace(module, "malloc", countedMalloc);
        replace(module, "calloc", countedCalloc);
        replace(module, "realloc", countedRealloc);
        replace(module, "free", countedFree);
        replace(module, "_aligned_malloc", countedAlignedMalloc);
        replace(module, "_aligned_free", countedAlignedFree);
    }

    LoadedModule module;
    const EndpointEntry entry{GetParam().list};
};

TEST_P(ModuleRealTime, ALongSessionAllocatesNothing)
{
    calls = 0;
    EffectSession session(GetParam(), std::make_unique<Effect>(module.create()));
    EXPECT_GT(calls, 10) << "what is counted is not what the module calls";
    session.run(1000);
    const auto before = calls.load();
    std::uint32_t updates = 0;
    for (int part = 0; part < 1000 && updates < 50; ++part)
        updates += session.run(500);
    EXPECT_GE(updates, 50U); // new settings arrived
    EXPECT_EQ(calls, before);
}

// An exception is allocated and released; behind it nothing is.
TEST_P(ModuleRealTime, ABlockThatFailsAllocatesItsExceptionAlone)
{
    EffectSession session(GetParam(), std::make_unique<Effect>(module.create()));
    session.fail(); // makes what a thread keeps of exceptions
    auto before = calls.load();
    session.fail();
    EXPECT_GT(calls, before);
    before = calls;
    session.run(100);
    EXPECT_EQ(calls, before);
}

INSTANTIATE_TEST_SUITE_P(Endpoints, ModuleRealTime, testing::Values(render, capture),
                         [](const auto& kind) { return kind.param.list; });

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
// The order in which a delivery's bytes reach the shared memory, seen store by store: the memory can't be written, so every
// store faults; the handler notes it, lets that one instruction through, and bars the way again.
#include "client/control_client.h"
#include "tests/client/one_effect_platform.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <sys/mman.h>
#include <ucontext.h>
#include <vector>

namespace quorel {
namespace {

constexpr std::size_t page = 4096;
constexpr std::size_t watchedBytes = page + hrtfShareBytes; // the block, then the share
constexpr std::size_t setFloats = 256;                      // of a set that is no real one: each byte may cost two signals

enum class Place : std::uint8_t { share, settings, sequence, elsewhere, event };

struct Store {
    Place place;
    std::size_t offset; // in the block, or in the share
};

// Of the process, for its signal handlers.
std::byte* watched = nullptr;
std::vector<Store>* stores = nullptr;

void note(std::size_t at)
{
    if (at >= page)
        stores->push_back({Place::share, at - page});
    else if (at >= settingsOffset && at < settingsOffset + settingsBytes)
        stores->push_back({Place::settings, at});
    else
        stores->push_back({at == offsetof(ControlBlock, sequence) ? Place::sequence : Place::elsewhere, at});
}

void singleStep(void* context, bool on)
{
    constexpr greg_t trapFlag = 0x100;
    auto& flags = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL];
    flags = on ? flags | trapFlag : flags & ~trapFlag;
}

void onStore(int, siginfo_t* fault, void* context)
{
    const auto* at = static_cast<std::byte*>(fault->si_addr);
    if (at < watched || at >= watched + watchedBytes) {
        std::signal(SIGSEGV, SIG_DFL); // a fault that is none of ours
        return;
    }
    note(static_cast<std::size_t>(at - watched));
    mprotect(watched, watchedBytes, PROT_READ | PROT_WRITE);
    singleStep(context, true);
}

void afterStore(int, siginfo_t*, void* context)
{
    mprotect(watched, watchedBytes, PROT_READ);
    singleStep(context, false);
}

class Watch {
public:
    Watch()
    {
        watched =
            static_cast<std::byte*>(mmap(nullptr, watchedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        noted.reserve(4 * watchedBytes); // the handlers allocate nothing
        stores = &noted;
        oneEffect() = {reinterpret_cast<ControlBlock*>(watched), watched + page, true, [this] {
                           noted.push_back({Place::event, 0});
                       }};
        struct sigaction action {};
        action.sa_flags = SA_SIGINFO;
        action.sa_sigaction = onStore;
        sigaction(SIGSEGV, &action, &oldFault);
        action.sa_sigaction = afterStore;
        sigaction(SIGTRAP, &action, &oldTrap);
    }
    ~Watch()
    {
        mprotect(watched, watchedBytes, PROT_READ | PROT_WRITE);
        sigaction(SIGSEGV, &oldFault, nullptr);
        sigaction(SIGTRAP, &oldTrap, nullptr);
        munmap(watched, watchedBytes);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    const std::vector<Store>& over(const std::function<void()>& work)
    {
        mprotect(watched, watchedBytes, PROT_READ);
        work();
        mprotect(watched, watchedBytes, PROT_READ | PROT_WRITE);
        return noted;
    }

private:
    std::vector<Store> noted;
    struct sigaction oldFault {};
    struct sigaction oldTrap {};
};

std::vector<std::size_t> placesOf(const std::vector<Store>& all, Place place)
{
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < all.size(); ++i)
        if (all[i].place == place)
            found.push_back(i);
    return found;
}

std::size_t placeOf(const std::vector<Store>& all, std::size_t field)
{
    const auto found = std::find_if(
        all.begin(), all.end(), [field](const Store& store) { return store.place == Place::settings && store.offset == field; });
    return static_cast<std::size_t>(found - all.begin());
}

TEST(ADelivery, WritesShareThenSettingsThenSequenceThenTheEvent)
{
    const TemporaryHome home;
    Watch watch;
    const auto& all = watch.over([] {
        ControlClient().deliver([](SettingsRecord& record) {
            record.hrtfId = 1;
            record.hrtfLength = 1024;
            record.hrtfChannels = 8;
            record.Enabled = 1;
            return std::vector<float>(setFloats, 1.0F);
        });
    });
    const auto share = placesOf(all, Place::share);
    const auto settings = placesOf(all, Place::settings);
    const auto sequence = placesOf(all, Place::sequence);
    const auto event = placesOf(all, Place::event);
    ASSERT_FALSE(share.empty());
    ASSERT_EQ(settings.size(), 4U); // words
    ASSERT_EQ(sequence.size(), 1U);
    ASSERT_EQ(event.size(), 1U);
    EXPECT_TRUE(placesOf(all, Place::elsewhere).empty());
    EXPECT_LT(share.back(), settings.front());
    EXPECT_LT(settings.back(), sequence.front());
    EXPECT_LT(sequence.front(), event.front());
    EXPECT_EQ(oneEffect().share[setFloats * sizeof(float) - 1], std::byte{0x3F}); // the last byte of 1.0F: all of it is there
}

// Whoever looks in between and finds the new identity finds the set's size with it.
TEST(ADelivery, WritesTheIdentityAfterTheSize)
{
    const TemporaryHome home;
    Watch watch;
    const auto& all = watch.over([] {
        ControlClient().update([](SettingsRecord& record) {
            record.hrtfId = 1;
            record.hrtfLength = 1024;
            record.hrtfChannels = 8;
        });
    });
    const auto identity = placeOf(all, offsetof(SettingsRecord, hrtfId));
    EXPECT_LT(placeOf(all, offsetof(SettingsRecord, hrtfLength)), identity);
    EXPECT_LT(placeOf(all, offsetof(SettingsRecord, hrtfChannels)), identity);
    EXPECT_LT(identity, all.size());
}

} // namespace
} // namespace quorel

// SPDX-License-Identifier: MIT
// Each operation on what processes share, with each of its allocations failing once: it fails, and ends no process.
#include "platform/named_lock.h"
#include "platform/refusal.h"
#include "platform/registry.h"
#include "platform/sharing.h"
#include "tests/support/failing_memory.h"
#include "tests/support/temporary_home.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace quorel::platform {
namespace {

class WithoutMemory : public testing::Test {
protected:
    ~WithoutMemory() override
    {
        static_cast<void>(deleteKey(user, keyPath, 0));
        freeDescriptor(everybody);
    }

    // Does the work with the first, the second, ... allocation failing, until none is left to fail.
    static void expectSafe(const std::function<void()>& work)
    {
        long allocation = 1;
        for (bool failed = true; failed; ++allocation) {
            failAllocation(allocation, false, Counted::own);
            work();
            failed = allocationFailed();
            failAllocation(0, false, Counted::own);
        }
        EXPECT_GT(allocation, 2);
    }

    static void closeIfOpen(Handle handle)
    {
        if (handle != nullptr)
            closeHandle(handle);
    }

    TemporaryHome home;
    RegistryKey user = rootKey(RootKey::currentUser);
    const std::string keyPath = "Software\\QUOREL test " + std::string(236, '-'); // Windows takes no memory for shorter ones
    Descriptor* everybody = convertDescriptor("D:(A;OICI;GA;;;BA)(A;OICI;FA;;;BU)(A;OICI;FA;;;LS)(A;OICI;FA;;;SY)");
};

TEST_F(WithoutMemory, ALockIsNotHeld)
{
    expectSafe([&] { NamedLock("Global\\QUORELLockOfTheTest", everybody, 1000); });
    EXPECT_TRUE(NamedLock("Global\\QUORELLockOfTheTest", everybody, 0));
}

TEST_F(WithoutMemory, ATurnIsNotHad)
{
#ifdef __linux__
    expectSafe([] { UserTurn(1000); });
#endif
    EXPECT_TRUE(UserTurn(0));
}

TEST_F(WithoutMemory, AMappingIsNotMadeAndNotOpened)
{
    expectSafe([&] { closeIfOpen(createMapping("Global\\QUORELTestMem", 1060, everybody)); });
    const auto made = createMapping("Global\\QUORELTestMem", 1060, everybody);
    ASSERT_NE(made, nullptr);
    expectSafe([] { closeIfOpen(openMapping("Global\\QUORELTestMem")); });
    closeHandle(made);
}

TEST_F(WithoutMemory, AnEventIsNotMadeNotOpenedAndNotSet)
{
    expectSafe([&] { closeIfOpen(createEvent("Global\\QUORELTestEvent", everybody)); });
    const auto made = createEvent("Global\\QUORELTestEvent", everybody);
    ASSERT_NE(made, nullptr);
    expectSafe([] { closeIfOpen(openEvent("Global\\QUORELTestEvent")); });
#ifdef __linux__
    expectSafe([&] { static_cast<void>(setEvent(made)); });
#endif
    EXPECT_TRUE(setEvent(made));
    EXPECT_TRUE(waitFor(made, 0));
    closeHandle(made);
}

TEST_F(WithoutMemory, AKeyIsNotMadeNotOpenedAndLosesNoValue)
{
    const auto write = [&](std::uint32_t value) {
        RegistryKey key = nullptr;
        if (createKey(user, keyPath, 0x20006, key) != 0)
            return;
        static_cast<void>(setNumber(key, "Reverb", value));
        closeKey(key);
    };
    write(170);
    expectSafe([&] { write(170); });
    std::uint32_t value = 0;
    const auto read = [&] {
        RegistryKey key = nullptr;
        if (openKey(user, keyPath, 0x20019, key) != 0)
            return;
        std::uint32_t bytes = sizeof value;
        static_cast<void>(queryValue(key, "Reverb", &value, bytes));
        closeKey(key);
    };
    expectSafe(read);
    read();
    EXPECT_EQ(value, 170U);
}

#ifdef __linux__
// Else zeros would be written over values that there was no memory to read.
TEST_F(WithoutMemory, AKeyThatWasNotReadWholeIsNotWritten)
{
    constexpr const char* path = "Software\\QUOREL and a name that is long";
    RegistryKey key = nullptr;
    ASSERT_EQ(createKey(user, path, 0x20006, key), 0);
    EXPECT_EQ(setNumber(key, "A value with a long name", 1), 0);
    EXPECT_EQ(setNumber(key, "B value with a longer name", 170), 0);
    closeKey(key);
    long failures = 1;
    for (;; ++failures) {
        failAllocation(failures, false, Counted::own);
        const auto result = openKey(user, path, 0x20019, key);
        failAllocation(0, false, Counted::own);
        std::uint32_t value = 0;
        std::uint32_t bytes = sizeof value;
        if (result == 0) {
            EXPECT_EQ(queryValue(key, "B value with a longer name", &value, bytes), 0) << failures;
        }
        closeKey(key);
        RegistryKey other = nullptr; // that another key can be read changes nothing
        if (openKey(user, "Software", 0x20019, other) == 0)
            closeKey(other);
        const auto written = createKey(user, path, 0x20006, key);
        closeKey(key);
        ASSERT_EQ(written == 0, result == 0) << failures;
        if (result == 0)
            break;
    }
    EXPECT_GT(failures, 1);
}
#endif

} // namespace
} // namespace quorel::platform
